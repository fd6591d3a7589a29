#include "Modules/Nim/Linux/ModuleLibrary.hpp"

#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/IpConfigModule.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"
#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include <memory>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::Hardware::Commons::Modules::IHardwareModule;

namespace {

// Factories: no arguments, no captured state; each builds its module in its
// initial state.
template <typename Module>
std::unique_ptr<IHardwareModule> CreateModule()
{
    return std::unique_ptr<IHardwareModule>(new Module());
}

} // namespace

ModuleLibrary::ModuleLibrary(Zel::System::Commons::AppDomain& appDomain) : HardwareModuleLibraryBase(appDomain)
{
    // Factories, in registration order (each module adds its line here):
    // 1. EthernetInfoModule
    AddFactoryFunction(EthernetInfoModule::moduleName, &Linux::CreateModule<EthernetInfoModule>);
    // 2. IpConfigModule
    AddFactoryFunction(IpConfigModule::moduleName, &Linux::CreateModule<IpConfigModule>);
    // 3. IpStatusModule
    AddFactoryFunction(IpStatusModule::moduleName, &Linux::CreateModule<IpStatusModule>);
    // 4. NetworkComponentRegistrationModule
    AddFactoryFunction(NetworkComponentRegistrationModule::moduleName,
                       &Linux::CreateModule<NetworkComponentRegistrationModule>);
}

ModuleLibrary::~ModuleLibrary() = default;

} // namespace Zel::Hardware::Modules::Nim::Linux

extern "C" Zel::Hardware::Commons::Modules::HardwareModuleLibraryBase*
CreateHardwareModuleLibrary(Zel::System::Commons::AppDomain& appDomain)
{
    // Built once under the language's thread-safe guard; a constructor that
    // throws releases the guard, so a later call tries again.
    static Zel::Hardware::Modules::Nim::Linux::ModuleLibrary library(appDomain);
    return &library;
}
