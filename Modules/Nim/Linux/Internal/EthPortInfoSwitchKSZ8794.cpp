#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

namespace {

bool IsUnlinked(const PortFileText& text)
{
    return text.StartsWith("unlinked");
}

// The switch has no gigabit ports.
constexpr PortTextCode<LinkSpeed> speedTexts[] = {{"100\n", LinkSpeed::Speed100}, {"10\n", LinkSpeed::Speed10}};

constexpr PortTextCode<LinkDuplex> duplexTexts[] = {{"full", LinkDuplex::Full}, {"half", LinkDuplex::Half}};

} // namespace

EthPortInfoSwitchKSZ8794::EthPortInfoSwitchKSZ8794(unsigned int deviceIndex, unsigned int portIndex,
                                                   const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
    : files(log, deviceIndex, portIndex),
      speedFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.speed", deviceIndex, portIndex))),
      duplexFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.duplex", deviceIndex, portIndex)))
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
    return DecodePortText(text, speedTexts, LinkSpeed::Unknown);
}

LinkDuplex EthPortInfoSwitchKSZ8794::GetPortLinkDuplex() const
{
    PortFileText text;
    if (!files.Read(fdDuplex, speedFilePath, "", text) || IsUnlinked(text)) {
        return LinkDuplex::Unknown;
    }
    return DecodePortText(text, duplexTexts, LinkDuplex::Unknown);
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
