// nimhost end to end in the network sandbox: two veth ports of a board (eth0
// with an address and the default route, eth1 with an address only), a board
// settings file naming them, and /etc/network/interfaces with a static block
// for eth0 and a dhcp block for eth1. Answers are checked against what `ip`
// and the files say.
#include "NimhostPaths.hpp"
#include "NimhostProcess.hpp"
#include "Sandbox.hpp"
#include "TestFiles.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <regex>
#include <string>
#include <vector>

namespace Zel::Test {
namespace {

using namespace std::chrono_literals;

const std::string interfacesFile = "/etc/network/interfaces";

const std::string interfacesText = R"(auto lo
iface lo inet loopback

auto eth0
iface eth0 inet static
    address 192.168.1.10
    netmask 255.255.255.0
    gateway 192.168.1.254

auto eth1
iface eth1 inet dhcp

)";

// Device 1 = eth0 (X1, port P1), device 2 = eth1 (X2, port P2), both needed.
std::string BoardSettings(const std::string& extraLines = "", const std::string& mandatory = "2")
{
    return R"(["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]
mandatoryInterfaces = ")" +
           mandatory + R"("
"path.1.1.sysFile" = "/sys/class/net/eth0/"
"path.2.1.sysFile" = "/sys/class/net/eth1/"
"path.3.1.sysFile" = "/sys/class/net/eth2/"

["Zel.Hardware.Nim.Modules.IEthernetInfoModule".fields]
interfaces = [
  ["1", "X1", "eth0", "1", "sysFile", "P1", "Ethernet"],
  ["2", "X2", "eth1", "1", "sysFile", "P2", "Fieldbus"],
)" + extraLines +
           "]\n";
}

std::string Operstate(const std::string& name)
{
    std::string state = ReadFile("/sys/class/net/" + name + "/operstate");
    state.erase(state.find_last_not_of('\n') + 1);
    return state;
}

nlohmann::json Ip(const std::string& arguments)
{
    return nlohmann::json::parse(RunOutput("ip -j " + arguments));
}

nlohmann::json Parse(const NimhostResult& result)
{
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.exitCode == 0 ? nlohmann::json::parse(result.out) : nlohmann::json::object();
}

std::string Upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

// Kernel interface names in the kernel's order.
std::vector<std::string> KernelInterfaceNames()
{
    std::vector<std::string> names;
    for (const auto& link : Ip("link show")) {
        names.push_back(link["ifname"]);
    }
    return names;
}

class NimhostSandbox : public testing::Test {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        NetSandbox()
            .Veth("eth0", "eth0p")
            .Mac("02:00:00:00:00:01")
            .Address("192.168.1.10/24")
            .Up()
            .Route("default via 192.168.1.1 dev eth0")
            .Veth("eth1", "eth1p")
            .Mac("02:00:00:00:00:02")
            .Address("10.0.0.10/8")
            .Up();
        // The kernel publishes the carrier asynchronously.
        ASSERT_TRUE(WaitUntil([] { return Operstate("eth0") == "up" && Operstate("eth1") == "up"; }, 10s));
        WriteFile(interfacesFile, interfacesText);
        settings = directory.Write("board.toml", BoardSettings());
    }

    void TearDown() override
    {
        if (InSandbox()) {
            Zel::Test::Run("for l in eth0 eth1 eth2; do ip link del $l 2>/dev/null; done; "
                           "rm -f /etc/network/interfaces");
        }
    }

    // nimhost with the board settings and no library log.
    NimhostResult Nimhost(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--config", settings, "--log-level", "0"});
        return RunNimhost(arguments);
    }

    TempDirectory directory;
    std::string settings;
};

// ---- report ----

class NimhostReport : public NimhostSandbox {};

TEST_F(NimhostReport, JsonReportAgreesWithWhatIpSays)
{
    const auto document = Parse(Nimhost({"report", "--json"}));
    EXPECT_EQ(document["plugin"], NimhostPaths::plugin);
    EXPECT_EQ(document["settings"], settings);
    const auto& devices = document["devices"];
    ASSERT_EQ(devices.size(), 2U);

    const std::vector<std::string> names{"eth0", "eth1"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(names[i]);
        const auto& device = devices[i];
        const auto link = Ip("link show dev " + names[i])[0];
        const auto address = Ip("-4 addr show dev " + names[i])[0]["addr_info"][0];
        EXPECT_EQ(device["device"], i + 1);
        EXPECT_EQ(device["interfaceName"], names[i]);
        EXPECT_EQ(device["macAddress"], Upper(link["address"]));
        EXPECT_EQ(device["live"]["address"], address["local"]);
        ASSERT_EQ(device["ports"].size(), 1U);
        const auto& port = device["ports"][0];
        EXPECT_EQ(port["mode"], "sysFile");
        EXPECT_EQ(port["linkState"], 1); // operstate "up"
        EXPECT_EQ(port["linkSpeed"], 0); // veth reports 10000 Mbit/s, which has no code
        EXPECT_EQ(port["linkDuplex"], 2);
    }
    EXPECT_EQ(devices[0]["publicName"], "X1");
    EXPECT_EQ(devices[0]["ports"][0]["publicName"], "P1");
    EXPECT_EQ(devices[0]["interfaceType"], 1);
    EXPECT_EQ(devices[1]["interfaceType"], 2);
    EXPECT_EQ(devices[0]["live"]["netmask"], "255.255.255.0");
    EXPECT_EQ(devices[1]["live"]["netmask"], "255.0.0.0");
    EXPECT_EQ(devices[0]["live"]["gateway"], Ip("route show default")[0]["gateway"]);
    EXPECT_EQ(devices[1]["live"]["gateway"], "0.0.0.0");

    // Configured values come from the file; only the gateway differs.
    const auto& configured = devices[0]["configured"];
    EXPECT_EQ(configured["address"], "192.168.1.10");
    EXPECT_EQ(configured["netmask"], "255.255.255.0");
    EXPECT_EQ(configured["gateway"], "192.168.1.254");
    EXPECT_EQ(configured["method"], 0);
    EXPECT_EQ(devices[0]["differs"], nlohmann::json::parse(R"({"address": false, "netmask": false, "gateway": true})"));

    // The dhcp block has no address: the cell holds the module's exception,
    // and the report goes on.
    EXPECT_EQ(devices[1]["configured"]["address"], nlohmann::json::parse(R"({"error": {
        "type": "Zel::System::Commons::InvalidOperationException",
        "message": "IpConfigModule::GetDeviceIpAddress(): ReadValueFromInterface() returned 1"}})"));
    EXPECT_EQ(devices[1]["configured"]["method"], 1);
    EXPECT_EQ(devices[1]["differs"]["address"], nullptr);
}

TEST_F(NimhostReport, TextReportShowsCodesInWordsMarksDifferencesAndFailedCells)
{
    const auto result = Nimhost({"report"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::string& out = result.out;
    const auto has = [&out](const std::string& pattern) {
        return std::regex_search(out, std::regex(pattern, std::regex::multiline));
    };
    EXPECT_TRUE(has(R"(^Settings +)" + settings + "$")) << out;
    EXPECT_TRUE(has(R"(^Device 1: X1 \(eth0\), MAC 02:00:00:00:00:01, type Ethernet \(1\)$)")) << out;
    EXPECT_TRUE(has(R"(^Device 2: X2 \(eth1\), MAC 02:00:00:00:00:02, type Fieldbus \(2\)$)")) << out;
    EXPECT_TRUE(has(R"(^  PORT  PUBLIC NAME  MODE     LINK    SPEED        DUPLEX$)")) << out;
    EXPECT_TRUE(has(R"(^  1     P1           sysFile  up \(1\)  unknown \(0\)  full \(2\)$)")) << out;
    EXPECT_TRUE(has(R"(^  address  192\.168\.1\.10   192\.168\.1\.10$)")) << out;
    EXPECT_TRUE(has(R"(^  gateway  192\.168\.1\.1    192\.168\.1\.254 \*$)")) << out;
    EXPECT_TRUE(has(R"(^  method                  static \(0\)$)")) << out;
    EXPECT_TRUE(has(R"(^  address  10\.0\.0\.10  error \[1\]$)")) << out;
    EXPECT_TRUE(has(R"(^  method              dhcp \(1\)$)")) << out;
    EXPECT_TRUE(has(R"(^  \[1\] InvalidOperationException: IpConfigModule::GetDeviceIpAddress\(\): )"
                    R"(ReadValueFromInterface\(\) returned 1$)"))
        << out;
    EXPECT_TRUE(has(R"(^\* the configured value differs from the live one$)")) << out;
}

TEST_F(NimhostReport, APortWithoutCarrierReportsTheUnknownLinkState)
{
    NetSandbox().SetLinkDown("eth1p");
    ASSERT_TRUE(WaitUntil([] { return Operstate("eth1") == "lowerlayerdown"; }, 10s));
    const auto document = Parse(Nimhost({"report", "--json"}));
    EXPECT_EQ(document["devices"][0]["ports"][0]["linkState"], 1);
    EXPECT_EQ(document["devices"][1]["ports"][0]["linkState"], 255);
}

TEST_F(NimhostReport, AMissingInterfaceEndsTheTableUnlessItIsMandatory)
{
    // eth9 does not exist: with two mandatory lines set-up fails ...
    const std::string missing = directory.Write(
        "missing.toml", BoardSettings(R"(  ["3", "X3", "eth9", "1", "unsupported", "", "Ethernet"],
  ["4", "X4", "eth0", "1", "unsupported", "", "Ethernet"],
)", "3"));
    const auto failed = RunNimhost({"--config", missing, "--log-level", "0", "report"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.err, "nimhost: Zel::System::Commons::InvalidOperationException: Could not find interface eth9\n");
    EXPECT_EQ(failed.out, "");

    // ... otherwise the devices before it stand and later lines are ignored.
    const std::string optional = directory.Write(
        "optional.toml", BoardSettings(R"(  ["3", "X3", "eth9", "1", "unsupported", "", "Ethernet"],
  ["4", "X4", "eth0", "1", "unsupported", "", "Ethernet"],
)", "2"));
    const auto document = Parse(RunNimhost({"--config", optional, "--log-level", "0", "report", "--json"}));
    EXPECT_EQ(document["devices"].size(), 2U);
}

TEST_F(NimhostReport, ASetUpFailureOfTheModuleIsExitOneWithItsException)
{
    const std::string wrongMode = directory.Write(
        "mode.toml", BoardSettings(R"(  ["3", "X3", "eth0", "1", "SysFile", "", "Ethernet"],
)"));
    const auto result = RunNimhost({"--config", wrongMode, "--log-level", "0", "report"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err.rfind("nimhost: Zel::System::Commons::ArgumentException: ", 0), 0U) << result.err;
    EXPECT_NE(result.err.find("Unknown mode"), std::string::npos) << result.err;
}

TEST_F(NimhostReport, InterfacesListsTheKernelsNamesInItsOrder)
{
    const auto text = Nimhost({"interfaces"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    std::string expected;
    for (const auto& name : KernelInterfaceNames()) {
        expected += name + "\n";
    }
    EXPECT_EQ(text.out, expected);
    EXPECT_EQ(Parse(Nimhost({"interfaces", "--json"}))["interfaces"].get<std::vector<std::string>>(),
              KernelInterfaceNames());
}

// ---- ip get / ip set ----

class NimhostIpConfig : public NimhostSandbox {};

TEST_F(NimhostIpConfig, EveryFieldSetIsReadBackAndStandsInTheFile)
{
    struct Case {
        const char* field;
        const char* value;
    };
    for (const Case& c : {Case{"address", "192.168.1.20"}, Case{"netmask", "255.255.0.0"},
                          Case{"gateway", "192.168.1.1"}, Case{"dns", "192.168.1.1 9.9.9.9"}}) {
        SCOPED_TRACE(c.field);
        const auto set = Nimhost({"ip", "set", "1", c.field, c.value});
        EXPECT_EQ(set.exitCode, 0) << set.err;
        EXPECT_EQ(set.out, "");
        const auto get = Nimhost({"ip", "get", "1", c.field});
        EXPECT_EQ(get.exitCode, 0) << get.err;
        EXPECT_EQ(get.out, std::string(c.value) + "\n");
    }
    EXPECT_EQ(ReadFile(interfacesFile), R"(auto lo
iface lo inet loopback

auto eth0
iface eth0 inet static
    address 192.168.1.20
    netmask 255.255.0.0
    gateway 192.168.1.1
    dns-nameservers 192.168.1.1 9.9.9.9

auto eth1
iface eth1 inet dhcp

)");
    EXPECT_EQ(Parse(Nimhost({"ip", "get", "1", "gateway", "--json"})),
              nlohmann::json::parse(R"({"device": 1, "field": "gateway", "value": "192.168.1.1"})"));
    EXPECT_EQ(Parse(Nimhost({"ip", "set", "1", "gateway", "192.168.1.2", "--json"})),
              nlohmann::json::parse(R"({"device": 1, "field": "gateway", "value": "192.168.1.2", "result": 0})"));
}

TEST_F(NimhostIpConfig, ModeIsWrittenAsTheMethodWordAndReadBack)
{
    EXPECT_EQ(Nimhost({"ip", "get", "2", "mode"}).out, "dhcp\n");
    ASSERT_EQ(Nimhost({"ip", "set", "2", "mode", "static"}).exitCode, 0);
    EXPECT_NE(ReadFile(interfacesFile).find("\niface eth1 inet static\n"), std::string::npos);
    EXPECT_EQ(Parse(Nimhost({"ip", "get", "2", "mode", "--json"})),
              nlohmann::json::parse(R"({"device": 2, "field": "mode", "value": 0, "text": "static"})"));
    ASSERT_EQ(Nimhost({"ip", "set", "2", "mode", "dhcp"}).exitCode, 0);
    EXPECT_NE(ReadFile(interfacesFile).find("\niface eth1 inet dhcp\n"), std::string::npos);
    EXPECT_EQ(Nimhost({"ip", "get", "2", "mode"}).out, "dhcp\n");
}

TEST_F(NimhostIpConfig, AResultCodeOtherThanSuccessIsExitOneAndLeavesTheFile)
{
    // eth2 exists but has no block in the file.
    NetSandbox().Veth("eth2", "eth2p").Up();
    settings = directory.Write("three.toml", BoardSettings(R"(  ["3", "X3", "eth2", "1", "sysFile", "P3", "Ethernet"],
)"));
    const auto set = Nimhost({"ip", "set", "3", "netmask", "255.0.0.0"});
    EXPECT_EQ(set.exitCode, 1);
    EXPECT_EQ(set.err, "nimhost: IIpConfigModule::SetSubnetMask(device 3, \"255.0.0.0\") returned Failed (1)\n");
    const auto get = Nimhost({"ip", "get", "3", "address"});
    EXPECT_EQ(get.exitCode, 1);
    EXPECT_EQ(get.err, "nimhost: Zel::System::Commons::InvalidOperationException: "
                       "IpConfigModule::GetDeviceIpAddress(): ReadValueFromInterface() returned 1\n");
    EXPECT_EQ(ReadFile(interfacesFile), interfacesText);
}

TEST_F(NimhostIpConfig, UnknownDevicesAreRefusedByTheModules)
{
    struct Case {
        std::vector<std::string> arguments;
        const char* error; // start of standard error
    };
    const std::string outOfRange = "nimhost: std::out_of_range: vector::_M_range_check: ";
    for (const Case& c : {Case{{"ip", "get", "3", "address"}, outOfRange.c_str()},
                          Case{{"ip", "get", "0", "mode"}, outOfRange.c_str()},
                          Case{{"ip", "set", "3", "address", "10.1.1.1"}, outOfRange.c_str()},
                          Case{{"status", "0"}, outOfRange.c_str()},
                          Case{{"status", "3"}, outOfRange.c_str()},
                          // SetIpAssignMode answers an out-of-range device with a code.
                          Case{{"ip", "set", "3", "mode", "dhcp"},
                               "nimhost: IIpConfigModule::SetIpAssignMode(device 3, \"dhcp\") "
                               "returned OutOfRange (7)\n"}}) {
        std::string command;
        for (const auto& word : c.arguments) {
            command += word + " ";
        }
        SCOPED_TRACE(command);
        const auto result = Nimhost(c.arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.err.rfind(c.error, 0), 0U) << result.err;
    }
    EXPECT_EQ(ReadFile(interfacesFile), interfacesText);
}

// ---- status ----

class NimhostStatus : public NimhostSandbox {};

TEST_F(NimhostStatus, StatusShowsTheKernelsCurrentValues)
{
    const auto text = Nimhost({"status", "1"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out, "address  192.168.1.10\nnetmask  255.255.255.0\ngateway  192.168.1.1\n");

    EXPECT_EQ(Parse(Nimhost({"status", "2", "--json"})),
              nlohmann::json::parse(
                  R"({"device": 2, "address": "10.0.0.10", "netmask": "255.0.0.0", "gateway": "0.0.0.0"})"));

    // Live means live: a changed address shows at once; none at all is 0.0.0.0.
    NetSandbox().Ip("addr flush dev eth1");
    EXPECT_EQ(Parse(Nimhost({"status", "2", "--json"})),
              nlohmann::json::parse(
                  R"({"device": 2, "address": "0.0.0.0", "netmask": "0.0.0.0", "gateway": "0.0.0.0"})"));
    NetSandbox().Interface("eth1").Address("172.16.5.6/12").Route("default via 172.16.0.1 dev eth1 metric 5");
    EXPECT_EQ(Nimhost({"status", "2"}).out, "address  172.16.5.6\nnetmask  255.240.0.0\ngateway  172.16.0.1\n");
}

// ---- watch ----

class NimhostWatch : public NimhostSandbox {
protected:
    NimhostProcess StartWatch(const std::vector<std::string>& options) const
    {
        std::vector<std::string> arguments{"--config", settings, "--log-level", "0", "watch", "--interval", "20"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return NimhostProcess(arguments);
    }

    // Reads JSON lines until one for `device` has `linkState`; every line on
    // the way must be a change.
    static bool AwaitLinkState(NimhostProcess& watch, unsigned int device, int linkState)
    {
        while (const auto line = watch.ReadLine(20s)) {
            const auto event = nlohmann::json::parse(*line);
            EXPECT_EQ(event["event"], "change") << *line;
            if (event["device"] == device && event["linkState"] == linkState) {
                return true;
            }
        }
        return false;
    }
};

TEST_F(NimhostWatch, PrintsEveryPortThenEachChangeUntilStopped)
{
    NimhostProcess watch = StartWatch({"--json"});
    for (unsigned int device = 1; device <= 2; ++device) {
        const auto line = watch.ReadLine(20s);
        ASSERT_TRUE(line.has_value()) << watch.Wait(1s).err;
        const auto event = nlohmann::json::parse(*line);
        EXPECT_EQ(event["event"], "initial");
        EXPECT_EQ(event["device"], device);
        EXPECT_EQ(event["port"], 1);
        EXPECT_EQ(event["linkState"], 1);
        EXPECT_TRUE(std::regex_match(event["time"].get<std::string>(),
                                     std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3})")));
    }

    NetSandbox().SetLinkDown("eth0");
    EXPECT_TRUE(AwaitLinkState(watch, 1, 0));
    NetSandbox().SetLinkUp("eth0");
    EXPECT_TRUE(AwaitLinkState(watch, 1, 1));

    watch.Signal(SIGTERM);
    const auto result = watch.Wait(20s);
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST_F(NimhostWatch, EndsByItselfAfterCountChanges)
{
    NimhostProcess watch = StartWatch({"--count", "1"});
    const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3})";
    const auto first = watch.ReadLine(20s);
    const auto second = watch.ReadLine(20s);
    ASSERT_TRUE(first && second) << watch.Wait(1s).err;
    EXPECT_TRUE(std::regex_match(*first, std::regex(time + R"(  device 1 \(eth0\) port 1 \(P1\): link up \(1\), )"
                                                           R"(speed unknown \(0\), duplex full \(2\))")))
        << *first;
    EXPECT_TRUE(std::regex_match(*second, std::regex(time + R"(  device 2 \(eth1\) port 1 \(P2\): link up \(1\), .*)")))
        << *second;

    // Pulling eth1's cable changes one thing only: its operstate.
    NetSandbox().SetLinkDown("eth1p");
    const auto change = watch.ReadLine(20s);
    ASSERT_TRUE(change.has_value());
    EXPECT_TRUE(std::regex_match(
        *change, std::regex(time + R"(  device 2 \(eth1\) port 1 \(P2\): link unknown \(255\), .*)")))
        << *change;
    const auto result = watch.Wait(20s);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

// ---- without a settings file ----

class NimhostDefaults : public NimhostSandbox {};

TEST_F(NimhostDefaults, EveryInterfaceButLoIsADeviceWithOneSysfsPort)
{
    std::vector<std::string> expected = KernelInterfaceNames();
    expected.erase(std::remove(expected.begin(), expected.end(), "lo"), expected.end());
    ASSERT_GE(expected.size(), 4U); // eth0, eth0p, eth1, eth1p

    const auto document = Parse(RunNimhost({"--log-level", "0", "report", "--json"}));
    EXPECT_EQ(document["settings"], nullptr);
    const auto& devices = document["devices"];
    ASSERT_EQ(devices.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(expected[i]);
        EXPECT_EQ(devices[i]["interfaceName"], expected[i]);
        EXPECT_EQ(devices[i]["publicName"], expected[i]);
        EXPECT_EQ(devices[i]["interfaceType"], 1);
        ASSERT_EQ(devices[i]["ports"].size(), 1U);
        EXPECT_EQ(devices[i]["ports"][0]["mode"], "sysFile");
        EXPECT_EQ(devices[i]["ports"][0]["publicName"], expected[i]);
        EXPECT_EQ(devices[i]["macAddress"], Upper(Ip("link show dev " + expected[i])[0]["address"]));
    }

    const auto settingsJson = Parse(RunNimhost({"settings", "--json"}));
    const auto& ethernet = settingsJson["Zel.Hardware.Nim.Modules.IEthernetInfoModule"];
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(ethernet["path." + std::to_string(i + 1) + ".1.sysFile"], "/sys/class/net/" + expected[i] + "/");
    }
}

TEST_F(NimhostDefaults, TheGenericSysfsExampleRunsOnABoardWithItsInterfaces)
{
    const auto document = Parse(RunNimhost(
        {"--config", NimhostPaths::examplesDir + "/sysfs.toml", "--log-level", "0", "report", "--json"}));
    ASSERT_EQ(document["devices"].size(), 2U);
    EXPECT_EQ(document["devices"][0]["publicName"], "LAN");
    EXPECT_EQ(document["devices"][0]["interfaceName"], "eth0");
    EXPECT_EQ(document["devices"][1]["publicName"], "Service");
    EXPECT_EQ(document["devices"][1]["interfaceType"], 3);
    EXPECT_EQ(document["devices"][1]["ports"][0]["linkState"], 1);
}

} // namespace
} // namespace Zel::Test
