// An emulated spidev node for the SPI switch ports. The node exists only in
// the test executable: SpiInterposer.cpp answers open/ioctl/close for its
// path and hands everything else to the C library, so it serves natively,
// under the sanitizers and under qemu-arm (which has no spidev ioctls).
//
//   auto device = SpiEmulator::Ksz8794().Register(0x1E, 0x20).Build(path);
//   ... run the code under test ...
//   device.State().transfers  // every SPI_IOC_MESSAGE(1) transfer with its sent bytes
//
// Only executables that want the emulator link SpiEmulator.cpp and
// SpiInterposer.cpp (they are kept out of zel_test_support on purpose).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Zel::Test {

// One SPI_IOC_MESSAGE(1) request as the emulated node saw it.
struct SpiTransfer {
    std::vector<std::uint8_t> sent; // the tx bytes, len of them (none without a tx buffer)
    // Every field besides the buffers and len was 0: the device's own clock,
    // word size and delays, no chip-select change.
    bool defaultsOnly = false;
};

// A node's registers, its faults and what it has seen; the interposer works
// on it under SpiLock().
struct SpiDeviceState {
    std::string path;
    bool ksz8794 = true;
    std::vector<std::uint8_t> registers;
    std::set<unsigned int> failingReads; // the transfers reading these fail with EIO
    std::vector<SpiTransfer> transfers;
    int openCount = 0; // successful opens of the node so far
    int lastOpenFlags = -1;
    int foreignRequests = 0; // ioctls other than SPI_IOC_MESSAGE(1), answered with ENOTTY
    // The node is a file that exists: the kernel opens it, checking its owner
    // and mode, and the descriptor it gives is the node's.
    bool inFile = false;
};

std::mutex& SpiLock();

// The node while it exists; destroying it removes the path (descriptors that
// are still open keep answering).
class SpiDevice {
public:
    explicit SpiDevice(std::shared_ptr<SpiDeviceState> state) : state(std::move(state)) {}
    ~SpiDevice();
    SpiDevice(const SpiDevice&) = delete;
    SpiDevice& operator=(const SpiDevice&) = delete;

    const std::string& Path() const { return state->path; }
    // Changed from the test's thread between queries, while no other thread
    // uses the node; the stress rig only builds its nodes.
    void SetRegister(unsigned int address, std::uint8_t value) { state->registers.at(address) = value; }
    void FailReadsOf(unsigned int address) { state->failingReads.insert(address); }
    void ClearTransfers() { state->transfers.clear(); }
    // A copy of the state as it is now.
    SpiDeviceState State() const
    {
        std::lock_guard<std::mutex> guard(SpiLock());
        return *state;
    }

private:
    std::shared_ptr<SpiDeviceState> state;
};

class SpiEmulator {
public:
    // Chip id 0x87 / 0x61; read command 011, 12-bit address and a turnaround
    // bit, big-endian; the value comes in the third byte.
    static SpiEmulator Ksz8794();
    // Chip id 0x88 / 0x31; read command 0x03, address byte, value in the third byte.
    static SpiEmulator Ksz8863();

    SpiEmulator& Register(unsigned int address, std::uint8_t value);

    // Makes `path` openable in this process; the paths the tests use exist
    // nowhere else, so an open the interposer misses fails. Throws
    // std::runtime_error when the path is already emulated.
    SpiDevice Build(const std::string& path) const;
    // The same for a node kept in the file at `path` (a placeholder of the
    // device node, with its owner and mode).
    SpiDevice BuildOnFile(const std::string& path) const;

private:
    SpiDeviceState state;
};

} // namespace Zel::Test
