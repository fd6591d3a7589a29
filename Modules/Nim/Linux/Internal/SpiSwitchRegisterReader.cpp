#include "Modules/Nim/Linux/Internal/SpiSwitchRegisterReader.hpp"

#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <array>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using ::Zel::System::Commons::BasicString;
using ::Zel::System::Commons::InvalidOperationException;
using ::Zel::System::Commons::NotSupportedException;
using ::Zel::System::Commons::Logging::Error;

static_assert(SPI_IOC_MESSAGE(1) == 0x40206B00);
static_assert(sizeof(spi_ioc_transfer) == 32);

const SpiSwitchChip SpiSwitchChip::Ksz8794 = {0x6000,
                                              1,
                                              0x87,
                                              0x60,
                                              "Can not read data from KSZ8794 Switch: SPI_IOC_MESSAGE failed: {0}",
                                              "KSZ8794: Chip id0 mismatch.",
                                              "KSZ8794: Chip id1 mismatch."};
const SpiSwitchChip SpiSwitchChip::Ksz8863 = {0x0300,
                                              0,
                                              0x88,
                                              0x30,
                                              "Can not read data from KSZ8863 Switch: SPI_IOC_MESSAGE failed: {0}",
                                              "KSZ8863: Chip id0 mismatch.",
                                              "KSZ8863: Chip id1 mismatch."};

namespace {

constexpr unsigned char RegChipId0 = 0x00;
constexpr unsigned char RegChipId1 = 0x01;
constexpr unsigned int ChipId1FamilyMask = 0xF0;

// Both chips' identity texts name the KSZ8863 in the read failure and the
// mismatch logs, and the ID0 text serves the ID1 read too; log filters and
// callers match them as they stand.
constexpr const char* ChipIdUnreadable = "Could not read driver KSZ8863_REG_CHIP_ID0.";

} // namespace

void SpiSwitchRegisterReader::Open(const ::Zel::Hardware::Commons::Modules::ModuleSettings& settings,
                                   unsigned int deviceIndex)
{
    if (fdSpi >= 0) {
        return;
    }
    const BasicString& path = settings.GetSetting(BasicString::Format("path.{0}.spi", deviceIndex));
    fdSpi = open(path.c_str(), O_RDWR);
    if (fdSpi < 0) {
        throw InvalidOperationException(BasicString::Format("Could not open driver '{0}'.", path));
    }

    unsigned char value = 0;
    if (!ReadRegister(RegChipId0, value)) {
        throw InvalidOperationException(BasicString(ChipIdUnreadable));
    }
    if (value != chip.chipId0) {
        log(Error, "KSZ8863: Chip id0 mismatch. {0}", value);
        throw NotSupportedException(BasicString(chip.chipId0Mismatch));
    }
    if (!ReadRegister(RegChipId1, value)) {
        throw InvalidOperationException(BasicString(ChipIdUnreadable));
    }
    const unsigned int family = value & ChipId1FamilyMask;
    if (family != chip.chipId1Family) {
        log(Error, "KSZ8863: Chip id1 mismatch. {0}", family);
        throw NotSupportedException(BasicString(chip.chipId1Mismatch));
    }
}

void SpiSwitchRegisterReader::Close()
{
    // Descriptor 0 is never taken for ours.
    if (fdSpi > 0) {
        close(fdSpi);
        fdSpi = -1;
    }
}

bool SpiSwitchRegisterReader::ReadRegister(unsigned char reg, unsigned char& value) const
{
    if (fdSpi < 0) {
        log(Error, "Error in ReadRegister(): Handle invalid.fdSpi = {0}", fdSpi);
        return false;
    }

    const unsigned int word = chip.readCommand | (static_cast<unsigned int>(reg) << chip.addressShift);
    std::array<std::uint8_t, 3> tx = {static_cast<std::uint8_t>((word >> 8U) & 0xFFU),
                                      static_cast<std::uint8_t>(word & 0xFFU), 0x00};
    std::array<std::uint8_t, 3> rx = {};

    // Clock, word size and delays stay 0: the spidev device's defaults.
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(tx.data());
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(rx.data());
    transfer.len = static_cast<std::uint32_t>(tx.size());

    const int result = ioctl(fdSpi, SPI_IOC_MESSAGE(1), &transfer);
    if (result < 0) {
        // The ioctl's result, not errno, is what the message has always shown.
        log(Error, chip.transferFailed, result);
        return false;
    }
    value = rx[2];
    return true;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
