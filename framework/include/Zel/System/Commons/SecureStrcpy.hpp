#pragma once

#include <Zel/Export.hpp>

#include <cstddef>

namespace Zel::System::Commons {

// Copies the C string source into destination, a buffer of destinationSize
// bytes, cutting it to what fits with its terminating zero. Returns 0 when
// the whole string fitted, ERANGE when it was cut, EINVAL for a null pointer
// or an empty buffer (destination untouched then).
ZEL_API int SecureStrcpy(char* destination, std::size_t destinationSize, const char* source);

} // namespace Zel::System::Commons
