#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

namespace {

bool IsUnlinked(const PortFileText& text)
{
    return text.StartsWith("unlinked", 8);
}

} // namespace

EthPortInfoSwitchKSZ8794::EthPortInfoSwitchKSZ8794(unsigned int deviceIndex, unsigned int portIndex,
                                                   const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
    : files(log, deviceIndex, portIndex)
    , speedFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.speed", deviceIndex, portIndex)))
    , duplexFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.duplex", deviceIndex, portIndex)))
{
    fdSpeed = PortFileReader::OpenForRead(speedFilePath);
    // A duplex file that cannot be opened is never reported at set-up: the
    // port is built with fdDuplex -1 and each duplex query logs and answers
    // unknown. Installed systems rely on that.
    fdDuplex = open(duplexFilePath.c_str(), O_RDONLY);
}

EthPortInfoSwitchKSZ8794::~EthPortInfoSwitchKSZ8794()
{
    close(fdSpeed);
    close(fdDuplex);
}

// All three queries report a failed read with one text naming
// GetPortLinkState and the speed file; log filters match exactly that text.
LinkState EthPortInfoSwitchKSZ8794::GetPortLinkState() const
{
    PortFileText text;
    if (!files.Read(fdSpeed, speedFilePath, "", text)) {
        return LinkState::Unknown;
    }
    // Every text but "unlinked" means a link, also one without a known speed.
    return IsUnlinked(text) ? LinkState::Down : LinkState::Up;
}

LinkSpeed EthPortInfoSwitchKSZ8794::GetPortLinkSpeed() const
{
    PortFileText text;
    if (!files.Read(fdSpeed, speedFilePath, "", text) || IsUnlinked(text)) {
        return LinkSpeed::Unknown;
    }
    if (text.StartsWith("100\n", 4)) {
        return LinkSpeed::Speed100;
    }
    if (text.StartsWith("10\n", 3)) {
        return LinkSpeed::Speed10;
    }
    // The switch has no gigabit ports.
    return LinkSpeed::Unknown;
}

LinkDuplex EthPortInfoSwitchKSZ8794::GetPortLinkDuplex() const
{
    PortFileText text;
    if (!files.Read(fdDuplex, speedFilePath, "", text) || IsUnlinked(text)) {
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

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
