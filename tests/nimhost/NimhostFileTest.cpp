// nimhost on interfaces files of several interfaces, in the network sandbox:
// a board of eth0, eth1 and eth10 (veth), whose names are prefixes of each
// other's, and files with VLANs, hwaddress lines, comments, sourced files.
// What nimhost says and writes is checked against the file and against
// ifupdown's own reader, ifquery (scripts/fetch-ifupdown.sh unpacks it).
#include "CaseFile.hpp"
#include "NimhostProcess.hpp"
#include "Sandbox.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace Zel::Test {
namespace {

using nlohmann::json;

const std::string interfacesFile = "/etc/network/interfaces";
const std::vector<std::string> boardInterfaces{"eth0", "eth1", "eth10"};

class NimhostFiles : public testing::Test {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        for (std::size_t i = 0; i < boardInterfaces.size(); ++i) {
            NetSandbox()
                .Veth(boardInterfaces[i], boardInterfaces[i] + "p")
                .Ip(fmt::format("link set dev {} address 02:00:00:00:00:0{}", boardInterfaces[i], i + 1))
                .Up();
        }
        settings = directory.Write("board.toml", ReadFile(ZEL_TEST_CASES "/three-ports.toml"));
    }

    void TearDown() override
    {
        if (InSandbox()) {
            Zel::Test::Run("for l in eth0 eth1 eth10; do ip link del $l 2>/dev/null; done; rm -rf /etc/network/*");
        }
    }

    NimhostResult Nimhost(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--config", settings});
        return RunNimhost(arguments);
    }

    ScratchDirectory directory;
    std::string settings;
};

// ---- what nimhost says, writes and refuses ----

class NimhostEditGuard : public NimhostFiles, public testing::WithParamInterface<Case> {};

TEST_P(NimhostEditGuard, SaysWhereValuesComeFromAndWritesOnlyTheInterfacesOwnLine)
{
    const Case& c = GetParam();
    WriteFile(interfacesFile, c["interfaces"]);
    for (const auto& [section, text] : c.sections) {
        if (section.rfind("file ", 0) == 0) {
            std::filesystem::create_directories(std::filesystem::path(section.substr(5)).parent_path());
            WriteFile(section.substr(5), text);
        }
    }
    for (const auto& name : c.Lines("down")) {
        NetSandbox().SetLinkDown(name);
    }
    const auto result = Nimhost(Words(c.Line("args")));
    EXPECT_EQ(result.exitCode, c.Has("exit") ? std::stoi(c["exit"]) : 0) << result.err;
    EXPECT_EQ(result.err, c.Has("stderr") ? c["stderr"] : "");
    if (c.Has("lines")) {
        for (const auto& line : c.Lines("lines")) {
            EXPECT_NE(("\n" + result.out).find("\n" + line + "\n"), std::string::npos) << line << "\n" << result.out;
        }
    } else {
        EXPECT_EQ(result.out, c.Has("stdout") ? c["stdout"] : "");
    }
    EXPECT_EQ(ReadFile(interfacesFile), c.Has("interfaces after") ? c["interfaces after"] : c["interfaces"]);
}

INSTANTIATE_TEST_SUITE_P(Rows, NimhostEditGuard, testing::ValuesIn(Cases("edit-guard.cases")),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

} // namespace
} // namespace Zel::Test
