#pragma once

#include "Modules/Nim/Linux/Internal/PortFileText.hpp"

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// Opens and reads the attribute files of one port (sysfs or a switch driver)
// for that port's queries, with the port's messages: a file that cannot be
// opened throws, a failed read is logged once on the owning class's channel
// under the port's device and port number. The port owns the descriptors.
// Read is const and may run on any thread.
class PortFileReader {
public:
    using LogChannel = ::Zel::System::Commons::Logging::LogChannel;
    using BasicString = ::Zel::System::Commons::BasicString;

    PortFileReader(const LogChannel& log, unsigned int deviceIndex, unsigned int portIndex) noexcept
        : log(log), deviceIndex(deviceIndex), portIndex(portIndex)
    {
    }

    // open(path, O_RDONLY); InvalidOperationException "Could not open '{0}'
    // for read." when that fails.
    static int OpenForRead(const BasicString& path);

    // One read of fd from offset 0 into text. On failure logs, at error
    // level, the port's message naming the file as directory + name (name may
    // be empty), and gives false.
    bool Read(int fd, const BasicString& directory, const char* name, PortFileText& text) const;

private:
    const LogChannel& log;
    unsigned int deviceIndex;
    unsigned int portIndex;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
