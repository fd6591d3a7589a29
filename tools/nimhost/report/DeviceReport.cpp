#include "report/DeviceReport.hpp"

#include "ip/ConfigDiagnosis.hpp"
#include "ip/ValueCheck.hpp"

#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;

namespace {

template <typename Query>
auto Configured(Query&& query)
{
    auto outcome = Attempt(std::forward<Query>(query));
    outcome.notSet = !outcome.Ok() && IsNotSet(outcome.errorType, outcome.errorMessage);
    // The file access reads past the end of a line whose key has no value.
    if (outcome.errorType == "std::out_of_range") {
        outcome.userText = "a line of this interface's block in /etc/network/interfaces has the key but no value";
    }
    return outcome;
}

// A port query whose library messages are kept back when it answers
// unknown.
template <typename Query, typename Code>
auto PortQuery(LogDigest* quiet, PortReport& port, const char* cell, Query&& query, Code unknown)
{
    if (quiet == nullptr) {
        return Attempt(std::forward<Query>(query));
    }
    quiet->Hold();
    auto outcome = Attempt(std::forward<Query>(query));
    const bool isUnknown = outcome.Ok() && *outcome.value == unknown;
    for (auto& text : quiet->Release(!isUnknown)) {
        if (isUnknown) {
            port.unknownReasons.emplace_back(cell, std::move(text));
        }
    }
    return outcome;
}

} // namespace

DeviceReport CollectDevice(const PluginHost& host, const IEthernetInfoModule& ethernet, const HostSettings& settings,
                           unsigned int device, LogDigest* quiet)
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
        portReport.state = PortQuery(
            quiet, portReport, "link", [&] { return ethernet.GetPortLinkState(device, port); }, LinkState::Unknown);
        portReport.speed = PortQuery(
            quiet, portReport, "speed", [&] { return ethernet.GetPortLinkSpeed(device, port); }, LinkSpeed::Unknown);
        portReport.duplex = PortQuery(
            quiet, portReport, "duplex", [&] { return ethernet.GetPortLinkDuplex(device, port); }, LinkDuplex::Unknown);
        report.ports.push_back(std::move(portReport));
    }

    report.liveAddress = Attempt([&] { return host.Get<IIpStatusModule>().GetIpAddress(device); });
    report.liveNetmask = Attempt([&] { return host.Get<IIpStatusModule>().GetSubnetMask(device); });
    report.liveGateway = Attempt([&] { return host.Get<IIpStatusModule>().GetDefaultGateway(device); });

    report.address = Configured([&] { return host.Get<IIpConfigModule>().GetIpAddress(device); });
    report.netmask = Configured([&] { return host.Get<IIpConfigModule>().GetSubnetMask(device); });
    report.gateway = Configured([&] { return host.Get<IIpConfigModule>().GetDefaultGateway(device); });
    report.nameServers = Configured([&] { return host.Get<IIpConfigModule>().GetDnsNameservers(device); });
    report.method = Configured([&] { return host.Get<IIpConfigModule>().GetIpAssignMode(device); });
    return report;
}

namespace {

// The file may hold "192.168.1.10/24"; the kernel reports the address alone.
std::optional<std::uint32_t> ParseConfiguredAddress(const std::string& text)
{
    return ParseIpv4(text.substr(0, text.find('/')));
}

// The file may hold a prefix length ("24") where a dotted mask is expected.
std::optional<std::uint32_t> ParseConfiguredNetmask(const std::string& text)
{
    if (const auto prefix = ParsePrefix("/" + text)) {
        return PrefixToNetmask(*prefix);
    }
    return ParseIpv4(text);
}

using Parser = std::function<std::optional<std::uint32_t>(const std::string&)>;

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
    Differences differences{Differs(report.address, report.liveAddress, ParseConfiguredAddress),
                            Differs(report.netmask, report.liveNetmask, ParseConfiguredNetmask),
                            Differs(report.gateway, report.liveGateway, ParseIpv4)};
    // "192.168.1.10/16" configures the netmask too.
    const auto prefix = report.address.Ok() ? ParsePrefix(*report.address.value) : std::nullopt;
    const auto liveNetmask = report.liveNetmask.Ok() ? ParseIpv4(*report.liveNetmask.value) : std::nullopt;
    if (prefix && liveNetmask) {
        const bool prefixDiffers = PrefixToNetmask(*prefix) != *liveNetmask;
        differences.address = differences.address.value_or(false) || prefixDiffers;
        if (report.netmask.notSet) {
            differences.netmask = prefixDiffers;
        }
    }
    return differences;
}

} // namespace Zel::Tools::Nimhost
