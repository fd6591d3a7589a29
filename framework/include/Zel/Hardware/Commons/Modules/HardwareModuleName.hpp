#pragma once

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>

namespace Zel::Hardware::Commons::Modules {

// The registration name of a module interface: its demangled type name with
// "class ", "struct " and "enum " removed and "::" replaced by ".". Used both
// to register a module and to look it up, so the two always agree.
template <typename Interface>
System::Commons::BasicString GetModuleNameOf()
{
    return System::Commons::Diagnostics::RuntimeTypeInfo::GetDottedTypeName(typeid(Interface));
}

} // namespace Zel::Hardware::Commons::Modules
