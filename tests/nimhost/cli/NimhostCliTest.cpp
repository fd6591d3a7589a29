// nimhost's command line: everything decided before a module is set up, so
// no interface and no /etc/network is touched.
#include "NimhostBoard.hpp"

#include <tuple>

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

// Every wrong input ends with its exit code and one message on standard
// error, nothing on standard output; with --json the same failure is a
// document on standard output. No message shows a C++ name.
TEST(NimhostCli, WrongInputGivesItsExitCodeAndMessageAndAJsonFailureDocument)
{
    // The loopback board: device numbers are checked against it.
    const std::string board = ZEL_TEST_CASES "/cli/cases/loopback.toml";
    for (const auto& c : Cases("cli/cases/wrong-input.cases")) {
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

} // namespace
} // namespace Zel::Test
