#include "SpiEmulator.hpp"

#include "SpiInterposerHooks.hpp"

#include <cerrno>
#include <cstring>
#include <linux/spi/spidev.h>
#include <map>
#include <stdexcept>
#include <string_view>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Zel::Test {

namespace {

// Register space of both chips: the KSZ8794 addresses 12 bits.
constexpr std::size_t RegisterCount = 4096;

struct Registry {
    std::mutex lock;
    // Transparent comparison: a lookup from open() allocates nothing.
    std::map<std::string, std::shared_ptr<SpiDeviceState>, std::less<>> nodes;
    std::map<int, std::shared_ptr<SpiDeviceState>> descriptors;
};

// Never destroyed: the interposer may run during static destruction.
Registry& TheRegistry()
{
    static Registry* registry = new Registry();
    return *registry;
}

// The register a transfer reads, or -1: the command and address are shifted
// in first, the value follows.
long ReadAddress(const SpiDeviceState& state, const std::uint8_t* tx, std::size_t length)
{
    if (tx == nullptr || length < 3) {
        return -1;
    }
    if (state.ksz8794) {
        const unsigned int word = (static_cast<unsigned int>(tx[0]) << 8U) | tx[1];
        return (word >> 13U) == 0x3U ? static_cast<long>((word >> 1U) & 0xFFFU) : -1;
    }
    return tx[0] == 0x03 ? static_cast<long>(tx[1]) : -1;
}

} // namespace

std::mutex& SpiLock()
{
    return TheRegistry().lock;
}

namespace SpiHooks {

bool Open(const char* path, int flags, int* result)
{
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    const auto node = path == nullptr ? registry.nodes.end() : registry.nodes.find(std::string_view(path));
    if (node == registry.nodes.end()) {
        return false;
    }
    // A node kept in a file is opened by the kernel, which checks the file's
    // owner and mode (the system call itself: open is interposed). Otherwise
    // a real descriptor without a path: the kernel hands out a unique number
    // and close works as for any file.
    *result = node->second->inFile ? static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags))
                                   : eventfd(0, EFD_CLOEXEC);
    if (*result >= 0) {
        ++node->second->openCount;
        node->second->lastOpenFlags = flags;
        registry.descriptors[*result] = node->second;
    }
    return true;
}

bool Ioctl(int fd, unsigned long request, void* argument, int* result)
{
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    const auto descriptor = registry.descriptors.find(fd);
    if (descriptor == registry.descriptors.end()) {
        return false;
    }
    SpiDeviceState& state = *descriptor->second;
    *result = -1;
    if (request != SPI_IOC_MESSAGE(1) || argument == nullptr) {
        ++state.foreignRequests;
        errno = ENOTTY;
        return true;
    }

    const auto& transfer = *static_cast<const spi_ioc_transfer*>(argument);
    const auto* tx = reinterpret_cast<const std::uint8_t*>(static_cast<std::uintptr_t>(transfer.tx_buf));
    auto* rx = reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(transfer.rx_buf));
    const long address = ReadAddress(state, tx, transfer.len);
    const bool defaultsOnly = transfer.speed_hz == 0 && transfer.delay_usecs == 0 && transfer.bits_per_word == 0 &&
        transfer.cs_change == 0 && transfer.tx_nbits == 0 && transfer.rx_nbits == 0 && transfer.word_delay_usecs == 0 &&
        transfer.pad == 0;
    state.transfers.push_back(
        {tx == nullptr ? std::vector<std::uint8_t>() : std::vector<std::uint8_t>(tx, tx + transfer.len), defaultsOnly});
    if (address >= 0 && state.failingReads.count(static_cast<unsigned int>(address)) != 0) {
        errno = EIO;
        return true;
    }
    // Both chips go on with the following registers when more bytes are clocked.
    if (rx != nullptr) {
        std::memset(rx, 0xFF, transfer.len);
        for (std::size_t i = 2; address >= 0 && i < transfer.len; ++i) {
            rx[i] = state.registers[(static_cast<std::size_t>(address) + i - 2) % RegisterCount];
        }
    }
    // spidev answers with the number of bytes transferred.
    *result = static_cast<int>(transfer.len);
    return true;
}

void Forget(int fd)
{
    std::lock_guard<std::mutex> guard(SpiLock());
    TheRegistry().descriptors.erase(fd);
}

} // namespace SpiHooks

SpiDevice::~SpiDevice()
{
    std::lock_guard<std::mutex> guard(SpiLock());
    TheRegistry().nodes.erase(state->path);
}

// Chip id, then the family in the high nibble with revision 1 in the low one.
SpiEmulator SpiEmulator::Ksz8794()
{
    SpiEmulator chip;
    chip.state.registers.resize(RegisterCount);
    return chip.Register(0x00, 0x87).Register(0x01, 0x61);
}
SpiEmulator SpiEmulator::Ksz8863()
{
    SpiEmulator chip = Ksz8794();
    chip.state.ksz8794 = false;
    return chip.Register(0x00, 0x88).Register(0x01, 0x31);
}

SpiEmulator& SpiEmulator::Register(unsigned int address, std::uint8_t value)
{
    state.registers.at(address) = value;
    return *this;
}

SpiDevice SpiEmulator::BuildOnFile(const std::string& path) const
{
    SpiEmulator inFile = *this;
    inFile.state.inFile = true;
    return inFile.Build(path);
}

SpiDevice SpiEmulator::Build(const std::string& path) const
{
    auto node = std::make_shared<SpiDeviceState>(state);
    node->path = path;
    std::lock_guard<std::mutex> guard(SpiLock());
    if (!TheRegistry().nodes.emplace(path, node).second) {
        throw std::runtime_error("SpiEmulator: '" + path + "' is already emulated");
    }
    return SpiDevice(node);
}

} // namespace Zel::Test
