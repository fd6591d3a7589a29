// nimhost's command line and settings files: everything decided before a
// module is set up, so no interface and no /etc/network is touched.
#include "CaseFile.hpp"
#include "NimhostProcess.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <tuple>
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

// Replaces every placeholder in text.
std::string Fill(std::string text, const std::string& placeholder, const std::string& value)
{
    for (std::size_t at = 0; (at = text.find(placeholder, at)) != std::string::npos; at += value.size()) {
        text.replace(at, placeholder.size(), value);
    }
    return text;
}

// Every wrong input ends with its exit code and one message on standard
// error, nothing on standard output; with --json the same failure is a
// document on standard output. No message shows a C++ name.
TEST(NimhostCli, WrongInputGivesItsExitCodeAndMessageAndAJsonFailureDocument)
{
    // The loopback board: device numbers are checked against it.
    const std::string board = ZEL_TEST_CASES "/loopback.toml";
    for (const auto& c : Cases("wrong-input.cases")) {
        SCOPED_TRACE(c.name);
        const std::string arguments = Fill(c.Line("args"), "<board>", board);
        const int exitCode = std::stoi(c["exit"]);
        const auto result = RunNimhost(Words(arguments));
        EXPECT_EQ(result.exitCode, exitCode);
        if (c.Has("stderr")) {
            EXPECT_EQ(result.err, c["stderr"]);
        } else {
            EXPECT_NE(result.err.find(c.Line("stderr contains")), std::string::npos) << result.err;
        }
        EXPECT_EQ(result.err.find("::"), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");

        const auto json = RunNimhost(Words(arguments + "|--json"));
        ASSERT_TRUE(nlohmann::json::accept(json.out)) << json.out;
        const auto error = nlohmann::json::parse(json.out)["error"];
        EXPECT_EQ(std::tie(json.exitCode, error["exitCode"]), std::tie(exitCode, exitCode));
        EXPECT_EQ(error["type"], exitCode == 2 ? "usage" : "Zel::System::Commons::InvalidOperationException");
        EXPECT_TRUE(!c.Has("stderr") || "nimhost: " + error["message"].get<std::string>() + "\n" == c["stderr"])
            << error;
    }
}

// Every fault of a settings file is found before set-up, one line each:
// "file:line:column: key '...': what is wrong", exit 2. Unread keys and
// tables are warned about.
TEST(NimhostSettingsFile, EveryFaultIsExitTwoNamingFileLineColumnAndKey)
{
    ScratchDirectory directory;
    const std::string path = directory.Path("board.toml");
    for (const auto& c : Cases("settings-faults.cases")) {
        SCOPED_TRACE(c.name);
        directory.Write("board.toml", c["board.toml"]);
        const auto result = RunNimhost({"--config", path, "report"});
        EXPECT_EQ(result.exitCode, 2);
        if (c.Has("stderr")) {
            EXPECT_EQ(result.err, Fill(c["stderr"], "<file>", path));
        } else {
            EXPECT_EQ(result.err.rfind(Fill(c.Line("stderr starts"), "<file>", path), 0), 0U) << result.err;
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
    const Case c = Cases("round-trip.cases").front();
    ScratchDirectory directory;
    const std::string original = directory.Write("board.toml", c["board.toml"]);
    const nlohmann::json first = SettingsJson(original);
    EXPECT_EQ(first, nlohmann::json::parse(c["json"]));

    // `settings` prints a file that reads back to the same settings.
    const auto printed = RunNimhost({"--config", original, "settings"});
    EXPECT_EQ(SettingsJson(directory.Write("printed.toml", printed.out)), first) << printed.out;
}

} // namespace
} // namespace Zel::Test
