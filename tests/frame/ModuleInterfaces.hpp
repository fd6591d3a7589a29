#pragma once

// The four module interfaces of the plug-in, with their registration names,
// for tests that go through every registered module.
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>

#include <array>

namespace Zel::Test {

struct ModuleInterface {
    const char* name;
    bool (*implementedBy)(Zel::Hardware::Commons::Modules::IHardwareModule& module);
};

template <typename Interface>
bool Implements(Zel::Hardware::Commons::Modules::IHardwareModule& module)
{
    return dynamic_cast<Interface*>(&module) != nullptr;
}

// In the order the library registers them.
inline const std::array<ModuleInterface, 4> moduleInterfaces{{
    {"Zel.Hardware.Nim.Modules.IEthernetInfoModule", &Implements<Zel::Hardware::Nim::Modules::IEthernetInfoModule>},
    {"Zel.Hardware.Nim.Modules.IIpConfigModule", &Implements<Zel::Hardware::Nim::Modules::IIpConfigModule>},
    {"Zel.Hardware.Nim.Modules.IIpStatusModule", &Implements<Zel::Hardware::Nim::Modules::IIpStatusModule>},
    {"Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule",
     &Implements<Zel::Hardware::Nim::Modules::INetworkComponentRegistrationModule>},
}};

} // namespace Zel::Test
