#include "ExceptionText.hpp"

#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>

#include <typeinfo>

namespace Zel::Tools::Nimhost {

std::string ExceptionTypeName(const std::exception& e)
{
    const char* mangled = typeid(e).name();
    std::string name = Zel::System::Commons::Diagnostics::RuntimeTypeInfo::DemangleSymbol(mangled);
    return name.empty() ? std::string(mangled) : name;
}

std::string DescribeException(const std::exception& e)
{
    return ExceptionTypeName(e) + ": " + e.what();
}

} // namespace Zel::Tools::Nimhost
