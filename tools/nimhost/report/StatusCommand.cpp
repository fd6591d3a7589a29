#include "cli/Commands.hpp"
#include "text/ExitCode.hpp"
#include "text/TextTable.hpp"

#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>

#include <nlohmann/json.hpp>

namespace Zel::Tools::Nimhost {

int RunStatus(const PluginHost& host, unsigned int device, bool json, std::ostream& out)
{
    const auto& status = host.Get<Zel::Hardware::Nim::Modules::IIpStatusModule>();
    const std::string address = status.GetIpAddress(device);
    const std::string netmask = status.GetSubnetMask(device);
    const std::string gateway = status.GetDefaultGateway(device);
    if (json) {
        const nlohmann::ordered_json document{{"device", device},
                                              {"address", address},
                                              {"netmask", netmask},
                                              {"gateway", gateway}};
        out << document.dump(2) << '\n';
        return ExitCode::Success;
    }
    TextTable table;
    table.AddRow({"address", address});
    table.AddRow({"netmask", netmask});
    table.AddRow({"gateway", gateway});
    out << table.Render();
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
