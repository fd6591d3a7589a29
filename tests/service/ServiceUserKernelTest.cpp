// nimhost watch --metrics-file with the metrics service's credentials
// (nimhost-metrics.service: its own user and group, no other group, no
// capabilities, no new privileges) and as root, in the network sandbox: every
// port mode gives the same metrics. The board's device nodes are placeholders
// owned by root, with the service's group where the package's udev rule gives
// it; the preloaded SPI emulator answers the switch on the descriptor the
// kernel gave for the placeholder, so the permission check is the kernel's.
#include "../nimhost/NimhostProcess.hpp"
#include "CaseFile.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

namespace Zel::Test {
namespace {

using namespace std::chrono_literals;

const std::string& asService = ServiceCredentials;

std::string TextOf(const std::string& path)
{
    return std::filesystem::exists(path) ? ReadFile(path) : std::string();
}

// The two timings differ from run to run.
std::string WithoutTimes(const std::string& metrics)
{
    const std::regex times("^nim_(watch_start_time|collection_duration)_seconds .*\n", std::regex::multiline);
    return std::regex_replace(metrics, times, "");
}

class ServiceUser : public testing::TestWithParam<Case> {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        if (Zel::Test::Run(asService + "true") != 0) {
            ASSERT_FALSE(InCi()) << "setpriv cannot take the service's credentials here";
            GTEST_SKIP() << "setpriv cannot take the service's credentials (not root outside a user namespace)";
        }
        ASSERT_TRUE(WaitUntil([] { return TextOf("/sys/class/net/eth0/operstate") == "up\n"; }, 10s));
        std::filesystem::permissions(board.Path(""), std::filesystem::perms(0755));
        ASSERT_EQ(Zel::Test::Run(Nodes(GetParam().Has("setup") ? GetParam()["setup"] : "")), 0);
        settings = board.Write("board.toml", Nodes(GetParam()["settings"]));
    }

    std::string Nodes(const std::string& text) const
    {
        return std::regex_replace(text, std::regex("@NODES@/"), board.Path(""));
    }

    // The watch until it wrote `state`'s nim.prom or ended, then stopped with
    // SIGTERM as systemd stops it: the metrics (none: empty), standard error
    // and exit status (-1: it did not end).
    std::tuple<std::string, std::string, int> Watch(const std::string& credentials, const ScratchDirectory& state) const
    {
        const std::string watch = fmt::format(
            "env LD_PRELOAD={} ZEL_SPI_NODES='{}' ASAN_OPTIONS=\"$ASAN_OPTIONS:verify_asan_link_order=0\" {}{}",
            ZEL_SPI_PRELOAD, Nodes(GetParam().Has("spi") ? GetParam().Line("spi") : ""), credentials,
            NimhostCommand({"--config", settings, "watch", "--metrics-file", state.Path("nim.prom")}));
        const std::string run = board.Path(credentials.empty() ? "root-" : "service-");
        Zel::Test::Run(fmt::format("({} >/dev/null 2>{}err & echo $! >{}pid; wait $!; echo $? >{}rc) >/dev/null &", watch,
                                   run, run, run));
        WaitUntil([&] { return !TextOf(state.Path("nim.prom")).empty() || !TextOf(run + "rc").empty(); }, 20s);
        Zel::Test::Run("kill -TERM $(cat " + run + "pid) 2>/dev/null");
        const bool ended = WaitUntil([&] { return TextOf(run + "rc").find('\n') != std::string::npos; }, 20s);
        return {TextOf(state.Path("nim.prom")), TextOf(run + "err"), ended ? std::stoi(TextOf(run + "rc")) : -1};
    }

    ScratchDirectory board{"service-board"};
    std::string settings;
};

TEST_P(ServiceUser, WatchWritesTheMetricsOfRootOrIsRefusedANodeNotTheServiceGroups)
{
    const ScratchDirectory rootState("service-root");
    const ScratchDirectory serviceState("service-state");
    ASSERT_EQ(Zel::Test::Run("chown 64123:64123 " + serviceState.Path("") + " && chmod 755 " + serviceState.Path("")), 0);

    const auto [rootMetrics, rootErr, rootExit] = Watch("", rootState);
    const auto [metrics, err, exit] = Watch(asService, serviceState);
    EXPECT_EQ(rootExit, 0) << rootErr;
    for (const auto& line : GetParam().Lines("expect")) {
        EXPECT_NE(rootMetrics.find(line + "\n"), std::string::npos) << line << " not in\n" << rootMetrics;
    }
    if (GetParam().Has("refused")) {
        EXPECT_NE(exit, 0);
        EXPECT_NE(err.find(Nodes(GetParam().Line("refused"))), std::string::npos) << err;
        EXPECT_EQ(metrics, "");
    } else {
        EXPECT_EQ(exit, 0) << err;
        EXPECT_EQ(WithoutTimes(metrics), WithoutTimes(rootMetrics));
        // node_exporter reads it as its own user.
        EXPECT_EQ(Zel::Test::Run("test \"$(stat -c %u:%a " + serviceState.Path("nim.prom") + ")\" = 64123:644"), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, ServiceUser, testing::ValuesIn(Cases("service-user.cases")),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

} // namespace
} // namespace Zel::Test
