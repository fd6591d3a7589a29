#include "BenchRig.hpp"

#include <Zel/Hardware/Commons/Modules/SettingField.hpp>

#include <fmt/format.h>

namespace Zel::Bench {

using Zel::Hardware::Commons::Modules::SettingField;
using Zel::System::Commons::BasicString;

ModuleSettings EthernetSettings(const std::vector<std::string>& interfaces, unsigned int ports,
                                const std::vector<std::string>& modes)
{
    ModuleSettings settings;
    settings.AddSetting("mandatoryInterfaces", fmt::format("{}", interfaces.size()));
    SettingField table("interfaces");
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        const auto device = static_cast<unsigned int>(i + 1);
        std::string names;
        for (unsigned int port = 1; port <= ports; ++port) {
            names += fmt::format("{}X{}", port == 1 ? "" : ";", port);
            settings.AddSetting(BasicString::Format("path.{0}.{1}.sysFile", device, port),
                                BasicString::Format("/sys/class/net/{0}/", interfaces[i]));
        }
        table.AddLine({BasicString::Format("{0}", device), BasicString::Format("Port {0}", device),
                       BasicString(interfaces[i]), BasicString::Format("{0}", ports), BasicString(modes[i]),
                       BasicString(names), BasicString("Ethernet")});
    }
    settings.AddSettingField("interfaces", table);
    return settings;
}

// Built once and kept for the whole run, as the framework keeps its modules.
BenchRig& Rig()
{
    static BenchRig* rig = [] {
        auto* built = new BenchRig;
        built->ethernet.SetupSettings(EthernetSettings({sysFileInterface, i210Interface}, 1, {"sysFile", "i210Driver"}),
                                      built->provider);
        built->provider.AddHardwareModule(built->ethernet);
        built->ipStatus.SetupSettings(ModuleSettings(), built->provider);
        built->ipConfig.SetupSettings(ModuleSettings(), built->provider);
        return built;
    }();
    return *rig;
}

} // namespace Zel::Bench
