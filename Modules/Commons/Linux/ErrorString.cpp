#include "Modules/Commons/Linux/ErrorString.hpp"

#include <cstring>

namespace Zel::Hardware::Modules::Commons::Linux {

std::string ErrorString::GetString(int errorNumber) const
{
    char buffer[64] = {};
    // The GNU strerror_r returns either the buffer (text cut to 63 characters)
    // or a static text of the C library, which is taken whole.
    const char* text = strerror_r(errorNumber, buffer, sizeof(buffer) - 1);
    return std::string(text);
}

} // namespace Zel::Hardware::Modules::Commons::Linux
