#include "Modules/Nim/Linux/Internal/EthPortInfoI210Drv.hpp"

#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>
#include <Zel/System/Commons/SecureStrcpy.hpp>

#include <cerrno>
#include <cstdint>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::SecureStrcpy;
using Zel::System::Commons::Logging::Error;

// The request numbers and layouts are the kernel's ABI; pin them.
static_assert(SIOCGIFFLAGS == 0x8913);
static_assert(SIOCETHTOOL == 0x8946);
static_assert(ETHTOOL_GSET == 1);
static_assert(IFF_RUNNING == 0x40);
static_assert(IFNAMSIZ == 16);
static_assert(sizeof(ethtool_cmd) == 44);
static_assert(sizeof(void*) != 4 || sizeof(ifreq) == 32);

namespace {

// A zeroed request naming the interface; a name longer than 15 characters
// is cut to what fits with its terminator.
ifreq MakeRequest(const BasicString& interfaceName)
{
    ifreq request{};
    SecureStrcpy(request.ifr_name, IFNAMSIZ, interfaceName.c_str());
    return request;
}

// One ETHTOOL_GSET ioctl. Returns 0, or the errno of the failed ioctl.
int GetEthtoolSettings(int fdSocket, const BasicString& interfaceName, ethtool_cmd& command)
{
    command = ethtool_cmd{};
    command.cmd = ETHTOOL_GSET;
    ifreq request = MakeRequest(interfaceName);
    request.ifr_data = reinterpret_cast<char*>(&command);
    if (ioctl(fdSocket, SIOCETHTOOL, &request) == -1) {
        return errno;
    }
    return 0;
}

LinkSpeed DecodeSpeed(const ethtool_cmd& command)
{
    const std::uint32_t speed = (static_cast<std::uint32_t>(command.speed_hi) << 16) | command.speed;
    switch (speed) {
    case 10:
        return LinkSpeed::Speed10;
    case 100:
        return LinkSpeed::Speed100;
    case 1000:
        return LinkSpeed::Speed1000;
    default:
        // Also SPEED_UNKNOWN, which the driver reports without a link.
        return LinkSpeed::Unknown;
    }
}

LinkDuplex DecodeDuplex(const ethtool_cmd& command)
{
    switch (command.duplex) {
    case DUPLEX_HALF:
        return LinkDuplex::Half;
    case DUPLEX_FULL:
        return LinkDuplex::Full;
    default:
        // Also DUPLEX_UNKNOWN (0xFF).
        return LinkDuplex::Unknown;
    }
}

} // namespace

EthPortInfoI210Drv::EthPortInfoI210Drv(unsigned int deviceIndex, unsigned int portIndex,
                                       const BasicString& interfaceName)
    : deviceIndex(deviceIndex), portIndex(portIndex), interfaceName(interfaceName),
      fdSocket(socket(AF_INET, SOCK_DGRAM, 0))
{
    if (fdSocket.Get() < 0) {
        throw InvalidOperationException(BasicString("Could not open socket for read Ethernet port info"));
    }
}

EthPortInfoI210Drv::~EthPortInfoI210Drv() = default;

LinkState EthPortInfoI210Drv::GetPortLinkState() const
{
    ifreq request = MakeRequest(interfaceName);
    if (ioctl(fdSocket.Get(), SIOCGIFFLAGS, &request) == -1) {
        const int error = errno;
        log(Error, "Error GetPortLinkState() for device {0}, port {1} ({2}): errno {3}", deviceIndex, portIndex,
            interfaceName, error);
        return LinkState::Unknown;
    }
    // The running flag is the driver's carrier; IFF_UP only says that the
    // interface is administratively up, also without a cable.
    return (request.ifr_flags & IFF_RUNNING) != 0 ? LinkState::Up : LinkState::Down;
}

LinkSpeed EthPortInfoI210Drv::GetPortLinkSpeed() const
{
    ethtool_cmd command{};
    const int error = GetEthtoolSettings(fdSocket.Get(), interfaceName, command);
    if (error != 0) {
        log(Error, "Error GetPortLinkSpeed() for device {0}, port {1} ({2}): errno {3}", deviceIndex, portIndex,
            interfaceName, error);
        return LinkSpeed::Unknown;
    }
    return DecodeSpeed(command);
}

LinkDuplex EthPortInfoI210Drv::GetPortLinkDuplex() const
{
    ethtool_cmd command{};
    const int error = GetEthtoolSettings(fdSocket.Get(), interfaceName, command);
    if (error != 0) {
        log(Error, "Error GetPortLinkDuplex() for device {0}, port {1} ({2}): errno {3}", deviceIndex, portIndex,
            interfaceName, error);
        return LinkDuplex::Unknown;
    }
    return DecodeDuplex(command);
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
