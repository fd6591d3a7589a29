#include "cli/Commands.hpp"
#include "text/ExitCode.hpp"

#include <nlohmann/json.hpp>

namespace Zel::Tools::Nimhost {

int RunModules(const PluginHost& host, bool json, std::ostream& out)
{
    const auto names = host.GetModuleNames();
    if (json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& name : names) {
            list.push_back(std::string(name));
        }
        out << nlohmann::ordered_json{{"plugin", std::string(host.GetFileName())}, {"modules", list}}.dump(2) << '\n';
        return ExitCode::Success;
    }
    out << "Plug-in: " << host.GetFileName() << '\n';
    out << "Modules, in registration order:\n";
    for (const auto& name : names) {
        out << "  " << name << '\n';
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
