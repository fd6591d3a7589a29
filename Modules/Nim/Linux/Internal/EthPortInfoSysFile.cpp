#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"

#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

namespace {

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
    : files(log, deviceIndex, portIndex)
    , sysFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.sysFile", deviceIndex, portIndex)))
{
    // The file names are appended without a separator: the setting is the
    // interface's directory and ends in '/'.
    fdOperstate = PortFileReader::OpenForRead(sysFilePath + "operstate");
    fdSpeed = PortFileReader::OpenForRead(sysFilePath + "speed");
    fdDuplex = PortFileReader::OpenForRead(sysFilePath + "duplex");
}

EthPortInfoSysFile::~EthPortInfoSysFile()
{
    close(fdOperstate);
    close(fdSpeed);
    close(fdDuplex);
}

LinkState EthPortInfoSysFile::GetPortLinkState() const
{
    PortFileText text;
    return files.Read(fdOperstate, sysFilePath, "operstate", text) ? DecodeOperstate(text) : LinkState::Unknown;
}

LinkSpeed EthPortInfoSysFile::GetPortLinkSpeed() const
{
    PortFileText text;
    return files.Read(fdSpeed, sysFilePath, "speed", text) ? DecodeSpeed(text) : LinkSpeed::Unknown;
}

LinkDuplex EthPortInfoSysFile::GetPortLinkDuplex() const
{
    PortFileText text;
    return files.Read(fdDuplex, sysFilePath, "duplex", text) ? DecodeDuplex(text) : LinkDuplex::Unknown;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
