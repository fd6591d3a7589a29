#pragma once

#include <exception>
#include <string>

namespace Zel::Tools::Nimhost {

// The exception's dynamic type as a C++ name, for example
// "Zel::System::Commons::InvalidOperationException" or "std::out_of_range".
std::string ExceptionTypeName(const std::exception& e);

// "Type: message", as --log-level 7 and above show a failed operation.
std::string DescribeException(const std::exception& e);

// What a user reads about a failure: the message alone; `technical` (log
// level 7 and above) adds the C++ type. A standard-library exception's text
// means nothing to a board engineer, so it is replaced by a pointer to where
// the details are.
std::string DescribeForUser(const std::string& type, const std::string& message, bool technical);
std::string DescribeForUser(const std::exception& e, bool technical);

} // namespace Zel::Tools::Nimhost
