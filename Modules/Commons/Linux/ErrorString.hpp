#pragma once

#include <string>

namespace Zel::Hardware::Modules::Commons::Linux {

// The C library's text of an errno value, for messages.
class ErrorString {
public:
    std::string GetString(int errorNumber) const;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
