#include "Modules/Nim/Linux/Internal/EthPortInfoSysFile.hpp"

#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

namespace {

// "unknown", "dormant", "lowerlayerdown", ... are no link state we know.
constexpr PortTextCode<LinkState> operstateTexts[] = {{"down", LinkState::Down}, {"up", LinkState::Up}};

// The line feed separates 10, 100 and 1000.
constexpr PortTextCode<LinkSpeed> speedTexts[] = {{"-1", LinkSpeed::Unknown},
                                                  {"1000\n", LinkSpeed::Speed1000},
                                                  {"100\n", LinkSpeed::Speed100},
                                                  {"10\n", LinkSpeed::Speed10}};

constexpr PortTextCode<LinkDuplex> duplexTexts[] = {{"unknown", LinkDuplex::Unknown},
                                                    {"full", LinkDuplex::Full},
                                                    {"half", LinkDuplex::Half}};

} // namespace

EthPortInfoSysFile::EthPortInfoSysFile(unsigned int deviceIndex, unsigned int portIndex,
                                       const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
    : files(log, deviceIndex, portIndex),
      sysFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.sysFile", deviceIndex, portIndex)))
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
    return files.Read(fdOperstate, sysFilePath, "operstate", text)
        ? DecodePortText(text, operstateTexts, LinkState::Unknown)
        : LinkState::Unknown;
}

LinkSpeed EthPortInfoSysFile::GetPortLinkSpeed() const
{
    PortFileText text;
    return files.Read(fdSpeed, sysFilePath, "speed", text) ? DecodePortText(text, speedTexts, LinkSpeed::Unknown)
                                                           : LinkSpeed::Unknown;
}

LinkDuplex EthPortInfoSysFile::GetPortLinkDuplex() const
{
    PortFileText text;
    return files.Read(fdDuplex, sysFilePath, "duplex", text) ? DecodePortText(text, duplexTexts, LinkDuplex::Unknown)
                                                             : LinkDuplex::Unknown;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
