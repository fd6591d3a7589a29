#pragma once

#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

namespace Zel::Hardware::Modules::Nim::Linux {

// The plug-in's library object: registers the factories of its four modules
// in the order EthernetInfo, IpConfig, IpStatus, NetworkComponentRegistration.
class ModuleLibrary : public Zel::Hardware::Commons::Modules::HardwareModuleLibraryBase {
public:
    explicit ModuleLibrary(Zel::System::Commons::AppDomain& appDomain);
    ~ModuleLibrary() override;
};

} // namespace Zel::Hardware::Modules::Nim::Linux

// The plug-in's only exported symbol. The first call builds the library
// object from appDomain; every call returns that same object, which lives
// until the plug-in is unloaded.
extern "C" __attribute__((visibility("default"))) Zel::Hardware::Commons::Modules::HardwareModuleLibraryBase*
CreateHardwareModuleLibrary(Zel::System::Commons::AppDomain& appDomain);
