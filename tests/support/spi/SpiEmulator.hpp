// An emulated spidev node for switch chips, for tests of the SPI port
// strategies. The node exists only inside the test executable: a small
// interposer (SpiInterposer.cpp) answers open/ioctl/close for its path and
// hands everything else to the C library, so it works natively, under ASan
// and under qemu-arm (which has no spidev ioctls of its own).
//
//   auto device = SpiEmulator::Ksz8794().Register(0x1E, 0x20).Register(0x1F, 0x06).Build(path);
//   ... run the code under test ...
//   device.Transfers()  // every SPI_IOC_MESSAGE(1) transfer with its sent bytes
//
// Link the executable with SpiEmulator.cpp and SpiInterposer.cpp only where
// the emulator is wanted (they are not part of zel_test_support on purpose).
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Zel::Test {

// One SPI_IOC_MESSAGE(1) request as the emulated node saw it.
struct SpiTransfer {
    std::vector<std::uint8_t> sent; // the tx bytes, len of them
    std::uint32_t length = 0;
    // Every field of spi_ioc_transfer besides the two buffers and len was 0
    // (clock, word size, delays, chip-select change, bus widths).
    bool defaultsOnly = false;
    bool failed = false; // the emulator was told to fail it
};

struct SpiDeviceState;

// The node while it exists; destroying it removes the path (descriptors that
// are still open keep answering).
class SpiDevice {
public:
    explicit SpiDevice(std::shared_ptr<SpiDeviceState> state);
    ~SpiDevice();
    SpiDevice(SpiDevice&&) noexcept;
    SpiDevice& operator=(SpiDevice&&) = delete;
    SpiDevice(const SpiDevice&) = delete;
    SpiDevice& operator=(const SpiDevice&) = delete;

    const std::string& Path() const;

    // Changes a register between queries (a link coming up, ...).
    void SetRegister(unsigned int address, std::uint8_t value);
    // Makes every following SPI_IOC_MESSAGE fail (-1, errno EIO) or succeed.
    void FailTransfers(bool fail);
    // Makes the transfers that read `address` fail (or succeed again).
    void FailReadsOf(unsigned int address, bool fail);

    std::vector<SpiTransfer> Transfers() const;
    // The registers read, in order, decoded from the sent command bytes.
    std::vector<unsigned int> RegistersRead() const;
    void ClearTransfers();

    int OpenCount() const;       // successful opens of the node so far
    int LastOpenFlags() const;   // flags of the last open
    int OpenDescriptors() const; // descriptors of the node not yet closed
    // Ioctl requests other than SPI_IOC_MESSAGE(1) (answered with ENOTTY).
    int ForeignRequests() const;

private:
    std::shared_ptr<SpiDeviceState> state;
};

class SpiEmulator {
public:
    // A KSZ8794: chip id 0x87 / 0x6?; commands 011 (read) with a 12-bit
    // address and a turnaround bit, big-endian, value in the third byte.
    static SpiEmulator Ksz8794();
    // A KSZ8863: chip id 0x88 / 0x3?; command 0x03 (read), address byte,
    // value in the third byte.
    static SpiEmulator Ksz8863();

    SpiEmulator& Register(unsigned int address, std::uint8_t value);
    SpiEmulator& FailTransfers();
    SpiEmulator& FailReadsOf(unsigned int address);

    // Makes `path` openable in this process. Throws std::runtime_error when a
    // real file exists there or the path is already emulated: only the
    // interposer may be able to open it, so a test that passes was served
    // by the emulator.
    SpiDevice Build(const std::string& path) const;

private:
    enum class Chip { Ksz8794, Ksz8863 };
    explicit SpiEmulator(Chip chip);

    Chip chip;
    std::vector<std::uint8_t> registers;
    bool failTransfers = false;
    std::set<unsigned int> failingReads;
};

} // namespace Zel::Test
