#pragma once

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <cstdint>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// What tells one switch chip from another on the SPI bus: how a register read
// is commanded, how the chip identifies itself and the texts its port class
// has always used. The command word goes out big-endian, the register number
// shifted into it; the value is clocked in as the third byte.
struct SpiSwitchChip {
    std::uint16_t readCommand;
    unsigned int addressShift;
    std::uint8_t chipId0; // register 0x00, all bits
    std::uint8_t chipId1Family; // register 0x01, high nibble
    const char* transferFailed; // logged with the ioctl's result as {0}
    const char* chipId0Mismatch;
    const char* chipId1Mismatch;

    // Read command 011, a 12-bit address and a turnaround bit.
    static const SpiSwitchChip Ksz8794;
    // Read command 0x03, then the address byte.
    static const SpiSwitchChip Ksz8863;
};

// The SPI device of one switch, shared by every port object of one class
// (each class holds one reader as a static). Open opens the device named by
// "path.{device}.spi" and checks the chip; every later Open of the class finds
// it open and returns without reading the setting, also after a failed check,
// which leaves the device open. Close closes it for all ports. The descriptor
// is fdSpi. Messages go to the owning class's log channel. ReadRegister is
// const, never throws and may run on any thread; Open and Close run during
// set-up and destruction of the device table, which the framework serialises.
class SpiSwitchRegisterReader {
public:
    using LogChannel = ::Zel::System::Commons::Logging::LogChannel;

    constexpr SpiSwitchRegisterReader(const SpiSwitchChip& chip, const LogChannel& log) noexcept : chip(chip), log(log)
    {
    }
    SpiSwitchRegisterReader(const SpiSwitchRegisterReader&) = delete;
    SpiSwitchRegisterReader& operator=(const SpiSwitchRegisterReader&) = delete;

    // Throws InvalidOperationException when the device cannot be opened or
    // an identity register cannot be read, NotSupportedException when the
    // chip is another one.
    void Open(const ::Zel::Hardware::Commons::Modules::ModuleSettings& settings, unsigned int deviceIndex);
    // One SPI_IOC_MESSAGE transfer; false (and one error message) on failure.
    bool ReadRegister(unsigned char reg, unsigned char& value) const;
    void Close();

private:
    const SpiSwitchChip& chip;
    const LogChannel& log;
    // Raw and not scoped: shared by all ports of the class, closed by the
    // first of their destructors, and left open after a failed chip check.
    int fdSpi = -1;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
