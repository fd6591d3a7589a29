// IP status against the real kernel, inside the network sandbox with the
// interfaces of ipstatus.scenario. Every answer is compared with what `ip`
// reports in the same namespace.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::System::Commons::BasicString;

const std::string longName = "ipstatus-abcdef"; // 15 characters
const std::vector<std::string> scenarioInterfaces = {"ips0", "ips1", "ips2", longName, "lo"};

std::string PrefixToMask(int prefix)
{
    const std::uint32_t mask = prefix == 0 ? 0u : 0xFFFFFFFFu << (32 - prefix);
    return fmt::format("{}.{}.{}.{}", mask >> 24, (mask >> 16) & 0xFFu, (mask >> 8) & 0xFFu, mask & 0xFFu);
}

// What `ip -4 addr` says of the interface: its first IPv4 address (the one
// the kernel treats as primary) and that address's netmask.
struct IpView {
    std::string address = "0.0.0.0";
    std::string netmask = "0.0.0.0";
};

IpView IpAddr(const std::string& interfaceName)
{
    std::istringstream words(Zel::Test::RunOutput("ip -4 -o addr show dev " + interfaceName));
    IpView view;
    std::string word;
    while (words >> word) {
        if (word == "inet" && words >> word) {
            const auto slash = word.find('/');
            view.address = word.substr(0, slash);
            view.netmask = PrefixToMask(std::stoi(word.substr(slash + 1)));
            break;
        }
    }
    return view;
}

// The gateways of the interface's default routes as `ip route` lists them,
// in its order.
std::vector<std::string> IpRouteGateways(const std::string& interfaceName)
{
    std::istringstream words(Zel::Test::RunOutput("ip -4 route show default dev " + interfaceName));
    std::vector<std::string> gateways;
    std::string word;
    while (words >> word) {
        if (word == "via" && words >> word) {
            gateways.push_back(word);
        }
    }
    return gateways;
}

std::string LastGatewayOrZero(const std::string& interfaceName)
{
    const auto gateways = IpRouteGateways(interfaceName);
    return gateways.empty() ? "0.0.0.0" : gateways.back();
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

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
        const int status = (access.*query)(1, 1, BasicString(interfaceName), result);
        return status == 0 ? std::string(result) : fmt::format("status {}, result {}", status, result);
    }
    std::string Address(const std::string& name) const { return Ask(&Access::GetCurrentIpAdress, name); }
    std::string Netmask(const std::string& name) const { return Ask(&Access::GetCurrentSubnetMask, name); }
    std::string Gateway(const std::string& name) const { return Ask(&Access::GetCurrentDefaultGateway, name); }

    IpStatusSocketAccess access;
};

TEST_F(KernelIpStatus, AddressNetmaskAndGatewayAreWhatIpReports)
{
    for (const auto& name : scenarioInterfaces) {
        SCOPED_TRACE(name);
        const IpView expected = IpAddr(name);
        EXPECT_EQ(Address(name), expected.address);
        EXPECT_EQ(Netmask(name), expected.netmask);
        EXPECT_EQ(Gateway(name), LastGatewayOrZero(name));
    }
    // The scenario's own values, so that a broken oracle cannot hide a fault.
    EXPECT_EQ(Address("ips0"), "192.168.2.10");
    EXPECT_EQ(Netmask("ips1"), "255.255.240.0");
    EXPECT_EQ(Address("lo"), "127.0.0.1");
    // ips1 has two default routes; the one added first is listed later and wins.
    EXPECT_EQ(IpRouteGateways("ips1"), (std::vector<std::string>{"10.1.0.1", "10.1.0.2"}));
    EXPECT_EQ(Gateway("ips1"), "10.1.0.2");
    // ips2 has neither an address nor a default route of its own.
    EXPECT_EQ(Address("ips2"), "0.0.0.0");
    EXPECT_EQ(Netmask("ips2"), "0.0.0.0");
    EXPECT_EQ(Gateway("ips2"), "0.0.0.0");
}

TEST_F(KernelIpStatus, QueriesAreTracedButAMissingAddressIsNot)
{
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(Address("ips1"), "10.1.0.5");
    EXPECT_EQ(Address("ips2"), "0.0.0.0");

    const std::vector<std::string> expected = {
        "IpStatusSocketAccess::GetCurrentIpAdress(): 1",
        "IpStatusSocketAccess::GetSettingFromSocket(): device 1 interfaceName ips1 request 35093",
        "IpStatusSocketAccess::GetSettingFromSocket(): IOCTL value 10.1.0.5",
        "IpStatusSocketAccess::GetCurrentIpAdress(): 1",
        "IpStatusSocketAccess::GetSettingFromSocket(): device 1 interfaceName ips2 request 35093",
    };
    std::vector<std::string> texts;
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.level, 8) << record.text;
        texts.push_back(record.text);
    }
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(Netmask("ips1"), "255.255.240.0");
    EXPECT_EQ(capture.Records().at(6).text,
              "IpStatusSocketAccess::GetSettingFromSocket(): device 1 interfaceName ips1 request 35099");
}

TEST_F(KernelIpStatus, UnknownInterfaceFailsWithTheErrnoInTheMessage)
{
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(Address("ipsnone"), "status 1, result unchanged");
    EXPECT_EQ(Netmask("ipsnone"), "status 1, result unchanged");
    EXPECT_EQ(capture.Count(3, fmt::format("IpStatusSocketAccess::GetSettingFromSocket(): error {} during ioctl() "
                                           "for interfaceName ipsnone",
                                           ENODEV)),
              2u);
}

TEST_F(KernelIpStatus, GatewayIsDecodedFromTheTablesByteOrder)
{
    const std::string table = ReadFile("/proc/net/route");
    EXPECT_NE(table.find("ips0\t00000000\t0102A8C0\t"), std::string::npos) << table;
    EXPECT_EQ(Gateway("ips0"), "192.168.2.1");
}

TEST_F(KernelIpStatus, ChangesAreSeenByTheNextQuery)
{
    Zel::Test::NetSandbox net;
    net.Veth("ips3", "ips3p").Address("203.0.113.7/28").Up();
    EXPECT_EQ(Gateway("ips3"), "0.0.0.0");

    net.Route("default via 203.0.113.1 dev ips3 metric 40");
    EXPECT_EQ(Gateway("ips3"), "203.0.113.1");

    net.Ip("addr add 203.0.113.20/28 dev ips3").Ip("addr del 203.0.113.7/28 dev ips3");
    EXPECT_EQ(Address("ips3"), IpAddr("ips3").address);

    net.Ip("route del default via 203.0.113.1 dev ips3");
    EXPECT_EQ(Gateway("ips3"), "0.0.0.0");
    net.Delete("ips3");
}

// The kernel keeps interface names to 15 characters: it refuses a longer
// one, so its route table never holds one. The ioctls see at most 15
// characters of a longer name, while the table is compared with the whole
// name (a table entry of a longer name is in RouteTableTest.cpp).
TEST_F(KernelIpStatus, LongerNamesAreCutForTheIoctlButComparedWholeInTheTable)
{
    EXPECT_NE(Zel::Test::Run("ip link add " + longName + "g type veth peer name ipsrefused 2>/dev/null"), 0);

    EXPECT_EQ(Address(longName), "172.16.5.9");
    EXPECT_EQ(Gateway(longName), "172.16.0.1");

    const std::string longer = longName + "-longer";
    EXPECT_EQ(Address(longer), "172.16.5.9");
    EXPECT_EQ(Netmask(longer), "255.255.0.0");
    EXPECT_EQ(Gateway(longer), "0.0.0.0");
}

// The module end to end with the real Ethernet information module built
// from a device table of the scenario's interfaces.
class KernelIpStatusModule : public KernelIpStatus {
protected:
    void SetUp() override
    {
        KernelIpStatus::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        SettingField interfaces("interfaces");
        unsigned int line = 1;
        for (const auto& name : devices) {
            interfaces.AddLine({BasicString(std::to_string(line)), BasicString("Device" + std::to_string(line)),
                                BasicString(name), "1", "unsupported", "", "Ethernet"});
            ++line;
        }
        settings.AddSettingField("interfaces", interfaces);
        ethernet.SetupSettings(settings, provider);
        ASSERT_EQ(ethernet.GetDeviceCount(), devices.size());
        provider.AddHardwareModule(ethernet);
        module.SetupSettings(ModuleSettings(), provider);
    }

    const std::vector<std::string> devices = {"ips0", "ips1", "ips2", longName};
    ModuleSettings settings;
    HardwareModuleProvider provider;
    EthernetInfoModule ethernet;
    IpStatusModule module;
};

TEST_F(KernelIpStatusModule, EveryDeviceAnswersWhatIpReports)
{
    for (unsigned int device = 1; device <= devices.size(); ++device) {
        const std::string& name = devices[device - 1];
        SCOPED_TRACE(name);
        const IpView expected = IpAddr(name);
        EXPECT_EQ(module.GetIpAddress(device), expected.address);
        EXPECT_EQ(module.GetDeviceIpAddress(device), expected.address);
        EXPECT_EQ(module.GetSubnetMask(device), expected.netmask);
        EXPECT_EQ(module.GetDefaultGateway(device), LastGatewayOrZero(name));
    }
}

TEST_F(KernelIpStatusModule, DeviceNumbersOutsideTheTableThrowOutOfRange)
{
    const auto beyond = static_cast<unsigned int>(devices.size() + 1);
    for (unsigned int device : {0u, beyond}) {
        EXPECT_THROW(module.GetIpAddress(device), std::out_of_range);
        EXPECT_THROW(module.GetSubnetMask(device), std::out_of_range);
        EXPECT_THROW(module.GetDefaultGateway(device), std::out_of_range);
        EXPECT_THROW(module.GetDeviceIpAddress(device), std::out_of_range);
    }
}

} // namespace
