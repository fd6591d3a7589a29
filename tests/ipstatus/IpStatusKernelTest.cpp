// IP status against the real kernel, inside the network sandbox with the
// interfaces of ipstatus.scenario: the access's queries as the rows of
// cases/kernel.cases, and the module over them.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "CaseFile.hpp"
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "StandInEthernetInfo.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdint>
#include <map>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::System::Commons::BasicString;

const std::string longName = "ipstatus-abcdef"; // 15 characters

class KernelIpStatus : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }
};

TEST_F(KernelIpStatus, QueriesAnswerAndTraceAsTheCasesSay)
{
    using Query = int (IpStatusSocketAccess::*)(std::uint32_t, std::uint32_t, const BasicString&, BasicString&) const;
    const std::map<std::string, Query> queries = {{"address", &IpStatusSocketAccess::GetCurrentIpAdress},
                                                  {"netmask", &IpStatusSocketAccess::GetCurrentSubnetMask},
                                                  {"gateway", &IpStatusSocketAccess::GetCurrentDefaultGateway}};
    const IpStatusSocketAccess access;
    for (const auto& c : Zel::Test::Cases("kernel.cases")) {
        SCOPED_TRACE(c.name);
        const std::string query = c.Line("query");
        const std::size_t blank = query.find(' ');
        Zel::Test::LogCapture capture(8);
        BasicString result("unchanged");
        const int status = (access.*queries.at(query.substr(0, blank)))(1, 1, query.substr(blank + 1), result);
        EXPECT_EQ(fmt::format("{} {}\n", status, result), c["answer"]);
        EXPECT_EQ(capture.Text(), c["trace"]);
    }
    // The kernel keeps interface names to 15 characters, so its route table
    // never holds a longer one, as the cases take for granted.
    EXPECT_NE(Zel::Test::Run("ip link add " + longName + "g type veth peer name ipsrefused 2>/dev/null"), 0);
}

// The module over a stand-in Ethernet module naming the scenario's
// interfaces.
TEST_F(KernelIpStatus, TheModuleAnswersTheKernelsAddressNetmaskAndGateway)
{
    Zel::Test::StandInEthernetInfo ethernet({"ips0", "ips1", "ips2", longName},
                                            Zel::Test::StandInEthernetInfo::BadNumber::Throws);
    HardwareModuleProvider provider;
    provider.AddHardwareModule(ethernet);
    IpStatusModule module;
    module.SetupSettings(ModuleSettings(), provider);

    // ips0: the first of two addresses; its gateway stands in the table as
    // 0102A8C0. ips1: of two default routes the one added first is listed
    // later (higher metric) and wins. ips2: no address, no default route.
    const std::vector<std::string> expected = {"192.168.2.10 192.168.2.10 255.255.255.0 192.168.2.1",
                                               "10.1.0.5 10.1.0.5 255.255.240.0 10.1.0.2",
                                               "0.0.0.0 0.0.0.0 0.0.0.0 0.0.0.0",
                                               "172.16.5.9 172.16.5.9 255.255.0.0 172.16.0.1"};
    for (unsigned int device = 1; device <= expected.size(); ++device) {
        EXPECT_EQ(fmt::format("{} {} {} {}", module.GetIpAddress(device), module.GetDeviceIpAddress(device),
                              module.GetSubnetMask(device), module.GetDefaultGateway(device)),
                  expected[device - 1]);
    }
    // Each query is traced at level 8 with its device number, then its answer.
    Zel::Test::LogCapture capture(8);
    module.GetSubnetMask(2);
    EXPECT_TRUE(capture.Contains(8, "IpStatusModule::GetSubnetMask(): 2"));
    EXPECT_TRUE(capture.Contains(8, "IpStatusModule::GetSubnetMask(): 255.255.240.0"));
}

} // namespace
