#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleName.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>

#include <map>

namespace Zel::Hardware::Commons::Modules {

// Lets a module find the other modules the framework created. The framework
// fills it before it calls SetupSettings; the provider does not own them.
class ZEL_API HardwareModuleProvider {
public:
    virtual ~HardwareModuleProvider();

    // Null when no module of that name exists.
    virtual IHardwareModule* GetHardwareModuleByName(const BasicString& name) const;

    // The module registered under T's name, null when there is none or when
    // that module does not implement T.
    template <typename T>
    T* GetHardwareModule() const
    {
        IHardwareModule* module = GetHardwareModuleByName(GetModuleNameOf<T>());
        if (module == nullptr) {
            return nullptr;
        }
        return dynamic_cast<T*>(module);
    }

    // Adds a module under its own name (GetModuleName); a later module of the
    // same name replaces the earlier.
    void AddHardwareModule(IHardwareModule& module);
    void AddHardwareModule(const BasicString& name, IHardwareModule& module);

private:
    std::map<BasicString, IHardwareModule*> modules;
};

} // namespace Zel::Hardware::Commons::Modules
