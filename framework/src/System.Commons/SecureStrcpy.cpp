#include <Zel/System/Commons/SecureStrcpy.hpp>

#include <cerrno>
#include <cstring>

namespace Zel::System::Commons {

int SecureStrcpy(char* destination, std::size_t destinationSize, const char* source)
{
    if (destination == nullptr || source == nullptr || destinationSize == 0) {
        return EINVAL;
    }
    const std::size_t length = ::strnlen(source, destinationSize);
    if (length < destinationSize) {
        std::memcpy(destination, source, length + 1);
        return 0;
    }
    std::memcpy(destination, source, destinationSize - 1);
    destination[destinationSize - 1] = '\0';
    return ERANGE;
}

} // namespace Zel::System::Commons
