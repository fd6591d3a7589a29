// nimhost's command line and settings files: everything that is decided
// before a module is set up, so no interface and no /etc/network is touched.
#include "NimhostPaths.hpp"
#include "NimhostProcess.hpp"
#include "TestFiles.hpp"

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

TEST(NimhostCli, ModulesListsTheRegisteredModulesInOrderAndThePlugInFile)
{
    const auto json = RunNimhost({"--plugin", NimhostPaths::plugin, "modules", "--json"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    const auto document = nlohmann::json::parse(json.out);
    EXPECT_EQ(document["plugin"], NimhostPaths::plugin);
    EXPECT_EQ(document["modules"].get<std::vector<std::string>>(), registeredModules);

    // Without --plugin, the build tree's plug-in is found.
    const auto text = RunNimhost({"modules"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    std::string expected = "Plug-in: " + NimhostPaths::plugin + "\nModules, in registration order:\n";
    for (const auto& name : registeredModules) {
        expected += "  " + name + "\n";
    }
    EXPECT_EQ(text.out, expected);
}

TEST(NimhostCli, APlugInThatCannotBeLoadedIsAFailedOperationNamingTheException)
{
    const auto result = RunNimhost({"--plugin", "/nonexistent/libNothing.so", "modules"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err.rfind("nimhost: Zel::System::Commons::InvalidOperationException: Could not load library "
                               "'/nonexistent/libNothing.so': ",
                               0),
              0U)
        << result.err;
    EXPECT_EQ(result.out, "");
}

struct UsageCase {
    const char* name;
    std::vector<std::string> arguments;
    const char* expected; // part of the message on standard error
};

class NimhostCliUsage : public testing::TestWithParam<UsageCase> {};

TEST_P(NimhostCliUsage, IsExitTwoWithAMessageAndNothingOnStandardOutput)
{
    const auto result = RunNimhost(GetParam().arguments);
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_NE(result.err.find(GetParam().expected), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Errors, NimhostCliUsage,
    testing::Values(UsageCase{"UnknownCommand", {"bogus"}, "bogus"},
                    UsageCase{"UnknownField", {"ip", "get", "1", "hostname"}, "hostname"},
                    UsageCase{"DeviceNotANumber", {"status", "eth0"}, "DEVICE"},
                    UsageCase{"MissingValue", {"ip", "set", "1", "address"}, "VALUE"},
                    UsageCase{"LogLevelAboveTrace", {"--log-level", "9"}, "--log-level"},
                    UsageCase{"WatchCountZero", {"watch", "--count", "0"}, "--count"},
                    UsageCase{"UnknownMethodWord",
                              {"ip", "set", "1", "mode", "sideways"},
                              "nimhost: 'sideways' is not a method word: use one of static, dhcp, manual, loopback, "
                              "ppp, bootp\n"}),
    [](const testing::TestParamInfo<UsageCase>& info) { return std::string(info.param.name); });

// ---- settings files ----

struct BadFileCase {
    const char* name;
    const char* content;
    // The message after "nimhost: <file>"; for TOML syntax errors only the
    // position, the rest is the parser's.
    const char* expected;
    bool wholeMessage;
};

class NimhostSettingsFile : public testing::TestWithParam<BadFileCase> {};

TEST_P(NimhostSettingsFile, AFaultIsExitTwoNamingFileLineAndKey)
{
    TempDirectory directory;
    const std::string path = directory.Write("board.toml", GetParam().content);
    const auto result = RunNimhost({"--config", path, "settings"});
    EXPECT_EQ(result.exitCode, 2);
    const std::string expected = "nimhost: " + path + GetParam().expected;
    if (GetParam().wholeMessage) {
        EXPECT_EQ(result.err, expected + "\n");
    } else {
        EXPECT_EQ(result.err.rfind(expected, 0), 0U) << result.err;
    }
    EXPECT_EQ(result.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Faults, NimhostSettingsFile,
    testing::Values(
        BadFileCase{"NumberInsteadOfText",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]\nmandatoryInterfaces = 0x2\n",
                    ":2:23: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".mandatoryInterfaces': a setting "
                    "must be text in quotes, not integer",
                    true},
        BadFileCase{"UnquotedDottedKey",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]\npath.1.1.sysFile = \"/sys/class/net/eth0/\"\n",
                    ":2:1: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".path': a setting must be text, not a "
                    "table (a dotted key needs quotes: \"path.1.1.sysFile\" = ...)",
                    true},
        BadFileCase{"ColumnNotText",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields]\ninterfaces = [\n"
                    "  [\"1\", \"X1\", \"eth0\", \"1\", \"sysFile\", \"P1\", \"Ethernet\"],\n"
                    "  [\"2\", \"X2\", \"eth1\", 1, \"sysFile\", \"P2\", \"Ethernet\"],\n]\n",
                    ":4:23: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields.interfaces': line 2 column 4 "
                    "must be text in quotes, not integer",
                    true},
        BadFileCase{"LineNotAnArray",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields]\ninterfaces = [\"1\", \"X1\"]\n",
                    ":2:15: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields.interfaces': line 1 must be "
                    "an array of texts, not string",
                    true},
        BadFileCase{"FieldsNotATable",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]\nfields = \"interfaces\"\n",
                    ":2:10: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields': must be the table of "
                    "setting fields, not string",
                    true},
        BadFileCase{"ValueOutsideAModuleTable",
                    "mandatoryInterfaces = \"1\"\n",
                    ":1:23: key 'mandatoryInterfaces': the top level holds only tables named after modules, such as "
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\"]",
                    true},
        BadFileCase{"ModuleThePlugInDoesNotRegister",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModul\"]\nmandatoryInterfaces = \"1\"\n",
                    ":1:2: key '\"Zel.Hardware.Nim.Modules.IEthernetInfoModul\"': the plug-in registers no module of "
                    "that name (it registers: Zel.Hardware.Nim.Modules.IEthernetInfoModule, "
                    "Zel.Hardware.Nim.Modules.IIpConfigModule, Zel.Hardware.Nim.Modules.IIpStatusModule, "
                    "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule)",
                    true},
        BadFileCase{"UnclosedArray",
                    "[\"Zel.Hardware.Nim.Modules.IEthernetInfoModule\".fields]\ninterfaces = [\n  [\"1\"],\n", ":3:",
                    false}),
    [](const testing::TestParamInfo<BadFileCase>& info) { return std::string(info.param.name); });

TEST(NimhostSettingsFileMissing, IsExitTwoNamingTheFile)
{
    const auto result = RunNimhost({"--config", "/nonexistent/board.toml", "report"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "nimhost: /nonexistent/board.toml: File could not be opened for reading\n");
}

nlohmann::json SettingsJson(const std::string& path)
{
    const auto result = RunNimhost({"--config", path, "settings", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.exitCode == 0 ? nlohmann::json::parse(result.out) : nlohmann::json();
}

TEST(NimhostSettingsFileText, ValuesReachTheModulesExactlyAsWrittenAndSurviveARoundTrip)
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
    const auto& ethernet = first["Zel.Hardware.Nim.Modules.IEthernetInfoModule"];
    EXPECT_EQ(ethernet["mandatoryInterfaces"], "0x1");
    EXPECT_EQ(ethernet["path.1.1.sysFile"], "/tmp/with \"quotes\" and \\ backslash/");
    EXPECT_EQ(ethernet["odd key"], "tab\there");
    EXPECT_EQ(ethernet["fields"]["interfaces"],
              nlohmann::json::parse(R"([["01", "Öffentlich", "eth0", "1", "sysFile", " a; b ", "Ethernet"], []])"));
    EXPECT_EQ(first["Zel.Hardware.Nim.Modules.IIpConfigModule"], nlohmann::json::object());

    // `settings` prints a file that reads back to the same settings.
    const auto printed = RunNimhost({"--config", original, "settings"});
    ASSERT_EQ(printed.exitCode, 0) << printed.err;
    EXPECT_EQ(SettingsJson(directory.Write("printed.toml", printed.out)), first) << printed.out;
}

TEST(NimhostSettingsFileExamples, EveryExampleBoardIsAValidSettingsFile)
{
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(NimhostPaths::examplesDir)) {
        if (entry.path().extension() == ".toml") {
            files.push_back(entry.path().string());
        }
    }
    EXPECT_EQ(files.size(), 5U);
    for (const auto& file : files) {
        SCOPED_TRACE(file);
        const nlohmann::json settings = SettingsJson(file);
        const auto& table = settings["Zel.Hardware.Nim.Modules.IEthernetInfoModule"]["fields"]["interfaces"];
        ASSERT_TRUE(table.is_array());
        ASSERT_FALSE(table.empty());
        for (std::size_t line = 0; line < table.size(); ++line) {
            ASSERT_EQ(table[line].size(), 7U);
            EXPECT_EQ(table[line][0], std::to_string(line + 1));
        }
    }
}

} // namespace
} // namespace Zel::Test
