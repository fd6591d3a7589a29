// nimhost's command line and settings files: everything decided before a
// module is set up, so no interface and no /etc/network is touched.
#include "NimhostProcess.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace Zel::Test {
namespace {

const std::vector<std::string> registeredModules{"Zel.Hardware.Nim.Modules.IEthernetInfoModule",
                                                 "Zel.Hardware.Nim.Modules.IIpConfigModule",
                                                 "Zel.Hardware.Nim.Modules.IIpStatusModule",
                                                 "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule"};

TEST(NimhostCli, ModulesListsTheRegisteredModulesAndThePlugInFile)
{
    const auto json = RunNimhost({"--plugin", std::string(NIMHOST_PLUGIN), "modules", "--json"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out),
              (nlohmann::json{{"plugin", std::string(NIMHOST_PLUGIN)}, {"modules", registeredModules}}));

    // Without --plugin, the build tree's plug-in is found.
    const auto text = RunNimhost({"modules"});
    std::string expected = "Plug-in: " + std::string(NIMHOST_PLUGIN) + "\nModules, in registration order:\n";
    for (const auto& name : registeredModules) {
        expected += "  " + name + "\n";
    }
    EXPECT_EQ(text.out, expected) << text.err;
}

// A board whose only device is the loopback interface, present everywhere:
// device numbers are checked against it without touching any other interface.
const std::string loopbackBoard = R"(["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]
["Zel.Hardware.Nim.Modules.IEthernetInfoModule".fields]
interfaces = [["1", "L", "lo", "0", "unsupported", "", "Internal"]]
)";

// Every wrong input ends with its exit code and one message on standard
// error, nothing on standard output; with --json the same failure is a
// document on standard output. A full message starts with "nimhost: "; other
// texts are CLI11's, found anywhere in it.
TEST(NimhostCli, WrongInputGivesItsExitCodeAndMessageAndAJsonFailureDocument)
{
    ScratchDirectory directory;
    const std::string board = "--config|" + directory.Write("board.toml", loopbackBoard) + "|";
    const std::string address = "use an IPv4 address with an optional /prefix of 0 to 32, such as 192.168.1.10/24\n";
    const std::string dns =
        "use one or more IPv4 addresses separated by single spaces, such as \"192.168.1.1 9.9.9.9\"\n";
    const std::string device = " does not exist; this board has device 1\n";
    const std::string mask = "use a dotted-quad netmask with contiguous ones, such as 255.255.255.0\n";
    const struct {
        std::string arguments;
        int exitCode;
        std::string err;
    } cases[] = {
        {"bogus", 2, "bogus"},
        {"ip|get|1|hostname", 2, "hostname"},
        {"ip|set|1|address", 2, "VALUE"},
        {"--log-level|9", 2, "--log-level"},
        {"watch|--count|0", 2, "--count"},
        {"ip|set|1|mode|sideways", 2,
         "nimhost: 'sideways' is not a method word: use one of static, dhcp, manual, loopback, ppp, bootp\n"},
        {"ip|set|1|address|999.1.1.1", 2, "nimhost: '999.1.1.1' is not a valid address: " + address},
        {"ip|set|1|address|10.0.0.1/33", 2, "nimhost: '10.0.0.1/33' is not a valid address: " + address},
        {"ip|set|1|address|1.2.3.4 5.6.7.8", 2, "nimhost: '1.2.3.4 5.6.7.8' is not a valid address: " + address},
        {"ip|set|1|address|", 2, "nimhost: the address is empty: " + address},
        {"ip|set|1|netmask|255.0.255.0", 2, "nimhost: '255.0.255.0' is not a valid netmask: " + mask},
        {"ip|set|1|gateway|10.0.0.1/8", 2,
         "nimhost: '10.0.0.1/8' is not a valid gateway: use an IPv4 address, such as 192.168.1.1\n"},
        {"ip|set|1|dns|1.1.1.1  9.9.9.9", 2, "nimhost: '1.1.1.1  9.9.9.9' is not a valid list of name servers: " + dns},
        {"ip|set|1|dns|1.1.1.1 ", 2, "nimhost: '1.1.1.1 ' is not a valid list of name servers: " + dns},
        {board + "status|0", 2, "nimhost: device 0" + device},
        {board + "ip|get|3|address", 2, "nimhost: device 3" + device},
        {board + "status|", 2, "nimhost: no device number given; this board has device 1\n"},
        {board + "ip|set|eth0|mode|dhcp", 2,
         "nimhost: device 'eth0' is not a device number; this board has device 1\n"},
        {"--config|/nonexistent/board.toml|report", 2,
         "nimhost: /nonexistent/board.toml: File could not be opened for reading\n"},
        {"--config|/tmp|report", 2, "nimhost: --config /tmp: is a directory; name a settings file (TOML)\n"},
        {"--config||settings", 2, "nimhost: --config needs the name of a settings file\n"},
        {"--plugin|/nonexistent/libNothing.so|modules", 1,
         "nimhost: Could not load library '/nonexistent/libNothing.so': "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const auto result = RunNimhost(Words(c.arguments));
        EXPECT_EQ(result.exitCode, c.exitCode);
        const bool whole = c.err.rfind("nimhost: ", 0) == 0 && c.err.back() == '\n';
        EXPECT_TRUE(whole ? result.err == c.err : result.err.find(c.err) != std::string::npos) << result.err;
        EXPECT_EQ(result.err.find("::"), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");

        const auto json = RunNimhost(Words(c.arguments + "|--json"));
        ASSERT_TRUE(nlohmann::json::accept(json.out)) << json.out;
        const auto error = nlohmann::json::parse(json.out)["error"];
        EXPECT_EQ(std::tie(json.exitCode, error["exitCode"]), std::tie(c.exitCode, c.exitCode));
        EXPECT_EQ(error["type"], c.exitCode == 2 ? "usage" : "Zel::System::Commons::InvalidOperationException");
        EXPECT_TRUE(!whole || "nimhost: " + error["message"].get<std::string>() + "\n" == c.err) << error;
    }
}

// Every fault of a settings file is found before set-up, one line each:
// "file:line:column: key '...': what is wrong", exit 2; the rows hold the
// lines after "nimhost: <file>". Unread keys and tables are warned about.
TEST(NimhostSettingsFile, EveryFaultIsExitTwoNamingFileLineColumnAndKey)
{
    // In the expected lines <file> is the file's path, <key> the start of a
    // key of the Ethernet module's table, <col> its first line's column.
    const std::string eth = "['Zel.Hardware.Nim.Modules.IEthernetInfoModule']\n";
    const std::string fields = "['Zel.Hardware.Nim.Modules.IEthernetInfoModule'.fields]\n";
    const auto line = [&](const std::string& columns) { return eth + fields + "interfaces = [[" + columns + "]]\n"; };
    const std::string number = "is not an unsigned number (decimal, 0x hexadecimal or 0 octal)\n";
    const struct {
        std::string content;
        std::string expected; // a TOML syntax error: only the position
    } cases[] = {
        {eth + "mandatoryInterfaces = 0x2\n",
         ":2:23<key>.mandatoryInterfaces': a setting must be text in quotes, not integer\n"},
        {eth + "path.1.1.sysFile = '/sys/class/net/eth0/'\n",
         ":2:1<key>.path': a setting must be text, not a table (a dotted key needs quotes: \"path.1.1.sysFile\" = ...)\n"},
        {fields +
             "interfaces = [\n  ['1', 'X1', 'eth0', '1', 'sysFile', 'P1', 'Ethernet'],\n"
             "  ['2', 'X2', 'eth1', 1, 'sysFile', 'P2', 'Ethernet'],\n]\n",
         ":4:23<key>.fields.interfaces': line 2 column 4 must be text in quotes, not integer\n"},
        {fields + "interfaces = ['1', 'X1']\n",
         ":2:15<key>.fields.interfaces': line 1 must be an array of texts, not string\n"},
        {eth + "fields = 'interfaces'\n", ":2:10<key>.fields': must be the table of setting fields, not string\n"},
        {"mandatoryInterfaces = '1'\n",
         ":1:23: key 'mandatoryInterfaces': the top level holds only tables named after "
         "modules, such as [\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]\n"},
        {"['Zel.Hardware.Nim.Modules.IEthernetInfoModul']\nmandatoryInterfaces = '1'\n",
         ":1:2: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModul\"': the plug-in registers no module of that name (it "
         "registers: Zel.Hardware.Nim.Modules.IEthernetInfoModule, Zel.Hardware.Nim.Modules.IIpConfigModule, "
         "Zel.Hardware.Nim.Modules.IIpStatusModule, Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule)\n"},
        {fields + "interfaces = [\n  ['1'],\n", ":3:"},
        {eth + "mandatoryInterfaces = 'two'\n" + fields + "interfaces = []\n",
         ":2:23<key>.mandatoryInterfaces': 'two' " + number},
        {line("'1', 'L', 'lo', '0', 'unsupported', ''"),
         ":3:15<key>.fields.interfaces': line 1 has 6 columns, a line has 7: device index, public name, interface "
         "name, port count, port mode, port names, interface type\n"},
        {line("'2', 'L', 'lo', '0', 'unsupported', '', 'Internal'"),
         ":3:16<col>1 (device index): is 2 but must be the line number, 1\n"},
        {line("'1', 'L', 'lo', 'abc', 'unsupported', '', 'Internal'"), ":3:32<col>4 (port count): 'abc' " + number},
        {line("'1', 'L', 'lo', '-1', 'unsupported', '', 'Internal'"), ":3:32<col>4 (port count): '-1' " + number},
        {line("'1', 'L', 'lo', '99999999999', 'unsupported', '', 'Internal'"),
         ":3:32<col>4 (port count): '99999999999' " + number},
        {line("'01', 'L', 'lo', '0x41', 'unsupported', '', 'Internal'"),
         ":3:33<col>4 (port count): 65 is more ports than a device has (at most 64)\n"},
        {line("'1', 'L', 'lo', '0', 'sysfile', '', 'Ether'"),
         ":3:37<col>5 (port mode): unknown mode 'sysfile': use one of i210Driver, sysFile, switchKSZ8794, "
         "switchKSZ8794spi, switchKSZ8863gpio, unsupported\nnimhost: <file>:3:52<col>7 (interface type): unknown "
         "interface type 'Ether': use one of Ethernet, Fieldbus, Service, Internal, Wireless, Unknown\n"},
        {line("'1', 'L', 'lo', '0x40', 'unsupported', 'a', 'Internal'"),
         ":3:55<col>6 (port names): 1 names for 64 ports: give one per port, separated by ';', or none\n"},
        {eth +
             "'path.1.1.sysFile' = 'sys/class/net/lo/'\n'path.1.2.sysFile' = '/nonexistent/'\n"
             "'path.1.3.sysFile' = '/sys/class/net/lo'\n" +
             fields + "interfaces = [['1', 'L', 'lo', '4', 'sysFile', '', 'Internal']]\n",
         ":2:22<key>.\"path.1.1.sysFile\"': 'sys/class/net/lo/' is not an absolute path\n"
         "nimhost: <file>:3:22<key>.\"path.1.2.sysFile\"': '/nonexistent/': No such file or directory\n"
         "nimhost: <file>:4:22<key>.\"path.1.3.sysFile\"': '/sys/class/net/lo' must end in '/' (the directory of the "
         "interface)\nnimhost: <file>:6:15<key>.\"path.1.4.sysFile\"': missing: the port mode of this line reads it\n"},
        {eth + "typo = '1'\n" + fields + "interface = [['1', 'L', 'lo', '0', 'unsupported', '', 'Internal']]\n",
         ":3:1<key>.fields.interfaces': missing: the board's devices are described in this table\nnimhost: warning: "
         "<file>:4:13<key>.fields.interface': unknown table, not read (the devices are in 'interfaces')\n"
         "nimhost: warning: <file>:2:8<key>.\"typo\"': unknown key, not read\n"},
    };
    ScratchDirectory directory;
    const std::string path = directory.Path("board.toml");
    const std::string key = ": key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.content);
        directory.Write("board.toml", c.content);
        const auto result = RunNimhost({"--config", path, "report"});
        EXPECT_EQ(result.exitCode, 2);
        std::string expected = "nimhost: <file>" + c.expected;
        for (const auto& [placeholder, text] :
             {std::pair<std::string, std::string>{"<col>", "<key>.fields.interfaces': line 1 column "},
              {"<key>", key},
              {"<file>", path}}) {
            for (std::size_t at = 0; (at = expected.find(placeholder, at)) != std::string::npos;) {
                expected.replace(at, placeholder.size(), text);
            }
        }
        EXPECT_TRUE(c.expected.back() == '\n' ? result.err == expected : result.err.rfind(expected, 0) == 0U)
            << result.err << "\nexpected:\n"
            << expected;
        EXPECT_EQ(result.out, "");
    }
}

nlohmann::json SettingsJson(const std::string& path)
{
    const auto result = RunNimhost({"--config", path, "settings", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.exitCode == 0 ? nlohmann::json::parse(result.out) : nlohmann::json();
}

TEST(NimhostSettingsFile, ValuesReachTheModulesExactlyAsWrittenAndSurviveARoundTrip)
{
    ScratchDirectory directory;
    const std::string original = directory.Write("board.toml", R"(
["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]
mandatoryInterfaces = "0x1"
"path.1.1.sysFile" = "/tmp/with \"quotes\" and \\ backslash/"
'odd key' = "tab	here"

["Zel.Hardware.Nim.Modules.IEthernetInfoModule".fields]
interfaces = [
  ["01", "Öffentlich", "lo", "2", "unsupported", " a; b ", "Internal"],
]

["Zel.Hardware.Nim.Modules.IIpConfigModule"]
)");
    const nlohmann::json first = SettingsJson(original);
    EXPECT_EQ(first, nlohmann::json::parse(R"({
        "Zel.Hardware.Nim.Modules.IEthernetInfoModule": {
            "mandatoryInterfaces": "0x1", "path.1.1.sysFile": "/tmp/with \"quotes\" and \\ backslash/",
            "odd key": "tab\there",
            "fields": {"interfaces": [["01", "Öffentlich", "lo", "2", "unsupported", " a; b ", "Internal"]]}},
        "Zel.Hardware.Nim.Modules.IIpConfigModule": {}})"));

    // `settings` prints a file that reads back to the same settings.
    const auto printed = RunNimhost({"--config", original, "settings"});
    EXPECT_EQ(SettingsJson(directory.Write("printed.toml", printed.out)), first) << printed.out;
}

} // namespace
} // namespace Zel::Test
