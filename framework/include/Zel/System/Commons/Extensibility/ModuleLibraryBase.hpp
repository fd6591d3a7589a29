#pragma once

#include <Zel/System/Commons/AppDomain.hpp>

namespace Zel::System::Commons::Extensibility {

// The library object a plug-in hands to the host: it remembers the
// application domain it was built in.
template <typename IModule>
class ModuleLibraryBase {
public:
    explicit ModuleLibraryBase(AppDomain& appDomain) : appDomain(appDomain) {}
    virtual ~ModuleLibraryBase() = default;
    ModuleLibraryBase(const ModuleLibraryBase&) = delete;
    ModuleLibraryBase& operator=(const ModuleLibraryBase&) = delete;

    AppDomain& GetAppDomain() const { return appDomain; }

private:
    AppDomain& appDomain;
};

} // namespace Zel::System::Commons::Extensibility
