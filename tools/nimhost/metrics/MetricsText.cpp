#include "metrics/MetricsText.hpp"

#include "metrics/PrometheusText.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <chrono>
#include <sstream>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using Labels = PrometheusText::Labels;

namespace {

std::string Text(const Outcome<BasicString>& outcome)
{
    return outcome.Ok() ? std::string(*outcome.value) : std::string();
}

// The framework's word for an interface type ("Ethernet").
std::string TypeWord(const Outcome<NetworkInterfaceType>& type)
{
    if (!type.Ok()) {
        return {};
    }
    std::ostringstream out;
    out << *type.value;
    return out.fail() ? std::string() : out.str();
}

// Bytes per second, as node_exporter's speed_bytes; empty when unknown.
std::optional<double> SpeedBytes(LinkSpeed speed)
{
    switch (speed) {
    case LinkSpeed::Speed10:
        return 10e6 / 8;
    case LinkSpeed::Speed100:
        return 100e6 / 8;
    case LinkSpeed::Speed1000:
        return 1000e6 / 8;
    case LinkSpeed::Unknown:
        break;
    }
    return std::nullopt;
}

std::optional<double> FullDuplex(LinkDuplex duplex)
{
    switch (duplex) {
    case LinkDuplex::Full:
        return 1;
    case LinkDuplex::Half:
        return 0;
    case LinkDuplex::Unknown:
        break;
    }
    return std::nullopt;
}

std::optional<double> LinkUp(LinkState state)
{
    switch (state) {
    case LinkState::Up:
        return 1;
    case LinkState::Down:
        return 0;
    case LinkState::Unknown:
        break;
    }
    return std::nullopt;
}

Labels DeviceLabels(const DeviceReport& device)
{
    return {{"device", std::to_string(device.device)}, {"interface", Text(device.interfaceName)}};
}

Labels PortLabels(const DeviceReport& device, const PortReport& port)
{
    Labels labels = DeviceLabels(device);
    labels.emplace_back("port", std::to_string(port.port));
    return labels;
}

Labels With(Labels labels, const std::string& name, const std::string& value)
{
    labels.emplace_back(name, value);
    return labels;
}

// One family, with the samples of every device that has a value.
template <typename Each>
void Family(PrometheusText& text, const std::string& name, const std::string& type, const std::string& help, Each each)
{
    text.Family("nim_" + name, type, help);
    each();
}

// A value that /etc/network/interfaces does not set is an answer, as the
// report's "not set": a dhcp device would otherwise fail its queries forever.
template <typename T>
void Failed(PrometheusText& text, const Labels& labels, const std::string& query, const Outcome<T>& outcome)
{
    if (!outcome.Ok() && !outcome.notSet) {
        text.Sample(With(With(labels, "query", query), "exception", outcome.errorType), 1);
    }
}

// One sample per query of the device that threw (see Failed).
void FailedQueries(PrometheusText& text, const DeviceReport& device)
{
    const Labels labels = DeviceLabels(device);
    Failed(text, labels, "IEthernetInfoModule::GetPublicInterfaceName", device.publicName);
    Failed(text, labels, "IEthernetInfoModule::GetInterfaceName", device.interfaceName);
    Failed(text, labels, "IEthernetInfoModule::GetMacAddress", device.macAddress);
    Failed(text, labels, "IEthernetInfoModule::GetInterfaceType", device.type);
    Failed(text, labels, "IEthernetInfoModule::GetPortCount", device.portCount);
    for (const auto& port : device.ports) {
        const Labels portLabels = PortLabels(device, port);
        Failed(text, portLabels, "IEthernetInfoModule::GetPortPublicName", port.publicName);
        Failed(text, portLabels, "IEthernetInfoModule::GetPortLinkState", port.state);
        Failed(text, portLabels, "IEthernetInfoModule::GetPortLinkSpeed", port.speed);
        Failed(text, portLabels, "IEthernetInfoModule::GetPortLinkDuplex", port.duplex);
    }
    Failed(text, labels, "IIpStatusModule::GetIpAddress", device.liveAddress);
    Failed(text, labels, "IIpStatusModule::GetSubnetMask", device.liveNetmask);
    Failed(text, labels, "IIpStatusModule::GetDefaultGateway", device.liveGateway);
    Failed(text, labels, "IIpConfigModule::GetIpAddress", device.address);
    Failed(text, labels, "IIpConfigModule::GetSubnetMask", device.netmask);
    Failed(text, labels, "IIpConfigModule::GetDefaultGateway", device.gateway);
    Failed(text, labels, "IIpConfigModule::GetDnsNameservers", device.nameServers);
    Failed(text, labels, "IIpConfigModule::GetIpAssignMode", device.method);
}

} // namespace

MetricsSnapshot CollectMetrics(const PluginHost& host, const HostSettings& settings)
{
    const auto start = std::chrono::steady_clock::now();
    MetricsSnapshot snapshot;
    const auto& ethernet = host.Get<Zel::Hardware::Nim::Modules::IEthernetInfoModule>();
    const unsigned int count = ethernet.GetDeviceCount();
    for (unsigned int device = 1; device <= count; ++device) {
        snapshot.devices.push_back(CollectDevice(host, ethernet, settings, device));
    }
    snapshot.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return snapshot;
}

std::string RenderMetrics(const MetricsSnapshot& snapshot, const std::optional<WatchTally>& tally)
{
    PrometheusText text;
    const auto& devices = snapshot.devices;
    const auto eachPort = [&](auto sample) {
        for (const auto& device : devices) {
            for (const auto& port : device.ports) {
                sample(device, port);
            }
        }
    };

    Family(text, "device_info", "gauge", "Texts of an Ethernet device as the plug-in reports them; always 1.", [&] {
        for (const auto& device : devices) {
            text.Sample(With(With(With(DeviceLabels(device), "public_name", Text(device.publicName)), "mac_address",
                                  Text(device.macAddress)),
                             "interface_type", TypeWord(device.type)),
                        1);
        }
    });
    Family(text, "port_info", "gauge", "Texts of a device's port (mode from the settings); always 1.", [&] {
        eachPort([&](const DeviceReport& device, const PortReport& port) {
            text.Sample(With(With(PortLabels(device, port), "public_name", Text(port.publicName)), "mode",
                             std::string(port.mode)),
                        1);
        });
    });
    Family(text, "port_link_up", "gauge", "1 when the port's link is up, 0 when down; absent when unknown.", [&] {
        eachPort([&](const DeviceReport& device, const PortReport& port) {
            if (const auto value = port.state.Ok() ? LinkUp(*port.state.value) : std::nullopt) {
                text.Sample(PortLabels(device, port), *value);
            }
        });
    });
    Family(text, "port_speed_bytes", "gauge", "Link speed of the port in bytes per second; absent when unknown.", [&] {
        eachPort([&](const DeviceReport& device, const PortReport& port) {
            if (const auto value = port.speed.Ok() ? SpeedBytes(*port.speed.value) : std::nullopt) {
                text.Sample(PortLabels(device, port), *value);
            }
        });
    });
    Family(text, "port_full_duplex", "gauge", "1 for full duplex, 0 for half duplex; absent when unknown.", [&] {
        eachPort([&](const DeviceReport& device, const PortReport& port) {
            if (const auto value = port.duplex.Ok() ? FullDuplex(*port.duplex.value) : std::nullopt) {
                text.Sample(PortLabels(device, port), *value);
            }
        });
    });
    Family(text, "ip_config_differs", "gauge",
           "1 when the configured IP value (/etc/network/interfaces) differs from the live one, else 0; absent "
           "when either could not be read.",
           [&] {
               for (const auto& device : devices) {
                   const Differences differences = Compare(device);
                   for (const auto& [field, differs] :
                        {std::pair{"address", differences.address}, std::pair{"netmask", differences.netmask},
                         std::pair{"gateway", differences.gateway}}) {
                       if (differs) {
                           text.Sample(With(DeviceLabels(device), "field", field), *differs ? 1 : 0);
                       }
                   }
               }
           });
    Family(text, "query_failed", "gauge",
           "1 for each query of the plug-in that threw in this collection, with the exception's type; a value "
           "the interfaces file does not set is none.",
           [&] {
               for (const auto& device : devices) {
                   FailedQueries(text, device);
               }
           });
    if (tally) {
        Family(text, "port_link_changes_total", "counter",
               "Changes of the port's link state, speed or duplex that the watch reported since it started.", [&] {
                   eachPort([&](const DeviceReport& device, const PortReport& port) {
                       const auto found = tally->changes.find({device.device, port.port});
                       text.Sample(PortLabels(device, port),
                                   static_cast<double>(found == tally->changes.end() ? 0 : found->second));
                   });
               });
        Family(text, "watch_start_time_seconds", "gauge", "When the watch started, in seconds since the epoch.",
               [&] { text.Sample({}, tally->startSeconds); });
    }
    Family(text, "collection_duration_seconds", "gauge", "How long asking the plug-in's modules took.",
           [&] { text.Sample({}, snapshot.seconds); });
    return text.Text();
}

} // namespace Zel::Tools::Nimhost
