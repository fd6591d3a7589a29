#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794spi.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <array>
#include <cstdint>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::NotSupportedException;

static_assert(SPI_IOC_MESSAGE(1) == 0x40206B00);
static_assert(sizeof(spi_ioc_transfer) == 32);

// Shared by every port of the switch: the first port opens the device and
// checks the chip, the first destructor closes it for all (-1: not open).
int EthPortInfoSwitchKSZ8794spi::fdSpi = -1;

namespace {

constexpr unsigned char RegChipId0 = 0x00;
constexpr unsigned char RegChipId1 = 0x01;
constexpr unsigned char ChipId0 = 0x87;
constexpr unsigned char ChipId1Family = 0x60;
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

    // An earlier port opened the device and checked the chip. That holds even
    // when its chip check failed: the device stays open and later ports are
    // built without a check.
    if (fdSpi >= 0) {
        return;
    }

    const BasicString& spiPath = settings.GetSetting(BasicString::Format("path.{0}.spi", deviceIndex));
    fdSpi = open(spiPath.c_str(), O_RDWR);
    if (fdSpi < 0) {
        throw InvalidOperationException(BasicString::Format("Could not open driver '{0}'.", spiPath));
    }

    // The texts below name the KSZ8863 in the read failure and the logs and
    // the KSZ8794 in the exceptions; log filters and callers match them as
    // they stand.
    unsigned char value = 0;
    if (!ReadRegister(RegChipId0, value)) {
        throw InvalidOperationException(BasicString("Could not read driver KSZ8863_REG_CHIP_ID0."));
    }
    if (value != ChipId0) {
        log(3, "KSZ8863: Chip id0 mismatch. {0}", value);
        throw NotSupportedException(BasicString("KSZ8794: Chip id0 mismatch."));
    }
    if (!ReadRegister(RegChipId1, value)) {
        throw InvalidOperationException(BasicString("Could not read driver KSZ8863_REG_CHIP_ID0."));
    }
    const unsigned int family = value & 0xF0U;
    if (family != ChipId1Family) {
        log(3, "KSZ8863: Chip id1 mismatch. {0}", family);
        throw NotSupportedException(BasicString("KSZ8794: Chip id1 mismatch."));
    }
}

EthPortInfoSwitchKSZ8794spi::~EthPortInfoSwitchKSZ8794spi()
{
    // Closes the device for every port of the class; the ports are destroyed
    // together with the device table. Descriptor 0 is never taken for ours.
    if (fdSpi > 0) {
        close(fdSpi);
        fdSpi = -1;
    }
}

bool EthPortInfoSwitchKSZ8794spi::ReadRegister(unsigned char reg, unsigned char& value) const
{
    if (fdSpi < 0) {
        log(3, "Error in ReadRegister(): Handle invalid.fdSpi = {0}", fdSpi);
        return false;
    }

    // Big-endian command word 0x6000 | reg << 1: read command 011, the
    // 12-bit register address, one turnaround bit; the value follows.
    std::array<std::uint8_t, 3> tx = {static_cast<std::uint8_t>(0x60U | (reg >> 7U)),
                                      static_cast<std::uint8_t>((static_cast<unsigned int>(reg) << 1U) & 0xFFU),
                                      0x00};
    std::array<std::uint8_t, 3> rx = {};

    // Clock, word size and delays stay 0: the spidev device's defaults.
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx.data());
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx.data());
    transfer.len = static_cast<std::uint32_t>(tx.size());

    const int result = ioctl(fdSpi, SPI_IOC_MESSAGE(1), &transfer);
    if (result < 0) {
        // The ioctl's result, not errno, is what the message has always shown.
        log(3, "Can not read data from KSZ8794 Switch: SPI_IOC_MESSAGE failed: {0}", result);
        return false;
    }
    value = rx[2];
    return true;
}

LinkState EthPortInfoSwitchKSZ8794spi::GetPortLinkState() const
{
    unsigned char value = 0;
    if (!ReadRegister(regLink, value)) {
        return LinkState::Unknown;
    }
    return (value & LinkUpBit) != 0 ? LinkState::Up : LinkState::Down;
}

LinkSpeed EthPortInfoSwitchKSZ8794spi::GetPortLinkSpeed() const
{
    // Without a link the mode register is not read at all.
    if (GetPortLinkState() != LinkState::Up) {
        return LinkSpeed::Unknown;
    }
    unsigned char mode = 0;
    if (!ReadRegister(regMode, mode)) {
        return LinkSpeed::Unknown;
    }
    return DecodeSpeed(mode);
}

LinkDuplex EthPortInfoSwitchKSZ8794spi::GetPortLinkDuplex() const
{
    if (GetPortLinkState() != LinkState::Up) {
        return LinkDuplex::Unknown;
    }
    unsigned char mode = 0;
    if (!ReadRegister(regMode, mode)) {
        return LinkDuplex::Unknown;
    }
    return DecodeDuplex(mode);
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
