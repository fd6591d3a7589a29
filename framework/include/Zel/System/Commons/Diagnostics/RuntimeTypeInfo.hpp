#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <typeinfo>

namespace Zel::System::Commons::Diagnostics {

class ZEL_API RuntimeTypeInfo {
public:
    // The readable name of a mangled symbol or type name; empty when the
    // name cannot be demangled.
    static BasicString DemangleSymbol(const char* symbol);

    // The demangled name with every "class ", "struct " and "enum " removed
    // and every "::" replaced by "." (so "A::B" becomes "A.B"). Throws
    // Exception "Demangling of type name '{0}' failed." when demangling fails.
    static BasicString GetDottedTypeName(const std::type_info& type);
};

} // namespace Zel::System::Commons::Diagnostics
