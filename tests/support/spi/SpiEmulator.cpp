#include "SpiEmulator.hpp"

#include "SpiInterposerHooks.hpp"

#include <cerrno>
#include <cstring>
#include <linux/spi/spidev.h>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Zel::Test {

// Register space of both chips: the KSZ8794 addresses 12 bits.
constexpr std::size_t RegisterCount = 4096;

struct SpiDeviceState {
    std::string path;
    bool ksz8794 = true;
    std::vector<std::uint8_t> registers;
    bool failTransfers = false;
    std::set<unsigned int> failingReads;
    std::vector<SpiTransfer> transfers;
    int openCount = 0;
    int lastOpenFlags = -1;
    int foreignRequests = 0;

    // The register a transfer reads, or -1: the command and address are
    // shifted in first, the value follows.
    long ReadAddress(const std::uint8_t* tx, std::size_t length) const
    {
        if (tx == nullptr || length < 3) {
            return -1;
        }
        if (ksz8794) {
            const unsigned int word = (static_cast<unsigned int>(tx[0]) << 8U) | tx[1];
            return (word >> 13U) == 0x3U ? static_cast<long>((word >> 1U) & 0xFFFU) : -1;
        }
        return tx[0] == 0x03 ? static_cast<long>(tx[1]) : -1;
    }
};

namespace {

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

// Runs `action` on the state under the registry's lock.
template <typename Action>
auto Locked(SpiDeviceState& state, Action action)
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return action(state);
}

} // namespace

namespace SpiHooks {

bool Open(const char* path, int flags, int* result)
{
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    const auto node = path == nullptr ? registry.nodes.end() : registry.nodes.find(std::string_view(path));
    if (node == registry.nodes.end()) {
        return false;
    }
    // A real descriptor without a path: the kernel hands out a unique number
    // and close works as for any file.
    *result = eventfd(0, EFD_CLOEXEC);
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
    const long address = state.ReadAddress(tx, transfer.len);
    SpiTransfer record;
    record.length = transfer.len;
    record.defaultsOnly = transfer.speed_hz == 0 && transfer.delay_usecs == 0 && transfer.bits_per_word == 0 &&
        transfer.cs_change == 0 && transfer.tx_nbits == 0 && transfer.rx_nbits == 0 && transfer.word_delay_usecs == 0 &&
        transfer.pad == 0;
    if (tx != nullptr) {
        record.sent.assign(tx, tx + transfer.len);
    }
    state.transfers.push_back(record);
    if (state.failTransfers || (address >= 0 && state.failingReads.count(static_cast<unsigned int>(address)) != 0)) {
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
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    registry.descriptors.erase(fd);
}

} // namespace SpiHooks

SpiDevice::SpiDevice(std::shared_ptr<SpiDeviceState> state) : state(std::move(state))
{
}

SpiDevice::~SpiDevice()
{
    Locked(*state, [](SpiDeviceState& s) { TheRegistry().nodes.erase(s.path); });
}

const std::string& SpiDevice::Path() const
{
    return state->path;
}
void SpiDevice::SetRegister(unsigned int address, std::uint8_t value)
{
    Locked(*state, [&](auto& s) { s.registers.at(address) = value; });
}
void SpiDevice::FailTransfers(bool fail)
{
    Locked(*state, [&](auto& s) { s.failTransfers = fail; });
}
void SpiDevice::FailReadsOf(unsigned int address, bool fail)
{
    Locked(*state, [&](auto& s) { fail ? (void)s.failingReads.insert(address) : (void)s.failingReads.erase(address); });
}
void SpiDevice::ClearTransfers()
{
    Locked(*state, [](auto& s) { s.transfers.clear(); });
}
std::vector<SpiTransfer> SpiDevice::Transfers() const
{
    return Locked(*state, [](auto& s) { return s.transfers; });
}
int SpiDevice::OpenCount() const
{
    return Locked(*state, [](auto& s) { return s.openCount; });
}
int SpiDevice::LastOpenFlags() const
{
    return Locked(*state, [](auto& s) { return s.lastOpenFlags; });
}
int SpiDevice::ForeignRequests() const
{
    return Locked(*state, [](auto& s) { return s.foreignRequests; });
}

SpiEmulator::SpiEmulator(bool ksz8794) : ksz8794(ksz8794), registers(RegisterCount, 0)
{
}

// Chip id, then the family in the high nibble with revision 1 in the low one.
SpiEmulator SpiEmulator::Ksz8794()
{
    return SpiEmulator(true).Register(0x00, 0x87).Register(0x01, 0x61);
}
SpiEmulator SpiEmulator::Ksz8863()
{
    return SpiEmulator(false).Register(0x00, 0x88).Register(0x01, 0x31);
}

SpiEmulator& SpiEmulator::Register(unsigned int address, std::uint8_t value)
{
    registers.at(address) = value;
    return *this;
}

SpiDevice SpiEmulator::Build(const std::string& path) const
{
    // access() is not interposed: it sees the real file system.
    if (access(path.c_str(), F_OK) == 0) {
        throw std::runtime_error("SpiEmulator: a real file exists at '" + path + "'");
    }
    auto state = std::make_shared<SpiDeviceState>();
    state->path = path;
    state->ksz8794 = ksz8794;
    state->registers = registers;
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    if (!TheRegistry().nodes.emplace(path, state).second) {
        throw std::runtime_error("SpiEmulator: '" + path + "' is already emulated");
    }
    return SpiDevice(state);
}

} // namespace Zel::Test
