// nimhost's settings: settings files, read and checked before any module is
// set up, and the settings built from the machine's interfaces when there is
// no file (in the network sandbox).
#include "NimhostBoard.hpp"

#include <algorithm>

namespace Zel::Test {
namespace {

// Every fault of a settings file is found before set-up, one line each:
// "file:line:column: key '...': what is wrong", exit 2. Unread keys and
// tables are warned about.
TEST(NimhostSettingsFile, EveryFaultIsExitTwoNamingFileLineColumnAndKey)
{
    ScratchDirectory directory;
    const std::string path = directory.Path("board.toml");
    for (const auto& c : Cases("settings/cases/settings-faults.cases")) {
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

TEST(NimhostSettingsFile, ValuesReachTheModulesExactlyAsWrittenAndSurviveARoundTrip)
{
    const Case c = Cases("settings/cases/round-trip.cases").front();
    ScratchDirectory directory;
    const std::string original = directory.Write("board.toml", c["board.toml"]);
    const json first = Parse(RunNimhost({"--config", original, "settings", "--json"}));
    EXPECT_EQ(first, json::parse(c["json"]));

    // `settings` prints a file that reads back to the same settings.
    const auto printed = RunNimhost({"--config", original, "settings"});
    EXPECT_EQ(Parse(RunNimhost({"--config", directory.Write("printed.toml", printed.out), "settings", "--json"})),
              first)
        << printed.out;
}

std::string Mac(const std::string& name)
{
    std::string mac = Ip("link show dev " + name)[0]["address"];
    std::transform(mac.begin(), mac.end(), mac.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return mac;
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
