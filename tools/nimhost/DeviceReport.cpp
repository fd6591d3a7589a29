#include "DeviceReport.hpp"

#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;

DeviceReport CollectDevice(const PluginHost& host, const IEthernetInfoModule& ethernet, const HostSettings& settings,
                           unsigned int device)
{
    DeviceReport report;
    report.device = device;
    report.publicName = Attempt([&] { return ethernet.GetPublicInterfaceName(device); });
    report.interfaceName = Attempt([&] { return ethernet.GetInterfaceName(device); });
    report.macAddress = Attempt([&] { return ethernet.GetMacAddress(device); });
    report.type = Attempt([&] { return ethernet.GetInterfaceType(device); });
    report.portCount = Attempt([&] { return ethernet.GetPortCount(device); });
    const unsigned int portCount = report.portCount.value.value_or(0);
    for (unsigned int port = 1; port <= portCount; ++port) {
        PortReport portReport;
        portReport.port = port;
        portReport.publicName = Attempt([&] { return ethernet.GetPortPublicName(device, port); });
        portReport.mode = settings.PortMode(device);
        portReport.state = Attempt([&] { return ethernet.GetPortLinkState(device, port); });
        portReport.speed = Attempt([&] { return ethernet.GetPortLinkSpeed(device, port); });
        portReport.duplex = Attempt([&] { return ethernet.GetPortLinkDuplex(device, port); });
        report.ports.push_back(std::move(portReport));
    }

    report.liveAddress = Attempt([&] { return host.Get<IIpStatusModule>().GetIpAddress(device); });
    report.liveNetmask = Attempt([&] { return host.Get<IIpStatusModule>().GetSubnetMask(device); });
    report.liveGateway = Attempt([&] { return host.Get<IIpStatusModule>().GetDefaultGateway(device); });

    report.address = Attempt([&] { return host.Get<IIpConfigModule>().GetIpAddress(device); });
    report.netmask = Attempt([&] { return host.Get<IIpConfigModule>().GetSubnetMask(device); });
    report.gateway = Attempt([&] { return host.Get<IIpConfigModule>().GetDefaultGateway(device); });
    report.nameServers = Attempt([&] { return host.Get<IIpConfigModule>().GetDnsNameservers(device); });
    report.method = Attempt([&] { return host.Get<IIpConfigModule>().GetIpAssignMode(device); });
    return report;
}

namespace {

std::optional<std::uint32_t> ParseIpv4(const std::string& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

// The file may hold "192.168.1.10/24"; the kernel reports the address alone.
std::optional<std::uint32_t> ParseConfiguredAddress(const std::string& text)
{
    return ParseIpv4(text.substr(0, text.find('/')));
}

// The file may hold a prefix length ("24") where a dotted mask is expected.
std::optional<std::uint32_t> ParseConfiguredNetmask(const std::string& text)
{
    const bool digitsOnly = !text.empty() && text.size() <= 2 &&
                            std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digitsOnly) {
        const unsigned long prefix = std::stoul(text);
        if (prefix <= 32U) {
            return prefix == 0U ? 0U : static_cast<std::uint32_t>(0xFFFFFFFFULL << (32U - prefix));
        }
    }
    return ParseIpv4(text);
}

using Parser = std::function<std::optional<std::uint32_t>(const std::string&)>;

// Empty when either side could not be read: then there is nothing to compare.
std::optional<bool> Differs(const Outcome<BasicString>& configured, const Outcome<BasicString>& live,
                            const Parser& parseConfigured)
{
    if (!configured.Ok() || !live.Ok()) {
        return std::nullopt;
    }
    const auto configuredValue = parseConfigured(*configured.value);
    const auto liveValue = ParseIpv4(*live.value);
    if (configuredValue && liveValue) {
        return *configuredValue != *liveValue;
    }
    return *configured.value != *live.value;
}


} // namespace

Differences Compare(const DeviceReport& report)
{
    return {Differs(report.address, report.liveAddress, ParseConfiguredAddress),
            Differs(report.netmask, report.liveNetmask, ParseConfiguredNetmask),
            Differs(report.gateway, report.liveGateway, ParseIpv4)};
}

} // namespace Zel::Tools::Nimhost
