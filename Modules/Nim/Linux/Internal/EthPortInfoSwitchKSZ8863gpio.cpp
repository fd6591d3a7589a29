#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"

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

// Shared by both ports of the switch: the first port opens the device and
// checks the chip, the first destructor closes it for all (-1: not open).
int EthPortInfoSwitchKSZ8863gpio::fdSpi = -1;

namespace {

constexpr unsigned char RegChipId0 = 0x00;
constexpr unsigned char RegChipId1 = 0x01;
constexpr unsigned char ChipId0 = 0x88;
constexpr unsigned char ChipId1Family = 0x30;
constexpr unsigned char ReadCommand = 0x03;
constexpr unsigned char Speed100Bit = 0x04;
constexpr unsigned char FullDuplexBit = 0x02;

} // namespace

EthPortInfoSwitchKSZ8863gpio::EthPortInfoSwitchKSZ8863gpio(
    unsigned int deviceIndex, unsigned int portIndex, const Zel::Hardware::Commons::Modules::ModuleSettings& settings)
{
    switch (portIndex) {
    case 1:
        regStatus = 0x1F;
        break;
    case 2:
        regStatus = 0x2F;
        break;
    default:
        throw ArgumentException::Create("port", portIndex, "unsupported");
    }

    // A later failure leaves this descriptor open: the destructor of a
    // half-built object does not run, and set-up fails as a whole anyway.
    linkGpioPath = settings.GetSetting(BasicString::Format("path.{0}.{1}.link", deviceIndex, portIndex));
    fdLinkGpio = gpioAccess.Open(linkGpioPath, O_RDONLY);

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

    unsigned char value = 0;
    if (!ReadRegister(RegChipId0, value)) {
        throw InvalidOperationException(BasicString("Could not read driver KSZ8863_REG_CHIP_ID0."));
    }
    if (value != ChipId0) {
        log(3, "KSZ8863: Chip id0 mismatch. {0}", value);
        throw NotSupportedException(BasicString("KSZ8863: Chip id0 mismatch."));
    }
    if (!ReadRegister(RegChipId1, value)) {
        // The ID0 text serves the ID1 read too; it is the established text.
        throw InvalidOperationException(BasicString("Could not read driver KSZ8863_REG_CHIP_ID0."));
    }
    const unsigned int family = value & 0xF0U;
    if (family != ChipId1Family) {
        log(3, "KSZ8863: Chip id1 mismatch. {0}", family);
        throw NotSupportedException(BasicString("KSZ8863: Chip id1 mismatch."));
    }
}

EthPortInfoSwitchKSZ8863gpio::~EthPortInfoSwitchKSZ8863gpio()
{
    gpioAccess.Close(fdLinkGpio, linkGpioPath);
    // Closes the device for every port of the class; the ports are destroyed
    // together with the device table. Descriptor 0 is never taken for ours.
    if (fdSpi > 0) {
        close(fdSpi);
        fdSpi = -1;
    }
}

bool EthPortInfoSwitchKSZ8863gpio::ReadRegister(unsigned char reg, unsigned char& value) const
{
    if (fdSpi < 0) {
        log(3, "Error in ReadRegister(): Handle invalid.fdSpi = {0}", fdSpi);
        return false;
    }

    // Read command, register number, then one byte clocked in: the value.
    std::array<std::uint8_t, 3> tx = {ReadCommand, reg, 0x00};
    std::array<std::uint8_t, 3> rx = {};

    // Clock, word size and delays stay 0: the spidev device's defaults.
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx.data());
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx.data());
    transfer.len = static_cast<std::uint32_t>(tx.size());

    const int result = ioctl(fdSpi, SPI_IOC_MESSAGE(1), &transfer);
    if (result < 0) {
        // The ioctl's result, not errno, is what the message has always shown.
        log(3, "Can not read data from KSZ8863 Switch: SPI_IOC_MESSAGE failed: {0}", result);
        return false;
    }
    value = rx[2];
    return true;
}

LinkState EthPortInfoSwitchKSZ8863gpio::GetPortLinkState() const
{
    bool linkUp = false;
    if (!gpioAccess.Read(fdLinkGpio, linkGpioPath, linkUp)) {
        return LinkState::Unknown;
    }
    // The link line is active high.
    return linkUp ? LinkState::Up : LinkState::Down;
}

LinkSpeed EthPortInfoSwitchKSZ8863gpio::GetPortLinkSpeed() const
{
    // Without a link the switch is not asked at all.
    if (GetPortLinkState() != LinkState::Up) {
        return LinkSpeed::Unknown;
    }
    unsigned char status = 0;
    if (!ReadRegister(regStatus, status)) {
        return LinkSpeed::Unknown;
    }
    // No gigabit ports on this switch.
    return (status & Speed100Bit) != 0 ? LinkSpeed::Speed100 : LinkSpeed::Speed10;
}

LinkDuplex EthPortInfoSwitchKSZ8863gpio::GetPortLinkDuplex() const
{
    if (GetPortLinkState() != LinkState::Up) {
        return LinkDuplex::Unknown;
    }
    unsigned char status = 0;
    if (!ReadRegister(regStatus, status)) {
        return LinkDuplex::Unknown;
    }
    return (status & FullDuplexBit) != 0 ? LinkDuplex::Full : LinkDuplex::Half;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
