#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// The first bytes of a sysfs attribute or switch driver file, read afresh for
// one query. The texts the ports understand ("unknown\n", "1000\n",
// "unlinked", "full-duplex") are decided by their first bytes; 12 bytes hold
// every prefix compared.
struct PortFileText {
    static constexpr std::size_t BufferSize = 12;

    char bytes[BufferSize] = {};
    ssize_t count = -1;
    int error = 0;

    // One pread from offset 0: no seek and no shared file position, so the
    // descriptor opened once serves every later query, from any thread.
    static PortFileText Read(int fd)
    {
        PortFileText text;
        text.count = pread(fd, text.bytes, sizeof(text.bytes), 0);
        if (text.count < 0) {
            text.error = errno;
        }
        return text;
    }

    bool Failed() const { return count < 0; }

    bool StartsWith(const char* prefix, std::size_t length) const { return std::memcmp(bytes, prefix, length) == 0; }
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
