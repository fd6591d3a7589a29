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
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::InvalidOperationException;

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

    struct Answer {
        int status;
        std::string value;
    };

    Answer Address(const std::string& interfaceName) const
    {
        BasicString result("unchanged");
        const int status = access.GetCurrentIpAdress(1, 1, BasicString(interfaceName), result);
        return {status, result};
    }
    Answer Netmask(const std::string& interfaceName) const
    {
        BasicString result("unchanged");
        const int status = access.GetCurrentSubnetMask(1, 1, BasicString(interfaceName), result);
        return {status, result};
    }
    Answer Gateway(const std::string& interfaceName, const IpStatusSocketAccess& reader) const
    {
        BasicString result("unchanged");
        const int status = reader.GetCurrentDefaultGateway(1, 1, BasicString(interfaceName), result);
        return {status, result};
    }
    Answer Gateway(const std::string& interfaceName) const { return Gateway(interfaceName, access); }

    IpStatusSocketAccess access;
};

TEST_F(KernelIpStatus, AddressAndNetmaskAreWhatIpReports)
{
    for (const auto& name : scenarioInterfaces) {
        SCOPED_TRACE(name);
        const IpView expected = IpAddr(name);
        const Answer address = Address(name);
        const Answer netmask = Netmask(name);
        EXPECT_EQ(address.status, 0);
        EXPECT_EQ(address.value, expected.address);
        EXPECT_EQ(netmask.status, 0);
        EXPECT_EQ(netmask.value, expected.netmask);
    }
    // The scenario's values, so that a broken oracle cannot hide a fault.
    EXPECT_EQ(Address("ips0").value, "192.168.2.10");
    EXPECT_EQ(Netmask("ips1").value, "255.255.240.0");
    EXPECT_EQ(Netmask(longName).value, "255.255.0.0");
    EXPECT_EQ(Address("lo").value, "127.0.0.1");
}

TEST_F(KernelIpStatus, AnswersAreTraced)
{
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(Address("ips1").value, "10.1.0.5");

    const std::vector<std::string> expected = {
        "IpStatusSocketAccess::GetCurrentIpAdress(): 1",
        "IpStatusSocketAccess::GetSettingFromSocket(): device 1 interfaceName ips1 request 35093",
        "IpStatusSocketAccess::GetSettingFromSocket(): IOCTL value 10.1.0.5",
    };
    std::vector<std::string> texts;
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.level, 8);
        texts.push_back(record.text);
    }
    EXPECT_EQ(texts, expected);

    EXPECT_EQ(Netmask("ips1").value, "255.255.240.0");
    EXPECT_TRUE(capture.Contains(
        8, "IpStatusSocketAccess::GetSettingFromSocket(): device 1 interfaceName ips1 request 35099"));
}

TEST_F(KernelIpStatus, InterfaceWithoutIpv4AddressAnswersZeroAddressSilently)
{
    ASSERT_TRUE(IpAddr("ips2").address == "0.0.0.0");
    Zel::Test::LogCapture capture(8);

    EXPECT_EQ(Address("ips2").status, 0);
    EXPECT_EQ(Address("ips2").value, "0.0.0.0");
    EXPECT_EQ(Netmask("ips2").status, 0);
    EXPECT_EQ(Netmask("ips2").value, "0.0.0.0");
    // Neither an error nor an ioctl value: only the calls' own trace lines.
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.level, 8) << record.text;
        EXPECT_EQ(record.text.find("IOCTL value"), std::string::npos) << record.text;
    }
}

TEST_F(KernelIpStatus, UnknownInterfaceFailsWithTheErrnoInTheMessage)
{
    Zel::Test::LogCapture capture(8);
    const Answer address = Address("ipsnone");
    const Answer netmask = Netmask("ipsnone");

    EXPECT_EQ(address.status, 1);
    EXPECT_EQ(address.value, "unchanged");
    EXPECT_EQ(netmask.status, 1);
    EXPECT_EQ(netmask.value, "unchanged");
    EXPECT_EQ(capture.Count(3, fmt::format("IpStatusSocketAccess::GetSettingFromSocket(): error {} during ioctl() "
                                           "for interfaceName ipsnone",
                                           ENODEV)),
              2u);
}

TEST_F(KernelIpStatus, DefaultGatewayIsTheLastDefaultRouteIpLists)
{
    for (const auto& name : scenarioInterfaces) {
        SCOPED_TRACE(name);
        const Answer gateway = Gateway(name);
        EXPECT_EQ(gateway.status, 0);
        EXPECT_EQ(gateway.value, LastGatewayOrZero(name));
    }
    // ips1 has two default routes; the one added first comes later.
    EXPECT_EQ(IpRouteGateways("ips1"), (std::vector<std::string>{"10.1.0.1", "10.1.0.2"}));
    EXPECT_EQ(Gateway("ips1").value, "10.1.0.2");
    // Other interfaces' default routes are no answer for ips2.
    EXPECT_EQ(Gateway("ips2").value, "0.0.0.0");
}

TEST_F(KernelIpStatus, GatewayIsDecodedFromTheTablesByteOrder)
{
    const std::string table = ReadFile("/proc/net/route");
    EXPECT_NE(table.find("ips0\t00000000\t0102A8C0\t"), std::string::npos) << table;
    EXPECT_EQ(Gateway("ips0").value, "192.168.2.1");
}

TEST_F(KernelIpStatus, RouteChangesAreSeenByTheNextQuery)
{
    Zel::Test::NetSandbox().Veth("ips3", "ips3p").Address("203.0.113.7/28").Up();
    EXPECT_EQ(Gateway("ips3").value, "0.0.0.0");

    Zel::Test::NetSandbox().Route("default via 203.0.113.1 dev ips3 metric 40");
    EXPECT_EQ(Gateway("ips3").value, "203.0.113.1");
    EXPECT_EQ(Gateway("ips3").value, LastGatewayOrZero("ips3"));

    Zel::Test::NetSandbox().Ip("addr add 203.0.113.20/28 dev ips3").Ip("addr del 203.0.113.7/28 dev ips3");
    EXPECT_EQ(Address("ips3").value, IpAddr("ips3").address);

    Zel::Test::NetSandbox().Ip("route del default via 203.0.113.1 dev ips3");
    EXPECT_EQ(Gateway("ips3").value, "0.0.0.0");
    Zel::Test::NetSandbox().Delete("ips3");
}

// The kernel keeps interface names to 15 characters. The ioctls see at most
// 15 characters of a longer name, while the route table is compared with
// the whole name.
TEST_F(KernelIpStatus, LongerNamesAreCutForTheIoctlButComparedWholeInTheTable)
{
    const std::string longer = longName + "-longer";

    // The kernel refuses a 16-character name, so its table never holds one.
    EXPECT_NE(Zel::Test::Run("ip link add " + longName + "g type veth peer name ipsrefused 2>/dev/null"), 0);

    EXPECT_EQ(Address(longName).value, "172.16.5.9");
    EXPECT_EQ(Gateway(longName).value, "172.16.0.1");
    EXPECT_EQ(Gateway(longName).value, LastGatewayOrZero(longName));

    // Cut to 15 characters, the name reaches the 15-character interface.
    EXPECT_EQ(Address(longer).value, IpAddr(longName).address);
    EXPECT_EQ(Netmask(longer).value, IpAddr(longName).netmask);
    const Answer gateway = Gateway(longer);
    EXPECT_EQ(gateway.status, 0);
    EXPECT_EQ(gateway.value, "0.0.0.0");

    // A copy of the kernel's table in which the entry carries the longer
    // name is matched by the whole name only.
    std::string table = ReadFile("/proc/net/route");
    const std::string field = longName + "\t";
    for (auto at = table.find(field); at != std::string::npos; at = table.find(field, at + longer.size())) {
        table.replace(at, longName.size(), longer);
    }
    char pattern[] = "/tmp/ipstatus-route-XXXXXX";
    const int fd = ::mkstemp(pattern);
    ASSERT_NE(fd, -1);
    ::close(fd);
    std::ofstream(pattern) << table;
    const IpStatusSocketAccess copyReader{BasicString(pattern)};
    EXPECT_EQ(Gateway(longer, copyReader).value, "172.16.0.1");
    EXPECT_EQ(Gateway(longName, copyReader).value, "0.0.0.0");
    ::unlink(pattern);
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

TEST_F(KernelIpStatusModule, InterfaceRemovedAfterSetupFailsWithInvalidOperation)
{
    // The device table still names the interface; the kernel no longer knows it.
    Zel::Test::NetSandbox().Veth("ips4", "ips4p").Up();
    SettingField interfaces("interfaces");
    interfaces.AddLine({"1", "Device1", "ips4", "1", "unsupported", "", "Ethernet"});
    ModuleSettings ethernetSettings;
    ethernetSettings.AddSettingField("interfaces", interfaces);
    EthernetInfoModule ethernetWithIps4;
    ethernetWithIps4.SetupSettings(ethernetSettings, provider);
    HardwareModuleProvider providerWithIps4;
    providerWithIps4.AddHardwareModule(ethernetWithIps4);
    IpStatusModule statusOfIps4;
    statusOfIps4.SetupSettings(ModuleSettings(), providerWithIps4);
    EXPECT_EQ(statusOfIps4.GetIpAddress(1), "0.0.0.0");

    Zel::Test::NetSandbox().Delete("ips4");
    ASSERT_TRUE(Zel::Test::WaitUntil([] { return Zel::Test::Run("ip link show ips4 >/dev/null 2>&1") != 0; },
                                     std::chrono::seconds(5)));
    try {
        statusOfIps4.GetSubnetMask(1);
        FAIL() << "no exception";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "IpStatusModule::GetSubnetMask(): GetCurrentSubnetMask() returned 1");
    }
    EXPECT_EQ(statusOfIps4.GetDefaultGateway(1), "0.0.0.0");
}

} // namespace
