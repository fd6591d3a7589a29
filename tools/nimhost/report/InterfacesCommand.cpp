#include "cli/Commands.hpp"
#include "text/ExitCode.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <nlohmann/json.hpp>

namespace Zel::Tools::Nimhost {

int RunInterfaces(const PluginHost& host, bool json, std::ostream& out)
{
    const auto names = host.Get<Zel::Hardware::Nim::Modules::IEthernetInfoModule>().GetListOfInterfaceNames();
    if (json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& name : names) {
            list.push_back(std::string(name));
        }
        out << nlohmann::ordered_json{{"interfaces", list}}.dump(2) << '\n';
        return ExitCode::Success;
    }
    for (const auto& name : names) {
        out << name << '\n';
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
