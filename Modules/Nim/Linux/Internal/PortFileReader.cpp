#include "Modules/Nim/Linux/Internal/PortFileReader.hpp"

#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <fcntl.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

int PortFileReader::OpenForRead(const BasicString& path)
{
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        throw ::Zel::System::Commons::InvalidOperationException(
            BasicString::Format("Could not open '{0}' for read.", path));
    }
    return fd;
}

bool PortFileReader::Read(int fd, const BasicString& directory, const char* name, PortFileText& text) const
{
    text = PortFileText::Read(fd);
    if (!text.Failed()) {
        return true;
    }
    // Every query's failure names GetPortLinkState; log filters match that text.
    log(::Zel::System::Commons::Logging::Error, "Error GetPortLinkState() for device {0}, port {1} ({2}{3}): errno {4}",
        deviceIndex, portIndex, directory, name, text.error);
    return false;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
