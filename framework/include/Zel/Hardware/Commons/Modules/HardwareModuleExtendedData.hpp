#pragma once

#include <Zel/Export.hpp>

namespace Zel::Hardware::Commons::Modules {

class HardwareModuleLibraryBase;

// Framework data kept in every module: the library that created it.
class ZEL_API HardwareModuleExtendedData {
public:
    HardwareModuleLibraryBase* GetLibraryPointer() const { return library; }
    void SetLibraryPointer(HardwareModuleLibraryBase* newLibrary) { library = newLibrary; }

private:
    HardwareModuleLibraryBase* library = nullptr;
};

} // namespace Zel::Hardware::Commons::Modules
