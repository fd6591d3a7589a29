#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleExtendedData.hpp>
#include <Zel/System/Commons/BasicString.hpp>

namespace Zel::Hardware::Commons::Modules {

using Zel::System::Commons::BasicString;

class ModuleSettings;
class HardwareModuleProvider;

// A hardware module as the framework sees it. The framework creates it
// through a library's factory, calls SetupSettings once, then the module
// interface's operations from its own threads, then Dispose, and deletes it.
class ZEL_API IHardwareModule {
public:
    virtual ~IHardwareModule();

    virtual void SetupSettings(const ModuleSettings& settings, const HardwareModuleProvider& provider) = 0;
    virtual void Dispose() = 0;
    virtual const BasicString& GetModuleName() const = 0;
    virtual BasicString GetLibraryFileName() const = 0;
    virtual bool IsEnabled() const = 0;

    // Filled by the framework when the module is created through a library.
    HardwareModuleExtendedData& GetExtendedData() { return extendedData; }
    const HardwareModuleExtendedData& GetExtendedData() const { return extendedData; }

protected:
    IHardwareModule() = default;

private:
    HardwareModuleExtendedData extendedData;
};

} // namespace Zel::Hardware::Commons::Modules
