#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794spi.hpp"

#include <Zel/System/Commons/Exception.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::System::Commons::ArgumentException;

// Shared by every port of the switch: the first port opens the device and
// checks the chip, the first destructor closes it for all.
SpiSwitchRegisterReader EthPortInfoSwitchKSZ8794spi::spi{SpiSwitchChip::Ksz8794, log};

namespace {

constexpr unsigned char LinkUpBit = 0x20;

// Low three bits of the port's operation-mode register.
constexpr unsigned char OperationModeMask = 0x07;

LinkSpeed DecodeSpeed(unsigned char mode)
{
    switch (mode & OperationModeMask) {
    case 2:
    case 5:
        return LinkSpeed::Speed10;
    case 3:
    case 6:
        return LinkSpeed::Speed100;
    default:
        // 0, 1, 4 and 7 are auto-negotiation in progress or reserved.
        return LinkSpeed::Unknown;
    }
}

LinkDuplex DecodeDuplex(unsigned char mode)
{
    const unsigned int bits = mode & OperationModeMask;
    if ((mode & 0x04) != 0) {
        return (bits == 5 || bits == 6) ? LinkDuplex::Full : LinkDuplex::Unknown;
    }
    return (mode & 0x02) != 0 ? LinkDuplex::Half : LinkDuplex::Unknown;
}

} // namespace

EthPortInfoSwitchKSZ8794spi::EthPortInfoSwitchKSZ8794spi(
    unsigned int deviceIndex, unsigned int portIndex, const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
{
    switch (portIndex) {
    case 1:
        regMode = 0x1F;
        regLink = 0x1E;
        break;
    case 2:
        regMode = 0x2F;
        regLink = 0x2E;
        break;
    default:
        throw ArgumentException::Create("port", portIndex, "unsupported");
    }
    // An earlier port opened the device and checked the chip; that holds even
    // when its check failed, and this port is then built without one.
    spi.Open(settings, deviceIndex);
}

EthPortInfoSwitchKSZ8794spi::~EthPortInfoSwitchKSZ8794spi()
{
    // Closes the device for every port of the class; the ports are destroyed
    // together with the device table.
    spi.Close();
}

LinkState EthPortInfoSwitchKSZ8794spi::GetPortLinkState() const
{
    unsigned char value = 0;
    if (!spi.ReadRegister(regLink, value)) {
        return LinkState::Unknown;
    }
    return (value & LinkUpBit) != 0 ? LinkState::Up : LinkState::Down;
}

LinkSpeed EthPortInfoSwitchKSZ8794spi::GetPortLinkSpeed() const
{
    // Without a link the mode register is not read at all.
    unsigned char mode = 0;
    if (GetPortLinkState() != LinkState::Up || !spi.ReadRegister(regMode, mode)) {
        return LinkSpeed::Unknown;
    }
    return DecodeSpeed(mode);
}

LinkDuplex EthPortInfoSwitchKSZ8794spi::GetPortLinkDuplex() const
{
    unsigned char mode = 0;
    if (GetPortLinkState() != LinkState::Up || !spi.ReadRegister(regMode, mode)) {
        return LinkDuplex::Unknown;
    }
    return DecodeDuplex(mode);
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
