#include "Commands.hpp"
#include "DeviceReport.hpp"
#include "ExceptionText.hpp"
#include "ExitCode.hpp"
#include "LinkText.hpp"
#include "Outcome.hpp"
#include "PrintableText.hpp"
#include "TextTable.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <type_traits>
#include <vector>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;

namespace {

// ---- human text ----

// Cells of one device block; failures become "error [n]" with the cause
// below the block, so the columns stay aligned. A value the file does not
// hold is "not set"; control characters in a value are shown escaped and
// marked "!".
class Cells {
public:
    explicit Cells(bool technical) : technical(technical) {}

    template <typename T, typename Describe>
    std::string Text(const Outcome<T>& outcome, Describe describe)
    {
        if (outcome.Ok()) {
            return describe(*outcome.value);
        }
        if (outcome.notSet) {
            return "not set";
        }
        // --json carries the type and the message as thrown.
        notes.push_back(!technical && !outcome.userText.empty()
                            ? outcome.userText
                            : DescribeForUser(outcome.errorType, outcome.errorMessage, technical));
        return fmt::format("error [{}]", notes.size());
    }

    std::string Text(const Outcome<BasicString>& outcome)
    {
        return Text(outcome, [this](const BasicString& text) {
            bool control = false;
            std::string shown = Printable(text, control);
            if (control) {
                anyControl = true;
                shown += " !";
            }
            return shown;
        });
    }

    // Whether any cell so far held control characters.
    bool anyControl = false;

    std::string Notes(const std::string& indent) const
    {
        std::string text;
        for (std::size_t i = 0; i < notes.size(); ++i) {
            text += fmt::format("{}[{}] {}\n", indent, i + 1, notes[i]);
        }
        return text;
    }

private:
    bool technical;
    std::vector<std::string> notes;
};

std::string Marked(std::string text, const std::optional<bool>& differs, bool& anyMark)
{
    if (differs.value_or(false)) {
        anyMark = true;
        text += " *";
    }
    return text;
}

std::string RenderText(const PluginHost& host, const HostSettings& settings, const std::vector<DeviceReport>& devices,
                       bool technical)
{
    std::string text;
    TextTable heading;
    heading.AddRow({"Plug-in", host.GetFileName()});
    heading.AddRow({"Settings", settings.DescribeOrigin()});
    heading.AddRow({"Devices", std::to_string(devices.size())});
    text += heading.Render();

    bool anyMark = false;
    bool anyControl = false;
    for (const auto& device : devices) {
        Cells cells(technical);
        text += fmt::format("\nDevice {}: {} ({}), MAC {}, type {}\n", device.device, cells.Text(device.publicName),
                            cells.Text(device.interfaceName), cells.Text(device.macAddress),
                            cells.Text(device.type, DescribeInterfaceType));
        if (!device.portCount.Ok()) {
            text += fmt::format("  Ports: {}\n",
                                cells.Text(device.portCount, [](unsigned int n) { return std::to_string(n); }));
        } else if (device.ports.empty()) {
            text += "  No ports.\n";
        } else {
            TextTable ports({"PORT", "PUBLIC NAME", "MODE", "LINK", "SPEED", "DUPLEX"});
            for (const auto& port : device.ports) {
                ports.AddRow({std::to_string(port.port), cells.Text(port.publicName), port.mode,
                              cells.Text(port.state, DescribeLinkState), cells.Text(port.speed, DescribeLinkSpeed),
                              cells.Text(port.duplex, DescribeLinkDuplex)});
            }
            text += ports.Render("  ");
        }

        const Differences differences = Compare(device);
        TextTable ip({"IP", "LIVE", "CONFIGURED"});
        ip.AddRow({"address", cells.Text(device.liveAddress),
                   Marked(cells.Text(device.address), differences.address, anyMark)});
        ip.AddRow({"netmask", cells.Text(device.liveNetmask),
                   Marked(cells.Text(device.netmask), differences.netmask, anyMark)});
        ip.AddRow({"gateway", cells.Text(device.liveGateway),
                   Marked(cells.Text(device.gateway), differences.gateway, anyMark)});
        ip.AddRow({"dns", "", cells.Text(device.nameServers)});
        ip.AddRow({"method", "", cells.Text(device.method, DescribeAssignMode)});
        text += ip.Render("  ");
        text += cells.Notes("  ");
        anyControl = anyControl || cells.anyControl;
    }
    if (devices.empty()) {
        text += "\nNo devices: the settings configure none, or the first configured interface does not exist\n"
                "(`nimhost interfaces` lists the kernel's).\n";
    }
    if (anyMark) {
        text += "\n* the configured value differs from the live one\n";
    }
    if (anyControl) {
        text += fmt::format("{}! the value holds control characters, shown escaped (\\r, \\t, \\xNN)\n",
                            anyMark ? "" : "\n");
    }
    return text;
}

// ---- JSON ----

template <typename T, typename Convert>
nlohmann::ordered_json ToJson(const Outcome<T>& outcome, Convert convert)
{
    if (outcome.Ok()) {
        return convert(*outcome.value);
    }
    if (outcome.notSet) {
        return nullptr;
    }
    return {{"error", {{"type", outcome.errorType}, {"message", outcome.errorMessage}}}};
}

nlohmann::ordered_json ToJson(const Outcome<BasicString>& outcome)
{
    return ToJson(outcome, [](const BasicString& text) { return nlohmann::ordered_json(std::string(text)); });
}

// Raw codes, as the framework receives them.
template <typename E>
nlohmann::ordered_json Code(E value)
{
    return static_cast<long long>(static_cast<std::underlying_type_t<E>>(value));
}

nlohmann::ordered_json ToJson(const std::optional<bool>& differs)
{
    return differs ? nlohmann::ordered_json(*differs) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json RenderJson(const PluginHost& host, const HostSettings& settings,
                                  const std::vector<DeviceReport>& devices)
{
    nlohmann::ordered_json document;
    document["plugin"] = std::string(host.GetFileName());
    document["settings"] =
        settings.GetPath().empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(settings.GetPath());
    document["devices"] = nlohmann::ordered_json::array();
    for (const auto& device : devices) {
        nlohmann::ordered_json entry;
        entry["device"] = device.device;
        entry["publicName"] = ToJson(device.publicName);
        entry["interfaceName"] = ToJson(device.interfaceName);
        entry["macAddress"] = ToJson(device.macAddress);
        entry["interfaceType"] = ToJson(device.type, Code<NetworkInterfaceType>);
        entry["portCount"] = ToJson(device.portCount, [](unsigned int n) { return nlohmann::ordered_json(n); });
        entry["ports"] = nlohmann::ordered_json::array();
        for (const auto& port : device.ports) {
            entry["ports"].push_back({{"port", port.port},
                                      {"publicName", ToJson(port.publicName)},
                                      {"mode", std::string(port.mode)},
                                      {"linkState", ToJson(port.state, Code<LinkState>)},
                                      {"linkSpeed", ToJson(port.speed, Code<LinkSpeed>)},
                                      {"linkDuplex", ToJson(port.duplex, Code<LinkDuplex>)}});
        }
        entry["live"] = {{"address", ToJson(device.liveAddress)},
                         {"netmask", ToJson(device.liveNetmask)},
                         {"gateway", ToJson(device.liveGateway)}};
        entry["configured"] = {{"address", ToJson(device.address)},
                               {"netmask", ToJson(device.netmask)},
                               {"gateway", ToJson(device.gateway)},
                               {"dnsNameservers", ToJson(device.nameServers)},
                               {"method", ToJson(device.method, Code<IpAssignMode>)}};
        const Differences differences = Compare(device);
        entry["differs"] = {{"address", ToJson(differences.address)},
                            {"netmask", ToJson(differences.netmask)},
                            {"gateway", ToJson(differences.gateway)}};
        document["devices"].push_back(std::move(entry));
    }
    return document;
}

} // namespace

int RunReport(const PluginHost& host, const HostSettings& settings, const Presentation& how, std::ostream& out)
{
    const auto& ethernet = host.Get<IEthernetInfoModule>();
    std::vector<DeviceReport> devices;
    const unsigned int deviceCount = ethernet.GetDeviceCount();
    for (unsigned int device = 1; device <= deviceCount; ++device) {
        devices.push_back(CollectDevice(host, ethernet, settings, device));
    }
    if (how.json) {
        out << RenderJson(host, settings, devices).dump(2) << '\n';
    } else {
        out << RenderText(host, settings, devices, how.technical);
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
