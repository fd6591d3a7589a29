#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794.hpp"
#include "Modules/Nim/Linux/Internal/PortFileText.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::System::Commons::InvalidOperationException;

namespace {

bool IsUnlinked(const PortFileText& text)
{
    return text.StartsWith("unlinked", 8);
}

} // namespace

EthPortInfoSwitchKSZ8794::EthPortInfoSwitchKSZ8794(unsigned int deviceIndex, unsigned int portIndex,
                                                   const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
    : deviceIndex(deviceIndex)
    , portIndex(portIndex)
    , speedFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.speed", deviceIndex, portIndex)))
    , duplexFilePath(settings.GetSetting(BasicString::Format("path.{0}.{1}.duplex", deviceIndex, portIndex)))
{
    fdSpeed = open(speedFilePath.c_str(), O_RDONLY);
    if (fdSpeed < 0) {
        throw InvalidOperationException(BasicString::Format("Could not open '{0}' for read.", speedFilePath));
    }
    fdDuplex = open(duplexFilePath.c_str(), O_RDONLY);
    // The speed descriptor is tested here, not the duplex one, so a duplex
    // file that cannot be opened is never reported at set-up: the port is
    // built with fdDuplex -1 and each duplex query logs and answers unknown.
    // Installed systems rely on that, so the test stays as it is.
    if (fdSpeed < 0) {
        throw InvalidOperationException(BasicString::Format("Could not open '{0}' for read.", duplexFilePath));
    }
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
    const PortFileText text = PortFileText::Read(fdSpeed);
    if (text.Failed()) {
        log(3, "Error GetPortLinkState() for device {0}, port {1} ({2}): errno {3}", deviceIndex, portIndex,
            speedFilePath, text.error);
        return LinkState::Unknown;
    }
    // Every text but "unlinked" means a link, also one without a known speed.
    return IsUnlinked(text) ? LinkState::Down : LinkState::Up;
}

LinkSpeed EthPortInfoSwitchKSZ8794::GetPortLinkSpeed() const
{
    const PortFileText text = PortFileText::Read(fdSpeed);
    if (text.Failed()) {
        log(3, "Error GetPortLinkState() for device {0}, port {1} ({2}): errno {3}", deviceIndex, portIndex,
            speedFilePath, text.error);
        return LinkSpeed::Unknown;
    }
    if (IsUnlinked(text)) {
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
    const PortFileText text = PortFileText::Read(fdDuplex);
    if (text.Failed()) {
        log(3, "Error GetPortLinkState() for device {0}, port {1} ({2}): errno {3}", deviceIndex, portIndex,
            speedFilePath, text.error);
        return LinkDuplex::Unknown;
    }
    if (IsUnlinked(text)) {
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
