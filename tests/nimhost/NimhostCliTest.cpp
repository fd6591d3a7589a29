// nimhost's command line and settings files: everything decided before a
// module is set up, so no interface and no /etc/network is touched.
#include "NimhostProcess.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace Zel::Test {
namespace {

const std::vector<std::string> registeredModules{
    "Zel.Hardware.Nim.Modules.IEthernetInfoModule", "Zel.Hardware.Nim.Modules.IIpConfigModule",
    "Zel.Hardware.Nim.Modules.IIpStatusModule", "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule"};

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

TEST(NimhostCli, FaultsBeforeSetUpGiveTheirExitCodeAMessageAndNoOutput)
{
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string err; // "nimhost: ..." starts standard error; other texts are CLI11's, found anywhere in it
    };
    for (const Case& c : std::vector<Case>{
             {{"bogus"}, 2, "bogus"},
             {{"ip", "get", "1", "hostname"}, 2, "hostname"},
             {{"status", "eth0"}, 2, "DEVICE"},
             {{"ip", "set", "1", "address"}, 2, "VALUE"},
             {{"--log-level", "9"}, 2, "--log-level"},
             {{"watch", "--count", "0"}, 2, "--count"},
             {{"ip", "set", "1", "mode", "sideways"},
              2,
              "nimhost: 'sideways' is not a method word: use one of static, dhcp, manual, loopback, ppp, bootp\n"},
             {{"--config", "/nonexistent/board.toml", "report"},
              2,
              "nimhost: /nonexistent/board.toml: File could not be opened for reading\n"},
             {{"--plugin", "/nonexistent/libNothing.so", "modules"},
              1,
              "nimhost: Zel::System::Commons::InvalidOperationException: Could not load library "
              "'/nonexistent/libNothing.so': "}}) {
        const auto result = RunNimhost(c.arguments);
        SCOPED_TRACE(c.arguments.back());
        EXPECT_EQ(result.exitCode, c.exitCode);
        const auto at = result.err.find(c.err);
        EXPECT_TRUE(c.err.rfind("nimhost: ", 0) == 0 ? at == 0 : at != std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST(NimhostSettingsFile, AFaultIsExitTwoNamingFileLineAndKey)
{
    const std::string eth = "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]\n";
    const std::string fields = "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields]\n";
    const std::string key = ": key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"";
    struct Case {
        std::string content;
        std::string expected; // after "nimhost: <file>"; for a TOML syntax error only the position
    };
    TempDirectory directory;
    for (const Case& c : std::vector<Case>{
             {eth + "mandatoryInterfaces = 0x2\n",
              ":2:23" + key + ".mandatoryInterfaces': a setting must be text in quotes, not integer\n"},
             {eth + "path.1.1.sysFile = \"/sys/class/net/eth0/\"\n",
              ":2:1" + key + ".path': a setting must be text, not a table (a dotted key needs quotes: "
                             "\"path.1.1.sysFile\" = ...)\n"},
             {fields + "interfaces = [\n  [\"1\", \"X1\", \"eth0\", \"1\", \"sysFile\", \"P1\", \"Ethernet\"],\n"
                       "  [\"2\", \"X2\", \"eth1\", 1, \"sysFile\", \"P2\", \"Ethernet\"],\n]\n",
              ":4:23" + key + ".fields.interfaces': line 2 column 4 must be text in quotes, not integer\n"},
             {fields + "interfaces = [\"1\", \"X1\"]\n",
              ":2:15" + key + ".fields.interfaces': line 1 must be an array of texts, not string\n"},
             {eth + "fields = \"interfaces\"\n",
              ":2:10" + key + ".fields': must be the table of setting fields, not string\n"},
             {"mandatoryInterfaces = \"1\"\n",
              ":1:23: key 'mandatoryInterfaces': the top level holds only tables named after modules, such as "
              "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]\n"},
             {"[\"Zel.Hardware.Nim.Modules.IEthernetInfoModul\"]\nmandatoryInterfaces = \"1\"\n",
              ":1:2: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModul\"': the plug-in registers no module of that "
              "name (it registers: Zel.Hardware.Nim.Modules.IEthernetInfoModule, Zel.Hardware.Nim.Modules."
              "IIpConfigModule, Zel.Hardware.Nim.Modules.IIpStatusModule, Zel.Hardware.Nim.Modules."
              "INetworkComponentRegistrationModule)\n"},
             {fields + "interfaces = [\n  [\"1\"],\n", ":3:"}}) {
        SCOPED_TRACE(c.content);
        const std::string path = directory.Write("board.toml", c.content);
        const auto result = RunNimhost({"--config", path, "settings"});
        EXPECT_EQ(result.exitCode, 2);
        if (c.expected.back() == '\n') {
            EXPECT_EQ(result.err, "nimhost: " + path + c.expected);
        } else {
            EXPECT_EQ(result.err.rfind("nimhost: " + path + c.expected, 0), 0U) << result.err;
        }
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
    TempDirectory directory;
    const std::string original = directory.Write("board.toml", R"(
["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]
mandatoryInterfaces = "0x1"
"path.1.1.sysFile" = "/tmp/with \"quotes\" and \\ backslash/"
'odd key' = "tab	here"

["Zel.Hardware.Nim.Modules.IEthernetInfoModule".fields]
interfaces = [
  ["01", "Öffentlich", "eth0", "1", "sysFile", " a; b ", "Ethernet"],
  [],
]

["Zel.Hardware.Nim.Modules.IIpConfigModule"]
)");
    const nlohmann::json first = SettingsJson(original);
    EXPECT_EQ(first, nlohmann::json::parse(R"({
        "Zel.Hardware.Nim.Modules.IEthernetInfoModule": {
            "mandatoryInterfaces": "0x1", "path.1.1.sysFile": "/tmp/with \"quotes\" and \\ backslash/",
            "odd key": "tab\there",
            "fields": {"interfaces": [["01", "Öffentlich", "eth0", "1", "sysFile", " a; b ", "Ethernet"], []]}},
        "Zel.Hardware.Nim.Modules.IIpConfigModule": {}})"));

    // `settings` prints a file that reads back to the same settings.
    const auto printed = RunNimhost({"--config", original, "settings"});
    EXPECT_EQ(SettingsJson(directory.Write("printed.toml", printed.out)), first) << printed.out;
}

TEST(NimhostSettingsFile, EveryExampleBoardIsAValidSettingsFile)
{
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(NIMHOST_EXAMPLES)) {
        if (entry.path().extension() != ".toml") {
            continue;
        }
        SCOPED_TRACE(entry.path());
        ++files;
        const auto table = SettingsJson(entry.path())["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]["fields"]["interfaces"];
        ASSERT_TRUE(table.is_array() && !table.empty());
        for (std::size_t line = 0; line < table.size(); ++line) {
            EXPECT_EQ(table[line].size(), 7U);
            EXPECT_EQ(table[line][0], std::to_string(line + 1));
        }
    }
    EXPECT_EQ(files, 5U);
}

} // namespace
} // namespace Zel::Test
