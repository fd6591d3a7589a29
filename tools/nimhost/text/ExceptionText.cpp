#include "text/ExceptionText.hpp"

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

namespace Zel::Tools::Nimhost {

std::string DescribeForUser(const std::string& type, const std::string& message, bool technical)
{
    if (technical) {
        return message.empty() ? type : type + ": " + message;
    }
    if (type.rfind("std::", 0) == 0 || message.empty()) {
        return "the plug-in failed unexpectedly (--json or --log-level 7 show the details)";
    }
    return message;
}

std::string DescribeForUser(const std::exception& e, bool technical)
{
    return DescribeForUser(ExceptionTypeName(e), e.what(), technical);
}

} // namespace Zel::Tools::Nimhost
