#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <memory>
#include <vector>

namespace Zel::Hardware::Commons::Modules {

// Loads a plug-in with dlopen, calls its CreateHardwareModuleLibrary and
// creates modules by name through the library it returns. Modules created
// here must be destroyed before the loader, which unloads the plug-in.
class ZEL_API SharedModuleLibraryLoader {
public:
    // Throws InvalidOperationException "Could not load library '{0}': {1}"
    // or "Library '{0}' has no entry point '{1}'".
    SharedModuleLibraryLoader(const BasicString& fileName, System::Commons::AppDomain& appDomain);
    ~SharedModuleLibraryLoader();
    SharedModuleLibraryLoader(const SharedModuleLibraryLoader&) = delete;
    SharedModuleLibraryLoader& operator=(const SharedModuleLibraryLoader&) = delete;

    const BasicString& GetFileName() const { return fileName; }
    HardwareModuleLibraryBase& GetLibrary() const { return *library; }
    std::vector<BasicString> GetModuleNames() const { return library->GetModuleNames(); }

    std::unique_ptr<IHardwareModule> CreateModule(const BasicString& moduleName) const
    {
        return library->CreateHardwareModule(moduleName);
    }

private:
    BasicString fileName;
    void* handle = nullptr;
    HardwareModuleLibraryBase* library = nullptr;
};

} // namespace Zel::Hardware::Commons::Modules
