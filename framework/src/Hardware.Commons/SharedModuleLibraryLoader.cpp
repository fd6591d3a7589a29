#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <dlfcn.h>

namespace Zel::Hardware::Commons::Modules {

namespace {
constexpr const char* entryPointName = "CreateHardwareModuleLibrary";
}

SharedModuleLibraryLoader::SharedModuleLibraryLoader(const BasicString& fileName, System::Commons::AppDomain& appDomain)
    : fileName(fileName)
{
    handle = ::dlopen(fileName.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* error = ::dlerror();
        throw System::Commons::InvalidOperationException(
            BasicString::Format("Could not load library '{0}': {1}", fileName, error != nullptr ? error : ""));
    }
    void* symbol = ::dlsym(handle, entryPointName);
    if (symbol == nullptr) {
        ::dlclose(handle);
        throw System::Commons::InvalidOperationException(
            BasicString::Format("Library '{0}' has no entry point '{1}'", fileName, entryPointName));
    }
    auto create = reinterpret_cast<CreateHardwareModuleLibraryFunction>(symbol);
    try {
        library = create(appDomain);
    } catch (...) {
        ::dlclose(handle);
        throw;
    }
    if (library == nullptr) {
        ::dlclose(handle);
        throw System::Commons::InvalidOperationException(
            BasicString::Format("Library '{0}' returned no module library", fileName));
    }
    library->SetLibraryFileName(fileName);
}

SharedModuleLibraryLoader::~SharedModuleLibraryLoader()
{
    if (handle != nullptr) {
        ::dlclose(handle);
    }
}

} // namespace Zel::Hardware::Commons::Modules
