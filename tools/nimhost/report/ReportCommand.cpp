#include "cli/Commands.hpp"
#include "ip/ConfigDiagnosis.hpp"
#include "ip/WriteFailure.hpp"
#include "report/DeviceReport.hpp"
#include "report/Outcome.hpp"
#include "text/ExceptionText.hpp"
#include "text/ExitCode.hpp"
#include "text/LinkText.hpp"
#include "text/PrintableText.hpp"
#include "text/TextTable.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <regex>
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

// A configured value the module reads from a line that is not the
// interface's own is marked "~" and explained below the device.
std::string Foreign(std::string text, const ConfigDiagnosis& diagnosis, const std::string& field, bool& anyForeign)
{
    if (diagnosis.foreign.count(field) != 0) {
        anyForeign = true;
        text += " ~";
    }
    return text;
}

// A file the port strategy could not read ("... (PATH): errno N") and the
// error's text; else the message without its origin and no error.
std::pair<std::string, std::string> BriefReason(const std::string& text)
{
    static const std::regex fileError(R"(\(([^()]*)\): errno (\d+)$)");
    std::smatch match;
    if (std::regex_search(text, match, fileError)) {
        return {match[1].str(), std::strerror(std::stoi(match[2].str()))};
    }
    const std::size_t origin = text.find("(): ");
    return {origin == std::string::npos ? text : text.substr(origin + 4), ""};
}

// One line per port whose unknown cells have reasons, files that fail alike
// named together: "port 1: speed, duplex unknown (/sys/class/net/ifb0/speed,
// /sys/class/net/ifb0/duplex: Invalid argument)".
std::string UnknownReasons(const DeviceReport& device)
{
    std::string text;
    for (const auto& port : device.ports) {
        std::vector<std::string> cells;
        std::vector<std::pair<std::string, std::vector<std::string>>> byError;
        for (const auto& [cell, message] : port.unknownReasons) {
            if (std::find(cells.begin(), cells.end(), cell) == cells.end()) {
                cells.push_back(cell);
            }
            auto [subject, error] = BriefReason(message);
            auto group = std::find_if(byError.begin(), byError.end(), [&](const auto& g) { return g.first == error; });
            if (group == byError.end()) {
                group = byError.insert(byError.end(), {error, {}});
            }
            if (std::find(group->second.begin(), group->second.end(), subject) == group->second.end()) {
                group->second.push_back(std::move(subject));
            }
        }
        std::vector<std::string> reasons;
        for (const auto& [error, subjects] : byError) {
            reasons.push_back(fmt::format("{}{}{}", fmt::join(subjects, ", "), error.empty() ? "" : ": ", error));
        }
        if (!cells.empty()) {
            text += fmt::format("  port {}: {} unknown ({})\n", port.port, fmt::join(cells, ", "),
                                fmt::join(reasons, "; "));
        }
    }
    return text;
}

std::string RenderText(const PluginHost& host, const HostSettings& settings, const std::vector<DeviceReport>& devices,
                       const std::vector<ConfigDiagnosis>& diagnoses, bool technical)
{
    std::string text;
    TextTable heading;
    heading.AddRow({"Plug-in", host.GetFileName()});
    heading.AddRow({"Settings", settings.DescribeOrigin()});
    heading.AddRow({"Devices", std::to_string(devices.size())});
    text += heading.Render();

    bool anyMark = false;
    bool anyControl = false;
    bool anyForeign = false;
    for (std::size_t index = 0; index < devices.size(); ++index) {
        const DeviceReport& device = devices[index];
        const ConfigDiagnosis& diagnosis = diagnoses[index];
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
            text += UnknownReasons(device);
        }

        const Differences differences = Compare(device);
        TextTable ip({"IP", "LIVE", "CONFIGURED"});
        const auto configured = [&](const auto& outcome, const std::string& field, const std::optional<bool>& differs) {
            return Foreign(Marked(cells.Text(outcome), differs, anyMark), diagnosis, field, anyForeign);
        };
        ip.AddRow(
            {"address", cells.Text(device.liveAddress), configured(device.address, "address", differences.address)});
        ip.AddRow(
            {"netmask", cells.Text(device.liveNetmask), configured(device.netmask, "netmask", differences.netmask)});
        ip.AddRow(
            {"gateway", cells.Text(device.liveGateway), configured(device.gateway, "gateway", differences.gateway)});
        ip.AddRow({"dns", "", configured(device.nameServers, "dns", std::nullopt)});
        ip.AddRow(
            {"method", "", Foreign(cells.Text(device.method, DescribeAssignMode), diagnosis, "mode", anyForeign)});
        text += ip.Render("  ");
        for (const auto& [field, foreign] : diagnosis.foreign) {
            text += fmt::format("  ~ {}\n", foreign.sentence);
        }
        if (diagnosis.sourced) {
            text += fmt::format("  {}\n", diagnosis.sourcedSentence);
        }
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
    if (anyForeign) {
        text += fmt::format("{}~ the controller reads the configured value from another line than the interface's "
                            "own\n",
                            anyMark || anyControl ? "" : "\n");
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
                                  const std::vector<DeviceReport>& devices,
                                  const std::vector<ConfigDiagnosis>& diagnoses)
{
    nlohmann::ordered_json document;
    document["plugin"] = std::string(host.GetFileName());
    document["settings"] =
        settings.GetPath().empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(settings.GetPath());
    document["devices"] = nlohmann::ordered_json::array();
    for (std::size_t index = 0; index < devices.size(); ++index) {
        const DeviceReport& device = devices[index];
        const ConfigDiagnosis& diagnosis = diagnoses[index];
        nlohmann::ordered_json entry;
        entry["device"] = device.device;
        entry["publicName"] = ToJson(device.publicName);
        entry["interfaceName"] = ToJson(device.interfaceName);
        entry["macAddress"] = ToJson(device.macAddress);
        entry["interfaceType"] = ToJson(device.type, Code<NetworkInterfaceType>);
        entry["portCount"] = ToJson(device.portCount, [](unsigned int n) { return nlohmann::ordered_json(n); });
        entry["ports"] = nlohmann::ordered_json::array();
        for (const auto& port : device.ports) {
            nlohmann::ordered_json reasons = nlohmann::ordered_json::array();
            for (const auto& [cell, message] : port.unknownReasons) {
                reasons.push_back({{"cell", cell}, {"message", message}});
            }
            entry["ports"].push_back({{"port", port.port},
                                      {"publicName", ToJson(port.publicName)},
                                      {"mode", std::string(port.mode)},
                                      {"linkState", ToJson(port.state, Code<LinkState>)},
                                      {"linkSpeed", ToJson(port.speed, Code<LinkSpeed>)},
                                      {"linkDuplex", ToJson(port.duplex, Code<LinkDuplex>)},
                                      {"unknownReasons", std::move(reasons)}});
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
        entry["foreign"] = {{"address", ForeignJson(diagnosis, "address")},
                            {"netmask", ForeignJson(diagnosis, "netmask")},
                            {"gateway", ForeignJson(diagnosis, "gateway")},
                            {"dnsNameservers", ForeignJson(diagnosis, "dns")},
                            {"method", ForeignJson(diagnosis, "mode")}};
        entry["sourcedStanza"] = SourcedJson(diagnosis);
        document["devices"].push_back(std::move(entry));
    }
    return document;
}

// Where the device's configured values come from, and the mended text of a
// value the module cannot read.
ConfigDiagnosis DiagnoseDevice(DeviceReport& device, const std::optional<std::string>& text)
{
    if (!device.interfaceName.Ok()) {
        return {};
    }
    const std::string name = *device.interfaceName.value;
    std::vector<std::string> fields;
    const auto look = [&](auto& outcome, const std::string& field) {
        if (outcome.Ok()) {
            fields.push_back(field);
        } else if (outcome.errorType == "std::out_of_range" && text) {
            outcome.userText = DescribeLineWithoutValue(InterfacesText(*text), interfacesFile, name, FileKey(field),
                                                        field, device.device);
        }
    };
    look(device.address, "address");
    look(device.netmask, "netmask");
    look(device.gateway, "gateway");
    look(device.nameServers, "dns");
    look(device.method, "mode");
    return Diagnose(text, name, fields);
}

} // namespace

int RunReport(const PluginHost& host, const HostSettings& settings, const Presentation& how, std::ostream& out)
{
    const auto& ethernet = host.Get<IEthernetInfoModule>();
    std::vector<DeviceReport> devices;
    const unsigned int deviceCount = ethernet.GetDeviceCount();
    for (unsigned int device = 1; device <= deviceCount; ++device) {
        devices.push_back(CollectDevice(host, ethernet, settings, device, how.quiet));
    }
    const auto text = ReadInterfacesFile();
    std::vector<ConfigDiagnosis> diagnoses;
    for (auto& device : devices) {
        diagnoses.push_back(DiagnoseDevice(device, text));
    }
    if (how.json) {
        out << RenderJson(host, settings, devices, diagnoses).dump(2) << '\n';
    } else {
        out << RenderText(host, settings, devices, diagnoses, how.technical);
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
