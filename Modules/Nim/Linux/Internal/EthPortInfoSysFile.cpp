#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"
#include "Modules/Nim/Linux/Internal/PortFileText.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::System::Commons::InvalidOperationException;

namespace {

// Descriptors opened before a failing one stay open: the destructor of a
// half-built object does not run, and set-up fails as a whole anyway.
int OpenForRead(const BasicString& path)
{
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        throw InvalidOperationException(BasicString::Format("Could not open '{0}' for read.", path));
    }
    return fd;
}

LinkState DecodeOperstate(const PortFileText& text)
{
    if (text.StartsWith("down", 4)) {
        return LinkState::Down;
    }
    if (text.StartsWith("up", 2)) {
        return LinkState::Up;
    }
    // "unknown", "dormant", "lowerlayerdown", ...
    return LinkState::Unknown;
}

LinkSpeed DecodeSpeed(const PortFileText& text)
{
    if (text.StartsWith("-1", 2)) {
        return LinkSpeed::Unknown;
    }
    // The line feed separates 10, 100 and 1000.
    if (text.StartsWith("1000\n", 5)) {
        return LinkSpeed::Speed1000;
    }
    if (text.StartsWith("100\n", 4)) {
        return LinkSpeed::Speed100;
    }
    if (text.StartsWith("10\n", 3)) {
        return LinkSpeed::Speed10;
    }
    return LinkSpeed::Unknown;
}

LinkDuplex DecodeDuplex(const PortFileText& text)
{
    if (text.StartsWith("unknown", 7)) {
        return LinkDuplex::Unknown;
    }
    if (text.StartsWith("full", 4)) {
        return LinkDuplex::Full;
    }
    if (text.StartsWith("half", 4)) {
        return LinkDuplex::Half;
    }
    return LinkDuplex::Unknown;
}

} // namespace

EthPortInfoSysFile::EthPortInfoSysFile(unsigned int deviceIndex, unsigned int portIndex,
                                       const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
    : deviceIndex(deviceIndex)
    , portIndex(portIndex)
    , sysFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.sysFile", deviceIndex, portIndex)))
{
    // The file names are appended without a separator: the setting is the
    // interface's directory and ends in '/'.
    fdOperstate = OpenForRead(sysFilePath + "operstate");
    fdSpeed = OpenForRead(sysFilePath + "speed");
    fdDuplex = OpenForRead(sysFilePath + "duplex");
}

EthPortInfoSysFile::~EthPortInfoSysFile()
{
    close(fdOperstate);
    close(fdSpeed);
    close(fdDuplex);
}

LinkState EthPortInfoSysFile::GetPortLinkState() const
{
    const PortFileText text = PortFileText::Read(fdOperstate);
    if (text.Failed()) {
        log(3, "Error GetPortLinkState() for device {0}, port {1} ({2}operstate): errno {3}", deviceIndex, portIndex,
            sysFilePath, text.error);
        return LinkState::Unknown;
    }
    return DecodeOperstate(text);
}

LinkSpeed EthPortInfoSysFile::GetPortLinkSpeed() const
{
    const PortFileText text = PortFileText::Read(fdSpeed);
    if (text.Failed()) {
        // The message names GetPortLinkState for every query; log filters match that text.
        log(3, "Error GetPortLinkState() for device {0}, port {1} ({2}speed): errno {3}", deviceIndex, portIndex,
            sysFilePath, text.error);
        return LinkSpeed::Unknown;
    }
    return DecodeSpeed(text);
}

LinkDuplex EthPortInfoSysFile::GetPortLinkDuplex() const
{
    const PortFileText text = PortFileText::Read(fdDuplex);
    if (text.Failed()) {
        // The message names GetPortLinkState for every query; log filters match that text.
        log(3, "Error GetPortLinkState() for device {0}, port {1} ({2}duplex): errno {3}", deviceIndex, portIndex,
            sysFilePath, text.error);
        return LinkDuplex::Unknown;
    }
    return DecodeDuplex(text);
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
