#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>

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
    bool StartsWith(std::string_view prefix) const { return StartsWith(prefix.data(), prefix.size()); }
};

// One row of a decoding table: a text's first bytes and the code they mean.
template <typename Code>
struct PortTextCode {
    std::string_view prefix;
    Code code;
};

// The code of the first row whose prefix the text starts with, in table
// order, else `otherwise`.
template <typename Code, std::size_t N>
Code DecodePortText(const PortFileText& text, const PortTextCode<Code> (&table)[N], Code otherwise)
{
    for (const auto& row : table) {
        if (text.StartsWith(row.prefix)) {
            return row.code;
        }
    }
    return otherwise;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
