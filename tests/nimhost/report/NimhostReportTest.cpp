// nimhost's report, interfaces and status in the network sandbox, on the
// board of NimhostBoard.hpp; answers are checked against what `ip` and the
// files say.
#include "NimhostBoard.hpp"

#include <fmt/ranges.h>

namespace Zel::Test {
namespace {

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
    EXPECT_EQ(document["devices"], json::parse(ReadFile(ZEL_TEST_CASES "/report/golden/report-devices.json")));
}

// The text report shows the codes in words and marks where the file and the
// kernel differ; a control character is shown escaped, a missing file said
// once.
TEST_F(NimhostReport, TextReportShowsCodesInWordsAndMarksDrift)
{
    for (const auto& c : Cases("report/cases/report-drift.cases")) {
        SCOPED_TRACE(c.name);
        Zel::Test::Run("rm -f " + interfacesFile);
        if (c.Has("interfaces")) {
            WriteFile(interfacesFile, c["interfaces"]);
        }
        const auto text = RunNimhost({"--config", settings, "report"});
        EXPECT_EQ(text.err, c.Has("stderr") ? c["stderr"] : "");
        if (!c.Has("lines")) { // after the plug-in's and the settings' paths
            EXPECT_EQ(text.out.substr(text.out.find('\n', text.out.find('\n') + 1) + 1),
                      ReadFile(ZEL_TEST_CASES "/report/golden/report.txt"));
        }
        ExpectLines(text.out, c.Lines("lines"));
        EXPECT_EQ(Parse(Nimhost({"report", "--json"}))["devices"][0]["differs"], json::parse(c["differs"]));
    }
}

TEST_F(NimhostReport, InterfacesListsTheKernelsNamesInItsOrder)
{
    EXPECT_EQ(Nimhost({"interfaces"}).out, fmt::format("{}\n", fmt::join(KernelInterfaceNames(), "\n")));
    EXPECT_EQ(Parse(Nimhost({"interfaces", "--json"}))["interfaces"], json(KernelInterfaceNames()));
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

} // namespace
} // namespace Zel::Test
