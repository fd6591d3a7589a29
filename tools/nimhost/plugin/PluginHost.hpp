#pragma once

#include "settings/HostSettings.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleName.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// A module the commands need is not among those the plug-in registers.
class ModuleNotRegistered : public std::runtime_error {
public:
    explicit ModuleNotRegistered(const std::string& moduleName)
        : std::runtime_error("the plug-in registers no module '" + moduleName + "'")
    {
    }
};

// Runs the plug-in through the module lifecycle exactly as the controller
// framework does: load the library (CreateHardwareModuleLibrary), create every
// registered module by name, put them all into one provider, SetupSettings
// each in registration order with its own settings, then the queries, then
// Dispose, and delete the modules before the library is unloaded.
//
// The AppDomain (with its LogManager) must outlive this object.
class PluginHost {
public:
    // Throws the loader's InvalidOperationException when the library cannot
    // be loaded or has no entry point.
    PluginHost(const std::string& pluginPath, Zel::System::Commons::AppDomain& appDomain);
    ~PluginHost();
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    const BasicString& GetFileName() const { return loader.GetFileName(); }
    std::vector<BasicString> GetModuleNames() const { return loader.GetModuleNames(); }

    // Creates the modules and sets them up. Exceptions of a module's
    // SetupSettings pass to the caller; the modules whose set-up completed
    // before it are disposed by Stop, as after a normal run.
    void Start(const HostSettings& settings);

    // Dispose for every module whose set-up completed, in registration order,
    // then deletes all modules (the provider only points at them). Throws the first exception a Dispose threw, after
    // every module is gone.
    void Stop();

    // The module registered under T's name, as a module finds it through the
    // provider. Throws ModuleNotRegistered when there is none.
    template <typename T>
    T& Get() const
    {
        T* module = provider.GetHardwareModule<T>();
        if (module == nullptr) {
            throw ModuleNotRegistered(Zel::Hardware::Commons::Modules::GetModuleNameOf<T>());
        }
        return *module;
    }

private:
    struct Entry {
        BasicString name;
        std::unique_ptr<Zel::Hardware::Commons::Modules::IHardwareModule> module;
        bool setUp = false;
    };

    // Declared first, destroyed last: the modules' code lives in the library.
    Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader loader;
    Zel::Hardware::Commons::Modules::HardwareModuleProvider provider;
    std::vector<Entry> modules;
};

} // namespace Zel::Tools::Nimhost
