#include "cli/Commands.hpp"
#include "text/ExitCode.hpp"

#include <nlohmann/json.hpp>

namespace Zel::Tools::Nimhost {

int RunSettings(const HostSettings& settings, bool json, std::ostream& out)
{
    if (!json) {
        const std::string origin = settings.GetPath().empty() ? std::string("built from this machine's interfaces")
                                                              : "from " + settings.GetPath();
        out << "# Module settings " << origin << ", as nimhost hands them to the plug-in.\n";
        out << settings.ToToml();
        return ExitCode::Success;
    }
    // The same shape as the settings file: texts by key, "fields" for tables.
    nlohmann::ordered_json document = nlohmann::ordered_json::object();
    for (const auto& [name, moduleSettings] : settings.GetModules()) {
        nlohmann::ordered_json module = nlohmann::ordered_json::object();
        for (const auto& [key, value] : moduleSettings.GetSettings()) {
            module[key] = std::string(value);
        }
        nlohmann::ordered_json fields = nlohmann::ordered_json::object();
        for (const auto& [fieldName, field] : moduleSettings.GetSettingFields()) {
            nlohmann::ordered_json lines = nlohmann::ordered_json::array();
            for (unsigned int line = 1; line <= field.GetLineCount(); ++line) {
                nlohmann::ordered_json columns = nlohmann::ordered_json::array();
                for (unsigned int column = 1; column <= field.GetColumnCount(line); ++column) {
                    columns.push_back(std::string(field.GetSetting(line, column)));
                }
                lines.push_back(std::move(columns));
            }
            fields[fieldName] = std::move(lines);
        }
        if (!fields.empty()) {
            module["fields"] = std::move(fields);
        }
        document[name] = std::move(module);
    }
    out << document.dump(2) << '\n';
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
