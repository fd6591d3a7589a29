#include "Modules/Commons/Linux/GpioAccess.hpp"

#include "Modules/Commons/Linux/ErrorString.hpp"

#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::Logging::Error;
using Zel::System::Commons::Logging::Warning;

int GpioAccess::Open(const BasicString& path, int flags) const
{
    const int fd = open(path.c_str(), flags);
    if (fd < 0) {
        const int error = errno;
        throw InvalidOperationException(
            BasicString::Format("Could not open '{0}': {1}", path, ErrorString().GetString(error)));
    }
    return fd;
}

void GpioAccess::Close(int& fd, const BasicString& path) const
{
    if (fd == -1) {
        return;
    }
    if (close(fd) != 0) {
        const int error = errno;
        log(Warning, "Could not close '{0}': {1}", path, ErrorString().GetString(error));
        return;
    }
    fd = -1;
}

bool GpioAccess::Read(int fd, const BasicString& path, bool& value) const
{
    if (fd == -1) {
        return false;
    }
    // A line that fails once is given one more chance, so a failing line
    // costs exactly two messages per call.
    for (int attempt = 0; attempt < 2; ++attempt) {
        // The digit and its line feed, from offset 0 so the open value file
        // can be read again and again without seeking.
        char buffer[2] = {};
        const ssize_t count = pread(fd, buffer, sizeof(buffer), 0);
        if (count > 0) {
            value = buffer[0] == '1';
            return true;
        }
        // An empty read is a failure too; errno then holds what it held.
        const int error = errno;
        log(Error, "Could not read '{0}': {1}", path, ErrorString().GetString(error));
    }
    return false;
}

void GpioAccess::Write(int fd, const BasicString& path, bool value) const
{
    if (fd == -1) {
        return;
    }
    const char* text = value ? "1" : "0";
    if (pwrite(fd, text, strnlen(text, 2), 0) < 0) {
        const int error = errno;
        // The missing quote after {0} is the established text; log filters match it.
        log(Error, "Could not write '{0} to '{1}': {2}", text, path, ErrorString().GetString(error));
    }
}

} // namespace Zel::Hardware::Modules::Commons::Linux
