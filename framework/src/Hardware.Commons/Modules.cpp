#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>

namespace Zel::Hardware::Commons::Modules {

// Out-of-line destructors: the type information of these classes lives in
// this library, so a module created by a plug-in casts correctly in the host.
IHardwareModule::~IHardwareModule() = default;
HardwareModuleProvider::~HardwareModuleProvider() = default;

IHardwareModule* HardwareModuleProvider::GetHardwareModuleByName(const BasicString& name) const
{
    auto found = modules.find(name);
    return found != modules.end() ? found->second : nullptr;
}

void HardwareModuleProvider::AddHardwareModule(IHardwareModule& module)
{
    AddHardwareModule(module.GetModuleName(), module);
}

void HardwareModuleProvider::AddHardwareModule(const BasicString& name, IHardwareModule& module)
{
    modules[name] = &module;
}

HardwareModuleLibraryBase::HardwareModuleLibraryBase(System::Commons::AppDomain& appDomain)
    : ModuleLibraryBase<IHardwareModule>(appDomain)
{
}

HardwareModuleLibraryBase::~HardwareModuleLibraryBase() = default;

std::unique_ptr<IHardwareModule> HardwareModuleLibraryBase::CreateHardwareModule(const BasicString& moduleName)
{
    std::unique_ptr<IHardwareModule> module = CreateModule(moduleName);
    if (module) {
        module->GetExtendedData().SetLibraryPointer(this);
    }
    return module;
}

} // namespace Zel::Hardware::Commons::Modules
