#pragma once

#include <exception>
#include <string>

namespace Zel::Tools::Nimhost {

// The exception's dynamic type as a C++ name, for example
// "Zel::System::Commons::InvalidOperationException" or "std::out_of_range".
std::string ExceptionTypeName(const std::exception& e);

// "Type: message", as nimhost reports a failed operation on standard error.
std::string DescribeException(const std::exception& e);

} // namespace Zel::Tools::Nimhost
