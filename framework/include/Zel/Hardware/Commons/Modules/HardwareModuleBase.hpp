#pragma once

#include <Zel/Hardware/Commons/Modules/HardwareModuleExtendedData.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleName.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>

namespace Zel::Hardware::Commons::Modules {

// Common frame of a module class Impl that implements Interface: the static
// registration name, computed from Interface when the library is loaded, and
// the library file name.
template <typename Interface, typename Impl>
class HardwareModuleBase : public Interface {
public:
    static const BasicString moduleName;

    const BasicString& GetModuleName() const override { return moduleName; }

    BasicString GetLibraryFileName() const override
    {
        const HardwareModuleLibraryBase* library = this->GetExtendedData().GetLibraryPointer();
        return library != nullptr ? library->GetLibraryFileName() : BasicString();
    }
};

template <typename Interface, typename Impl>
const BasicString HardwareModuleBase<Interface, Impl>::moduleName = GetModuleNameOf<Interface>();

} // namespace Zel::Hardware::Commons::Modules
