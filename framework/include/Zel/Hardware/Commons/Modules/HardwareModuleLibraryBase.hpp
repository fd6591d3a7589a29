#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Extensibility/ModuleFactory.hpp>
#include <Zel/System/Commons/Extensibility/ModuleLibraryBase.hpp>

#include <memory>

namespace Zel::Hardware::Commons::Modules {

// The library object of a hardware-module plug-in: its factory table and the
// file it was loaded from (set by the loader).
class ZEL_API HardwareModuleLibraryBase : public System::Commons::Extensibility::ModuleLibraryBase<IHardwareModule>,
                                          public System::Commons::Extensibility::ModuleFactory<IHardwareModule> {
public:
    explicit HardwareModuleLibraryBase(System::Commons::AppDomain& appDomain);
    ~HardwareModuleLibraryBase() override;

    // Creates the module by name and records this library in its extended
    // data. Throws ArgumentException for an unknown name.
    std::unique_ptr<IHardwareModule> CreateHardwareModule(const BasicString& moduleName);

    const BasicString& GetLibraryFileName() const { return libraryFileName; }
    void SetLibraryFileName(const BasicString& fileName) { libraryFileName = fileName; }

private:
    BasicString libraryFileName;
};

// The plug-in's entry point as the loader calls it.
using CreateHardwareModuleLibraryFunction = HardwareModuleLibraryBase* (*)(System::Commons::AppDomain&);

} // namespace Zel::Hardware::Commons::Modules
