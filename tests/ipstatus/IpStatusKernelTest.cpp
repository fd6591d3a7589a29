// IP status against the real kernel, inside the network sandbox with the
// interfaces of ipstatus.scenario.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "StandInEthernetInfo.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::System::Commons::BasicString;

const std::string longName = "ipstatus-abcdef"; // 15 characters
const std::vector<std::string> devices = {"ips0", "ips1", "ips2", longName};

class KernelIpStatus : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }

    using Access = IpStatusSocketAccess;
    using Query = int (Access::*)(std::uint32_t, std::uint32_t, const BasicString&, BasicString&) const;

    // The answer for device 1 of 1: the result on status 0, otherwise the
    // status and what was left in the result.
    std::string Ask(Query query, const std::string& interfaceName) const
    {
        BasicString result("unchanged");
        const int status = (access.*query)(1, 1, interfaceName, result);
        return status == 0 ? std::string(result) : fmt::format("status {}, result {}", status, result);
    }
    std::string Address(const std::string& name) const { return Ask(&Access::GetCurrentIpAdress, name); }
    std::string Netmask(const std::string& name) const { return Ask(&Access::GetCurrentSubnetMask, name); }
    std::string Gateway(const std::string& name) const { return Ask(&Access::GetCurrentDefaultGateway, name); }

    Access access;
};

// The module over a stand-in Ethernet module naming the scenario's
// interfaces; "lo" through the access alone.
TEST_F(KernelIpStatus, AddressNetmaskAndGatewayAreTheKernelsOnes)
{
    Zel::Test::StandInEthernetInfo ethernet({devices.begin(), devices.end()},
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
    for (unsigned int device = 1; device <= devices.size(); ++device) {
        EXPECT_EQ(fmt::format("{} {} {} {}", module.GetIpAddress(device), module.GetDeviceIpAddress(device),
                              module.GetSubnetMask(device), module.GetDefaultGateway(device)),
                  expected[device - 1]);
    }
    EXPECT_EQ(Address("lo") + " " + Netmask("lo") + " " + Gateway("lo"), "127.0.0.1 255.0.0.0 0.0.0.0");
    // Each query is traced at level 8 with its device number, then its answer.
    Zel::Test::LogCapture capture(8);
    module.GetSubnetMask(2);
    EXPECT_TRUE(capture.Contains(8, "IpStatusModule::GetSubnetMask(): 2"));
    EXPECT_TRUE(capture.Contains(8, "IpStatusModule::GetSubnetMask(): 255.255.240.0"));
}

// A missing address is no failure and is not traced; an unknown interface
// fails with its errno in the message and leaves the result.
TEST_F(KernelIpStatus, QueriesAreTracedAndAnUnknownInterfaceFailsWithItsErrno)
{
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(Address("ips2"), "0.0.0.0");
    EXPECT_EQ(Netmask("ips1"), "255.255.240.0");
    EXPECT_EQ(Address("ipsnone"), "status 1, result unchanged");
    std::vector<std::string> lines;
    for (const auto& record : capture.Records()) {
        lines.push_back(fmt::format("{} {}", record.level, record.text));
    }
    const std::string socket = "8 IpStatusSocketAccess::GetSettingFromSocket(): ";
    EXPECT_EQ(
        lines,
        (std::vector<std::string>{
            "8 IpStatusSocketAccess::GetCurrentIpAdress(): 1", socket + "device 1 interfaceName ips2 request 35093",
            "8 IpStatusSocketAccess::GetCurrentSubnetMask(): 1", socket + "device 1 interfaceName ips1 request 35099",
            socket + "IOCTL value 255.255.240.0", "8 IpStatusSocketAccess::GetCurrentIpAdress(): 1",
            socket + "device 1 interfaceName ipsnone request 35093",
            fmt::format("3 IpStatusSocketAccess::GetSettingFromSocket(): error {} during ioctl() "
                        "for interfaceName ipsnone",
                        ENODEV)}));
}

// The kernel keeps interface names to 15 characters, so its route table never
// holds a longer one (RouteTableTest.cpp has such an entry). The ioctls see
// 15 characters of a longer name; the table is compared with the whole name.
TEST_F(KernelIpStatus, LongerNamesAreCutForTheIoctlButComparedWholeInTheTable)
{
    EXPECT_NE(Zel::Test::Run("ip link add " + longName + "g type veth peer name ipsrefused 2>/dev/null"), 0);
    EXPECT_EQ(Gateway(longName), "172.16.0.1");
    const std::string longer = longName + "-longer";
    EXPECT_EQ(Address(longer), "172.16.5.9");
    EXPECT_EQ(Netmask(longer), "255.255.0.0");
    EXPECT_EQ(Gateway(longer), "0.0.0.0");
}

} // namespace
