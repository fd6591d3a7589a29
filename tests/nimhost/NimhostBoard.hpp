// The boards nimhost's end-to-end tests run on in the network sandbox: veth
// ports named as a board's interfaces, a board settings file naming them, and
// the helpers that read what nimhost, `ip` and the files say.
#pragma once

#include "CaseFile.hpp"
#include "NimhostProcess.hpp"
#include "Sandbox.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace Zel::Test {

using nlohmann::json;
using namespace std::chrono_literals;

inline const std::string interfacesFile = "/etc/network/interfaces";

// The sandbox's /etc/network/interfaces: a static block for eth0, a dhcp
// block for eth1.
inline const std::string interfacesText = ReadFile(ZEL_TEST_CASES "/cases/interfaces");

// The board of cases/board.toml (device 1 = eth0, X1, port P1; device 2 =
// eth1, X2, port P2; both needed), with a third device where given: its
// table line and the directory its sysfs port reads.
inline std::string BoardSettings(const std::string& thirdLine = "", const std::string& thirdPath = "")
{
    std::string board = ReadFile(ZEL_TEST_CASES "/cases/board.toml");
    if (!thirdLine.empty()) {
        board.insert(board.rfind(']'), "  " + thirdLine + ",\n");
        board.insert(board.find("\n\n") + 1, "\"path.3.1.sysFile\" = \"" + thirdPath + "\"\n");
    }
    return board;
}

// Replaces every placeholder in text.
inline std::string Fill(std::string text, const std::string& placeholder, const std::string& value)
{
    for (std::size_t at = 0; (at = text.find(placeholder, at)) != std::string::npos; at += value.size()) {
        text.replace(at, placeholder.size(), value);
    }
    return text;
}

// Every one of `lines` is a whole line of `text`.
inline void ExpectLines(const std::string& text, const std::vector<std::string>& lines)
{
    for (const auto& line : lines) {
        EXPECT_NE(("\n" + text).find("\n" + line + "\n"), std::string::npos) << line << "\n" << text;
    }
}

inline std::string Operstate(const std::string& name)
{
    const std::string state = ReadFile("/sys/class/net/" + name + "/operstate");
    return state.substr(0, state.find('\n'));
}

inline json Ip(const std::string& arguments)
{
    return json::parse(RunOutput("ip -j " + arguments));
}

// The JSON document of a run that must succeed.
inline json Parse(const NimhostResult& result)
{
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.exitCode == 0 ? json::parse(result.out) : json::object();
}

// A file's text; empty while it is not there.
inline std::string ReadIfThere(const std::string& path)
{
    return std::filesystem::exists(path) ? ReadFile(path) : std::string();
}

// Kernel interface names in the kernel's order.
inline std::vector<std::string> KernelInterfaceNames()
{
    std::vector<std::string> names;
    for (const auto& link : Ip("link show")) {
        names.push_back(link["ifname"]);
    }
    return names;
}

// A board's interfaces as veth ports (the Nth with the MAC address
// 02:00:00:00:00:0N, its peer named with a "p"), the board's settings file,
// and /etc/network emptied afterwards.
class NimhostBoard : public testing::Test {
protected:
    NimhostBoard(std::vector<std::string> names, const std::string& board, bool quiet)
        : names(std::move(names)), settings(directory.Write("board.toml", board)), quiet(quiet)
    {
    }

    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        for (std::size_t i = 0; i < names.size(); ++i) {
            NetSandbox()
                .Veth(names[i], names[i] + "p")
                .Ip(fmt::format("link set dev {} address 02:00:00:00:00:0{}", names[i], i + 1))
                .Up();
        }
    }

    void TearDown() override
    {
        if (InSandbox()) {
            Zel::Test::Run(fmt::format("for l in {} eth2; do ip link del $l 2>/dev/null; done; rm -rf /etc/network/*",
                                       fmt::join(names, " ")));
        }
    }

    // nimhost with the board settings (and no library log when quiet).
    NimhostResult Nimhost(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--config", settings});
        if (quiet) {
            arguments.insert(arguments.begin() + 2, {"--log-level", "0"});
        }
        return RunNimhost(arguments);
    }

    const std::vector<std::string> names;
    ScratchDirectory directory;
    std::string settings;
    const bool quiet;
};

// The board of cases/board.toml: eth0 with an address and the default route,
// eth1 with an address only, /etc/network/interfaces with a static block for
// eth0 and a dhcp block for eth1; nimhost runs without the library's log.
class NimhostSandbox : public NimhostBoard {
protected:
    NimhostSandbox() : NimhostBoard({"eth0", "eth1"}, BoardSettings(), true) {}

    void SetUp() override
    {
        NimhostBoard::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        NetSandbox().Ip("addr add 192.168.1.10/24 dev eth0").Ip("route add default via 192.168.1.1 dev eth0");
        NetSandbox().Ip("addr add 10.0.0.10/8 dev eth1");
        // The kernel publishes the carrier asynchronously.
        ASSERT_TRUE(WaitUntil([] { return Operstate("eth0") == "up" && Operstate("eth1") == "up"; }, 10s));
        WriteFile(interfacesFile, interfacesText);
    }
};

} // namespace Zel::Test
