// nimhost end to end in the network sandbox: two veth ports of a board (eth0
// with an address and the default route, eth1 with an address only), a board
// settings file naming them, and /etc/network/interfaces with a static block
// for eth0 and a dhcp block for eth1. Answers are checked against what `ip`
// and the files say.
#include "CaseFile.hpp"
#include "GpioSimChip.hpp"
#include "NimhostProcess.hpp"
#include "Sandbox.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

namespace Zel::Test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

const std::string interfacesFile = "/etc/network/interfaces";
// The sandbox's /etc/network/interfaces: a static block for eth0, a dhcp
// block for eth1.
const std::string interfacesText = ReadFile(ZEL_TEST_CASES "/interfaces");

// The board of cases/board.toml (device 1 = eth0, X1, port P1; device 2 =
// eth1, X2, port P2; both needed), with a third device where given: its
// table line and the directory its sysfs port reads.
std::string BoardSettings(const std::string& thirdLine = "", const std::string& thirdPath = "")
{
    std::string board = ReadFile(ZEL_TEST_CASES "/board.toml");
    if (!thirdLine.empty()) {
        board.insert(board.rfind(']'), "  " + thirdLine + ",\n");
        board.insert(board.find("\n\n") + 1, "\"path.3.1.sysFile\" = \"" + thirdPath + "\"\n");
    }
    return board;
}

std::string Operstate(const std::string& name)
{
    const std::string state = ReadFile("/sys/class/net/" + name + "/operstate");
    return state.substr(0, state.find('\n'));
}

json Ip(const std::string& arguments)
{
    return json::parse(RunOutput("ip -j " + arguments));
}

json Parse(const NimhostResult& result)
{
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.exitCode == 0 ? json::parse(result.out) : json::object();
}

std::string Mac(const std::string& name)
{
    std::string mac = Ip("link show dev " + name)[0]["address"];
    std::transform(mac.begin(), mac.end(), mac.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return mac;
}

// A file's text; empty while it is not there.
std::string ReadIfThere(const std::string& path)
{
    return std::filesystem::exists(path) ? ReadFile(path) : std::string();
}

// The complete lines of a text.
std::vector<std::string> Split(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        lines.push_back(text.substr(begin, end - begin));
    }
    return lines;
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
        NetSandbox().Veth("eth0", "eth0p").Ip("link set dev eth0 address 02:00:00:00:00:01").Up();
        NetSandbox().Ip("addr add 192.168.1.10/24 dev eth0").Ip("route add default via 192.168.1.1 dev eth0");
        NetSandbox().Veth("eth1", "eth1p").Ip("link set dev eth1 address 02:00:00:00:00:02").Up();
        NetSandbox().Ip("addr add 10.0.0.10/8 dev eth1");
        // The kernel publishes the carrier asynchronously.
        ASSERT_TRUE(WaitUntil([] { return Operstate("eth0") == "up" && Operstate("eth1") == "up"; }, 10s));
        WriteFile(interfacesFile, interfacesText);
        settings = directory.Write("board.toml", BoardSettings());
    }

    void TearDown() override
    {
        if (InSandbox()) {
            Zel::Test::Run("for l in eth0 eth1 eth2; do ip link del $l 2>/dev/null; done; rm -f " + interfacesFile);
        }
    }

    // nimhost with the board settings and no library log.
    NimhostResult Nimhost(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--config", settings, "--log-level", "0"});
        return RunNimhost(arguments);
    }

    ScratchDirectory directory;
    std::string settings;
};

// ---- report, interfaces ----

class NimhostReport : public NimhostSandbox {};

TEST_F(NimhostReport, JsonReportAgreesWithWhatIpSays)
{
    const auto document = Parse(Nimhost({"report", "--json"}));
    EXPECT_EQ(document["plugin"], std::string(NIMHOST_PLUGIN));
    EXPECT_EQ(document["settings"], settings);
    EXPECT_EQ(document["devices"][0]["live"]["gateway"], Ip("route show default")[0]["gateway"]);
    // Link up, veth's 10000 Mbit/s has no code, full duplex. Configured values
    // come from the file, where only the gateway differs; a value the file
    // lacks is null.
    EXPECT_EQ(document["devices"], json::parse(ReadFile(NIMHOST_GOLDEN "/report-devices.json")));
}

// The text report shows the codes in words and marks where the file and the
// kernel differ; a control character is shown escaped, a missing file said
// once.
TEST_F(NimhostReport, TextReportShowsCodesInWordsAndMarksDrift)
{
    for (const auto& c : Cases("report-drift.cases")) {
        SCOPED_TRACE(c.name);
        Zel::Test::Run("rm -f " + interfacesFile);
        if (c.Has("interfaces")) {
            WriteFile(interfacesFile, c["interfaces"]);
        }
        const auto text = RunNimhost({"--config", settings, "report"});
        EXPECT_EQ(text.err, c.Has("stderr") ? c["stderr"] : "");
        if (!c.Has("lines")) { // after the plug-in's and the settings' paths
            EXPECT_EQ(text.out.substr(text.out.find('\n', text.out.find('\n') + 1) + 1),
                      ReadFile(NIMHOST_GOLDEN "/report.txt"));
        }
        for (const auto& line : c.Lines("lines")) {
            EXPECT_NE(("\n" + text.out).find("\n" + line + "\n"), std::string::npos) << line << "\n" << text.out;
        }
        EXPECT_EQ(Parse(Nimhost({"report", "--json"}))["devices"][0]["differs"], json::parse(c["differs"]));
    }
}

TEST_F(NimhostReport, InterfacesListsTheKernelsNamesInItsOrder)
{
    EXPECT_EQ(Nimhost({"interfaces"}).out, fmt::format("{}\n", fmt::join(KernelInterfaceNames(), "\n")));
    EXPECT_EQ(Parse(Nimhost({"interfaces", "--json"}))["interfaces"], json(KernelInterfaceNames()));
}

// ---- ip get / ip set ----

class NimhostIpConfig : public NimhostSandbox {};

TEST_F(NimhostIpConfig, EverySetPrintsTheChangeIsReadBackAndStandsInTheFile)
{
    for (const auto& c : Cases("ip-session.cases")) {
        SCOPED_TRACE(c.name);
        const auto result = Nimhost(Words(c.Line("args")));
        EXPECT_EQ(result.exitCode, 0) << result.err;
        if (c.Has("json")) {
            EXPECT_EQ(Parse(result), json::parse(c["json"]));
        } else {
            EXPECT_EQ(result.out, c["stdout"]);
        }
        if (c.Has("interfaces after")) {
            EXPECT_EQ(ReadFile(interfacesFile), c["interfaces after"]);
        }
    }
}

// A setter the module refuses is exit 1 with its cause in the user's terms;
// the file stays as it was.
TEST_F(NimhostIpConfig, AFailedSetSaysWhyAndLeavesTheFile)
{
    // eth2 exists but has no block in the file.
    NetSandbox().Veth("eth2", "eth2p").Up();
    settings = directory.Write("three.toml",
                               BoardSettings(R"(["3", "X3", "eth2", "1", "sysFile", "P3", "Ethernet"])",
                                             "/sys/class/net/eth2/"));
    for (const auto& c : Cases("failed-sets.cases")) {
        SCOPED_TRACE(c.name);
        const std::string file = c.Has("interfaces") ? c["interfaces"] : "";
        const std::string arguments = c.Line("args");
        Zel::Test::Run("rm -f " + interfacesFile);
        if (!file.empty()) {
            WriteFile(interfacesFile, file);
        }
        ASSERT_EQ(Zel::Test::Run(c.Has("read-only") ? "mount -o remount,ro /etc/network" : "true"), 0);
        const auto result = Nimhost(Words(arguments));
        const auto document = Nimhost(Words(arguments + "|--json"));
        Zel::Test::Run("mount -o remount,rw /etc/network");
        EXPECT_EQ(std::tie(result.exitCode, result.err, result.out), std::make_tuple(1, c["stderr"], std::string()));
        EXPECT_EQ(ReadIfThere(interfacesFile), file);
        ASSERT_TRUE(json::accept(document.out)) << document.out;
        // The cause alone, which ends the message on standard error.
        const std::string message = json::parse(document.out)["error"]["message"];
        EXPECT_EQ(json::parse(document.out)["error"], (json{{"type", "write"}, {"message", message}, {"exitCode", 1}}));
        EXPECT_EQ(c["stderr"].substr(c["stderr"].size() - message.size() - 1), message + "\n");
    }
}

// ---- status ----

class NimhostStatus : public NimhostSandbox {};

TEST_F(NimhostStatus, StatusShowsTheKernelsCurrentValues)
{
    EXPECT_EQ(Nimhost({"status", "1"}).out, "address  192.168.1.10\nnetmask  255.255.255.0\ngateway  192.168.1.1\n");
    EXPECT_EQ(Parse(Nimhost({"status", "2", "--json"})),
              json::parse(R"({"device": 2, "address": "10.0.0.10", "netmask": "255.0.0.0", "gateway": "0.0.0.0"})"));
    // Live means live: a changed address and route show at once.
    NetSandbox()
        .Ip("addr flush dev eth1")
        .Ip("addr add 172.16.5.6/12 dev eth1")
        .Ip("route add default via 172.16.0.1 dev eth1 metric 5");
    EXPECT_EQ(Nimhost({"status", "2"}).out, "address  172.16.5.6\nnetmask  255.240.0.0\ngateway  172.16.0.1\n");
}

// ---- watch ----

class NimhostWatch : public NimhostSandbox {
protected:
    // Starts `nimhost watch` in the background: standard output to
    // run.Path("out"), standard error to run.Path("err"), the exit code to
    // run.Path("rc") once it ended.
    void Start(std::vector<std::string> options, const std::string& logLevel = "0") const
    {
        options.insert(options.begin(), {"--config", settings, "--log-level", logLevel, "watch", "--interval", "20"});
        Zel::Test::Run("(" + NimhostCommand(options) + " >" + run.Path("out") + " 2>" + run.Path("err") +
                       " & echo $! >" + run.Path("pid") + "; wait $!; echo $? >" + run.Path("rc") +
                       ") >/dev/null 2>&1 &");
    }

    void TearDown() override
    {
        Zel::Test::Run("kill $(cat " + run.Path("pid") + " 2>/dev/null) 2>/dev/null"); // a watch a failed test left
        NimhostSandbox::TearDown();
    }

    // The complete lines of output, once there are `count` (fewer after 20 s).
    std::vector<std::string> Lines(std::size_t count) const
    {
        std::vector<std::string> lines;
        WaitUntil(
            [&] {
                lines = Split(ReadIfThere(run.Path("out")));
                return lines.size() >= count;
            },
            20s);
        return lines;
    }

    // The exit code once nimhost ended; -1 when it did not within 20 s.
    int ExitCode() const
    {
        const bool ended =
            WaitUntil([this] { return ReadIfThere(run.Path("rc")).find('\n') != std::string::npos; }, 20s);
        return ended ? std::stoi(ReadIfThere(run.Path("rc"))) : -1;
    }

    ScratchDirectory run;
    const std::string time = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3})";
};

TEST_F(NimhostWatch, JsonPrintsEveryPortThenEachChangeAndEndsAfterCountChanges)
{
    Start({"--json", "--count", "2"});
    ASSERT_EQ(Lines(2).size(), 2U);
    // Pulling eth1's cable changes its operstate only: one change each way.
    NetSandbox().SetLinkDown("eth1p");
    ASSERT_EQ(Lines(3).size(), 3U);
    NetSandbox().SetLinkUp("eth1p");
    EXPECT_EQ(ExitCode(), 0);
    const auto lines = Lines(4);
    ASSERT_EQ(lines.size(), 4U);
    const std::vector<std::tuple<const char*, int, int>> events{{"initial", 1, 1},
                                                                {"initial", 2, 1},
                                                                {"change", 2, 255},
                                                                {"change", 2, 1}};
    for (std::size_t i = 0; i < events.size(); ++i) {
        const auto& [event, device, linkState] = events[i];
        const auto parsed = json::parse(lines[i]);
        EXPECT_TRUE(std::regex_match(parsed["time"].get<std::string>(), std::regex(time))) << lines[i];
        auto expected = parsed;
        expected.update(json{{"event", event}, {"device", device}, {"port", 1}, {"linkState", linkState}});
        EXPECT_EQ(parsed, expected);
    }
}

// Text lines carry a timestamp and the codes in words. A port whose interface
// is down logs its read errors on every read: each is printed when it first
// comes and once more with its count when SIGTERM ends the watch.
TEST_F(NimhostWatch, TextLinesAndRepeatedLibraryMessagesPrintedOnceWithTheirCount)
{
    NetSandbox().Ip("link set eth1 down");
    ASSERT_TRUE(WaitUntil([] { return Operstate("eth1") == "down"; }, 10s));
    Start({}, "3");
    ASSERT_EQ(Lines(2).size(), 2U);
    // A new MTU is a link notification for eth1 without a change of its link:
    // its port is read again and its errors repeat before eth0's change comes.
    NetSandbox().Ip("link set eth1 mtu 1400");
    NetSandbox().SetLinkDown("eth0p");
    const auto lines = Lines(3);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_TRUE(std::regex_match(lines[2],
                                 std::regex(time +
                                            R"(  device 1 \(eth0\) port 1 \(P1\): link unknown )"
                                            R"(\(255\), speed unknown \(0\), duplex full \(2\))")))
        << lines[2];
    Zel::Test::Run("kill -TERM $(cat " + run.Path("pid") + ")");
    EXPECT_EQ(ExitCode(), 0);
    const std::string err = ReadIfThere(run.Path("err"));
    const std::regex message(
        R"(\[3\] [\w.]+: Error \w+\(\) for device 2, port 1 \(/sys/class/net/eth1/(speed|duplex)\): )"
        R"(errno 22( \((\d+) times\))?)");
    std::size_t first = 0;
    std::size_t counted = 0;
    for (const auto& line : Split(err)) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, message)) << err;
        EXPECT_TRUE(!match[2].matched || std::stoul(match[3]) >= 2U) << line;
        ++(match[2].matched ? counted : first);
    }
    EXPECT_EQ(first, 2U) << err;
    EXPECT_EQ(counted, 2U) << err;
}

// Kernel notifications in the sandbox: the cases of watch-events.cases.
class NimhostWatchEvents : public NimhostWatch, public testing::WithParamInterface<Case> {};

TEST_P(NimhostWatchEvents, ChangesFollowTheKernelsNotifications)
{
    const Case& c = GetParam();
    auto options = c.Has("options") ? Words(c.Line("options")) : std::vector<std::string>{};
    options.push_back("--json");
    Start(options);
    ASSERT_EQ(Lines(2).size(), 2U);
    ASSERT_EQ(Zel::Test::Run(c["action"]), 0) << c["action"];
    std::vector<json> expected;
    for (const auto& line : c.Lines("events")) {
        expected.push_back(json::parse(line));
    }
    const std::string error = c.Has("stderr contains") ? c["stderr contains"] : "";
    std::size_t found = 0;
    WaitUntil(
        [&] {
            found = 0;
            for (const auto& line : Lines(0)) {
                const auto event = json::parse(line);
                auto merged = event;
                if (found < expected.size()) {
                    merged.update(expected[found]);
                }
                if (found < expected.size() && event == merged) {
                    ++found;
                }
            }
            return found == expected.size() && ReadIfThere(run.Path("err")).find(error) != std::string::npos;
        },
        8s);
    EXPECT_EQ(found, expected.size()) << ReadIfThere(run.Path("out"));
    EXPECT_NE(ReadIfThere(run.Path("err")).find(error), std::string::npos) << ReadIfThere(run.Path("err"));
}

INSTANTIATE_TEST_SUITE_P(Rows, NimhostWatchEvents, testing::ValuesIn(Cases("watch-events.cases")),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

// ---- metrics ----

TEST_F(NimhostReport, MetricsPassPromtoolAndLeaveUnknownValuesOut)
{
    // Device 3 reads made-up attribute files: 100 Mbit/s half duplex, and a
    // port name that needs escaping.
    const std::string port = directory.Path("port3") + "/";
    Zel::Test::Run("mkdir -p " + port + " && printf 'up\\n' >" + port + "operstate && printf '100\\n' >" + port +
                   "speed && printf 'half\\n' >" + port + "duplex");
    settings =
        directory.Write("three.toml", BoardSettings(R"(["3", "X3", "lo", "1", "sysFile", "P\"3", "Internal"])", port));

    // lo's block has an address line without the address: a query that fails.
    WriteFile(interfacesFile, interfacesText + "\niface lo inet static\n    address\n");

    const auto result = Nimhost({"metrics", "--output", directory.Path("nim.prom")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Zel::Test::Run("test \"$(stat -c %a " + directory.Path("nim.prom") + ")\" = 644"), 0);
    EXPECT_EQ(Zel::Test::Run("promtool check metrics <" + directory.Path("nim.prom")), 0);
    std::string text = ReadFile(directory.Path("nim.prom"));
    EXPECT_EQ(Nimhost({"metrics"}).out.substr(0, 200), text.substr(0, 200));
    text = std::regex_replace(text, std::regex(R"(^nim_collection_duration_seconds \d.*$)", std::regex::multiline),
                              "nim_collection_duration_seconds T");
    // eth0's block has no dns line, eth1's (dhcp) none of the values: not set,
    // no failed queries.
    EXPECT_EQ(text, ReadFile(NIMHOST_GOLDEN "/metrics.prom"));
    // The other speed codes in bytes per second too.
    for (const auto& [mbits, bytes] : {std::pair{"10\n", " 1250000\n"}, std::pair{"1000\n", " 125000000\n"}}) {
        WriteFile(port + "speed", mbits);
        EXPECT_NE(Nimhost({"metrics"})
                      .out.find(R"(nim_port_speed_bytes{device="3",interface="lo",port="1"})" + std::string(bytes)),
                  std::string::npos)
            << mbits;
    }
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
    ASSERT_EQ(document["devices"].size(), expected.size());
    const auto paths = Parse(RunNimhost({"settings", "--json"}))["Zel.Hardware.Nim.Modules.IEthernetInfoModule"];
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(expected[i]);
        const auto& name = expected[i];
        const auto& device = document["devices"][i];
        EXPECT_EQ(json({device["interfaceName"], device["publicName"], device["interfaceType"], device["macAddress"],
                        device["ports"].size(), device["ports"][0]["mode"], device["ports"][0]["publicName"],
                        paths["path." + std::to_string(i + 1) + ".1.sysFile"]}),
                  json({name, name, 1, Mac(name), 1, "sysFile", name, "/sys/class/net/" + name + "/"}));
    }

    // The generic sysfs example runs on a board with its interfaces.
    const auto example = Parse(
        RunNimhost({"--config", NIMHOST_EXAMPLES "/sysfs.toml", "--log-level", "0", "report", "--json"}))["devices"];
    ASSERT_EQ(example.size(), 2U);
    EXPECT_EQ(example[1]["publicName"], "Service");
    EXPECT_EQ(example[1]["interfaceType"], 3);
    EXPECT_EQ(example[1]["ports"][0]["linkState"], 1);
}

// In a sandbox without the boards' interfaces every example is a valid
// settings file (the missing interfaces are warnings).
// ---- KSZ8863 link lines on the GPIO character device (armhf VM) ----

// Device 1 (eth0) is a KSZ8863 whose link lines are gpio-sim lines: port 1
// line 3 by the chip's label, port 2 the line named ETH2_LINK (line 5). The
// switch is an emulated spidev node preloaded into nimhost (port 1 100 Mbit/s
// full duplex, port 2 10 Mbit/s half).
class NimhostGpio : public NimhostWatch {
protected:
    void SetUp() override
    {
        NimhostWatch::SetUp();
        // The sandbox's own /sys comes without configfs.
        ASSERT_EQ(Zel::Test::Run(
                      "test -d /sys/kernel/config/gpio-sim || mount -t configfs configfs /sys/kernel/config"),
                  0);
        // A new-expression builds the chip in place; it cannot be moved.
        sim.reset(new GpioSimChip(GpioSimChip().Lines(8).Name(3, "ETH1_LINK").Name(5, "ETH2_LINK").Build()));
        setenv("LD_PRELOAD", ZEL_SPI_PRELOAD, 1);
        setenv("ZEL_SPI_NODES", ("ksz8863:" + spi + ":1f=06:2f=00").c_str(), 1);
        sim->SetPull(3, GpioSimChip::Pull::Up);
        settings = directory.Write("gpio.toml", Fill(cases.at(0)["board.toml"]));
    }
    void TearDown() override
    {
        unsetenv("LD_PRELOAD");
        NimhostWatch::TearDown();
    }
    std::string Fill(std::string text) const
    {
        const std::string label = ReadFile(fmt::format("/sys/class/gpio/gpiochip{}/label", sim->Base()));
        for (const auto& [placeholder, value] : {std::pair<std::string, std::string>{"<spi>", spi},
                                                 {"<label>", label.substr(0, label.find('\n'))},
                                                 {"<node>", sim->DevicePath()},
                                                 {"<dir>", directory.Path("")}}) {
            for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder)) {
                text.replace(at, placeholder.size(), value);
            }
        }
        return text;
    }

    std::unique_ptr<GpioSimChip> sim;
    const std::string spi = directory.Write("spidev0.0", "");
    const std::vector<Case> cases = Cases("gpio.cases");
};

// The watch polls the lines (every 20 ms) while report and metrics read them
// from other processes: every read gets its line, nothing is logged.
TEST_F(NimhostGpio, ReportMetricsAndWatchFollowTheLines)
{
    Start({"--count", "1"}, "3");
    ASSERT_EQ(Lines(2).size(), 2U);
    const auto report = Nimhost({"report"});
    const auto metrics = RunNimhost({"--config", settings, "metrics"});
    for (const auto& line : cases.at(0).Lines("lines")) {
        EXPECT_NE(("\n" + report.out + metrics.out).find("\n" + line + "\n"), std::string::npos) << line;
    }
    EXPECT_EQ(metrics.err, "");
    sim->SetPull(5, GpioSimChip::Pull::Up);
    EXPECT_EQ(ExitCode(), 0);
    EXPECT_EQ(Lines(3).at(2).substr(25), cases.at(0).Line("change"));
    EXPECT_EQ(ReadIfThere(run.Path("err")), "");
}

// The settings check finds both lines as the port's set-up does; a line two
// ports share is refused, a line another program holds warned about and read
// as unknown with the holder named.
TEST_F(NimhostGpio, SettingsCheckAndABusyLine)
{
    const auto shared = RunNimhost({"--config", directory.Write("shared.toml", Fill(cases.at(1)["board.toml"]))});
    EXPECT_EQ(shared.exitCode, 2);
    EXPECT_EQ(shared.err, Fill(cases.at(1)["stderr"]));
    sim->Export(5);
    const auto busy = RunNimhost({"--config", settings, "report"});
    EXPECT_EQ(busy.exitCode, 0);
    EXPECT_EQ(busy.err, Fill(cases.at(2)["stderr"]));
    EXPECT_NE(busy.out.find(cases.at(2).Line("line")), std::string::npos) << busy.out;
}

TEST(NimhostExamples, EveryExampleBoardIsAValidSettingsFile)
{
    ZEL_REQUIRE_SANDBOX();
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(NIMHOST_EXAMPLES)) {
        if (entry.path().extension() != ".toml") {
            continue;
        }
        SCOPED_TRACE(entry.path());
        ++files;
        const auto table = Parse(RunNimhost({"--config", entry.path(), "settings", "--json"}));
        EXPECT_FALSE(table["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]["fields"]["interfaces"].empty());
    }
    EXPECT_EQ(files, 6U);
}

} // namespace
} // namespace Zel::Test
