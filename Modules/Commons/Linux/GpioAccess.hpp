#pragma once

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::BasicString;

// Opens, reads, writes and closes the value file of a sysfs GPIO line. No
// state; a descriptor of -1 means the line is not available and is skipped
// silently. Only Open throws.
class GpioAccess : private Zel::System::Commons::Logging::Loggable<GpioAccess, false, false> {
public:
    int Open(const BasicString& path, int flags) const;
    void Close(int& fd, const BasicString& path) const;
    bool Read(int fd, const BasicString& path, bool& value) const;
    void Write(int fd, const BasicString& path, bool value) const;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
