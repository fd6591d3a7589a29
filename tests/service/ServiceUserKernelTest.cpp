// nimhost watch --metrics-file with the metrics service's credentials
// (nimhost-metrics.service: its own user and group, no other group, no
// capabilities, no new privileges) and as root, in the network sandbox: every
// port mode gives the same metrics. The board's device nodes are placeholders
// owned by root with the service's group, as the package's udev rule leaves
// them; the preloaded SPI emulator answers the switch on the descriptor the
// kernel gave for the placeholder, so the permission check is the kernel's.
#include "../nimhost/NimhostProcess.hpp"
#include "CaseFile.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <sys/stat.h>

namespace Zel::Test {
namespace {

using namespace std::chrono_literals;

// Any unprivileged ids: the kernel checks numbers, no account is needed.
constexpr unsigned int serviceId = 64123;
// The unit's User=, Group=, CapabilityBoundingSet= and NoNewPrivileges=.
const std::string asService = fmt::format(
    "setpriv --reuid={0} --regid={0} --clear-groups --bounding-set=-all --inh-caps=-all --no-new-privs ", serviceId);

struct Watched {
    std::string metrics; // empty when the watch wrote none
    std::string err;
    int exitCode;
};

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
        NetSandbox().Veth("eth0", "eth0p").Ip("addr add 192.168.1.10/24 dev eth0").Up();
        ASSERT_TRUE(WaitUntil([] { return ReadFile("/sys/class/net/eth0/operstate") == "up\n"; }, 10s));
        WriteFile("/etc/network/interfaces", "auto eth0\niface eth0 inet static\n    address 192.168.1.10/24\n");
        std::filesystem::permissions(board.Path(""), std::filesystem::perms(0755));
        std::string preload;
        for (const auto& line : GetParam().Lines("nodes")) {
            std::istringstream words(line);
            std::string name, mode, text, chip;
            words >> name >> mode >> text;
            const std::string path = board.Write(name, text == "spi" ? "" : text + "\n");
            ASSERT_EQ(Zel::Test::Run(fmt::format("chown 0:{} {} && chmod {} {}", serviceId, path, mode, path)), 0);
            if (text == "spi") {
                words >> chip;
                preload += " " + chip + ":" + path;
                for (std::string assignment; words >> assignment;) {
                    preload += ":" + assignment;
                }
            }
        }
        environment = fmt::format("env LD_PRELOAD='{}' ZEL_SPI_NODES='{}' "
                                  "ASAN_OPTIONS=\"$ASAN_OPTIONS:verify_asan_link_order=0\" ",
                                  ZEL_SPI_PRELOAD, preload);
        settings = board.Write("board.toml", Nodes(GetParam()["settings"]));
    }

    void TearDown() override
    {
        if (InSandbox()) {
            Zel::Test::Run("ip link del eth0 2>/dev/null");
        }
    }

    std::string Nodes(const std::string& text) const { return std::regex_replace(text, std::regex("@NODES@/"), board.Path("")); }

    // The watch until it wrote its metrics file or ended, then stopped with
    // SIGTERM as systemd stops the service; `directory` is its own, as the
    // unit's StateDirectory= is.
    Watched Watch(const std::string& credentials, const std::string& directory) const
    {
        const std::string file = directory + "/nim.prom";
        const ScratchDirectory run("service-user");
        Zel::Test::Run("(" + environment + credentials +
                       NimhostCommand({"--config", settings, "watch", "--interval", "50", "--metrics-file", file}) +
                       " >/dev/null 2>" + run.Path("err") + " & echo $! >" + run.Path("pid") + "; wait $!; echo $? >" +
                       run.Path("rc") + ") >/dev/null 2>&1 &");
        const auto text = [](const std::string& path) {
            return std::filesystem::exists(path) ? ReadFile(path) : std::string();
        };
        WaitUntil([&] { return !text(file).empty() || !text(run.Path("rc")).empty(); }, 20s);
        Zel::Test::Run("kill -TERM $(cat " + run.Path("pid") + ") 2>/dev/null");
        const bool ended = WaitUntil([&] { return text(run.Path("rc")).find('\n') != std::string::npos; }, 20s);
        return {text(file), text(run.Path("err")), ended ? std::stoi(text(run.Path("rc"))) : -1};
    }

    ScratchDirectory board{"service-board"};
    std::string environment;
    std::string settings;
};

TEST_P(ServiceUser, WatchWritesTheMetricsOfRootOrIsRefusedANodeNotTheServiceGroups)
{
    const ScratchDirectory rootState("service-root");
    const ScratchDirectory serviceState("service-state");
    ASSERT_EQ(Zel::Test::Run(fmt::format("chown {0}:{0} {1} && chmod 755 {1}", serviceId, serviceState.Path(""))), 0);

    const Watched root = Watch("", rootState.Path(""));
    const Watched service = Watch(asService, serviceState.Path(""));
    EXPECT_EQ(root.exitCode, 0) << root.err;
    for (const auto& line : GetParam().Lines("expect")) {
        EXPECT_NE(root.metrics.find(line + "\n"), std::string::npos) << line << " not in\n" << root.metrics;
    }
    if (GetParam().Has("refused")) {
        EXPECT_NE(service.exitCode, 0);
        EXPECT_NE(service.err.find(Nodes(GetParam().Line("refused"))), std::string::npos) << service.err;
        EXPECT_EQ(service.metrics, "");
        return;
    }
    EXPECT_EQ(service.exitCode, 0) << service.err;
    EXPECT_EQ(WithoutTimes(service.metrics), WithoutTimes(root.metrics));
    struct stat written {};
    ASSERT_EQ(::stat(serviceState.Path("nim.prom").c_str(), &written), 0);
    EXPECT_EQ(written.st_uid, serviceId);
    EXPECT_EQ(written.st_mode & 07777, 0644U) << "node_exporter's user reads it";
}

INSTANTIATE_TEST_SUITE_P(Rows, ServiceUser, testing::ValuesIn(Cases("service-user.cases")),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

} // namespace
} // namespace Zel::Test
