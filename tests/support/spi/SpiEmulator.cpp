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
#include <utility>

namespace Zel::Test {

// Register space of both chips: the KSZ8794 addresses 12 bits.
constexpr std::size_t RegisterCount = 4096;

struct SpiDeviceState {
    enum class Chip { Ksz8794, Ksz8863 };

    std::string path;
    Chip chip = Chip::Ksz8794;
    std::vector<std::uint8_t> registers = std::vector<std::uint8_t>(RegisterCount, 0);
    bool failTransfers = false;
    std::set<unsigned int> failingReads;
    std::vector<SpiTransfer> transfers;
    std::vector<unsigned int> registersRead;
    int openCount = 0;
    int lastOpenFlags = -1;
    int openDescriptors = 0;
    int foreignRequests = 0;

    struct Command {
        bool read = false;
        unsigned int address = 0;
    };

    // The command and address are shifted in first, the values after them.
    Command Decode(const std::uint8_t* tx, std::size_t length) const
    {
        Command command;
        if (tx == nullptr || length < 3) {
            return command;
        }
        if (chip == Chip::Ksz8794) {
            const unsigned int word = (static_cast<unsigned int>(tx[0]) << 8U) | tx[1];
            command.read = (word >> 13U) == 0x3U;
            command.address = (word >> 1U) & 0xFFFU;
        } else {
            command.read = tx[0] == 0x03;
            command.address = tx[1];
        }
        return command;
    }

    // Answers one full-duplex transfer as the chip would; further bytes read
    // the following registers, as both chips do.
    void Answer(const Command& command, std::uint8_t* rx, std::size_t length) const
    {
        if (rx == nullptr) {
            return;
        }
        std::memset(rx, 0xFF, length);
        if (!command.read) {
            return;
        }
        for (std::size_t i = 2; i < length; ++i) {
            rx[i] = registers[(command.address + i - 2) % RegisterCount];
        }
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

bool DefaultsOnly(const spi_ioc_transfer& transfer)
{
    return transfer.speed_hz == 0 && transfer.delay_usecs == 0 && transfer.bits_per_word == 0 &&
           transfer.cs_change == 0 && transfer.tx_nbits == 0 && transfer.rx_nbits == 0 &&
           transfer.word_delay_usecs == 0 && transfer.pad == 0;
}

} // namespace

namespace SpiHooks {

bool Open(const char* path, int flags, int* result)
{
    if (path == nullptr) {
        return false;
    }
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    const auto node = registry.nodes.find(std::string_view(path));
    if (node == registry.nodes.end()) {
        return false;
    }
    // A real descriptor without a path, so the kernel hands out a unique
    // number and close works as for any file.
    const int fd = eventfd(0, EFD_CLOEXEC);
    if (fd < 0) {
        *result = -1;
        return true;
    }
    SpiDeviceState& state = *node->second;
    ++state.openCount;
    ++state.openDescriptors;
    state.lastOpenFlags = flags;
    registry.descriptors[fd] = node->second;
    *result = fd;
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
    if (request != SPI_IOC_MESSAGE(1) || argument == nullptr) {
        ++state.foreignRequests;
        errno = ENOTTY;
        *result = -1;
        return true;
    }

    const auto& transfer = *static_cast<const spi_ioc_transfer*>(argument);
    const auto* tx = reinterpret_cast<const std::uint8_t*>(static_cast<std::uintptr_t>(transfer.tx_buf));
    auto* rx = reinterpret_cast<std::uint8_t*>(static_cast<std::uintptr_t>(transfer.rx_buf));
    const SpiDeviceState::Command command = state.Decode(tx, transfer.len);
    SpiTransfer record;
    record.length = transfer.len;
    record.defaultsOnly = DefaultsOnly(transfer);
    record.failed = state.failTransfers || (command.read && state.failingReads.count(command.address) != 0);
    if (tx != nullptr) {
        record.sent.assign(tx, tx + transfer.len);
    }
    state.transfers.push_back(record);
    if (command.read) {
        state.registersRead.push_back(command.address);
    }

    if (record.failed) {
        errno = EIO;
        *result = -1;
        return true;
    }
    state.Answer(command, rx, transfer.len);
    // spidev answers a message with the number of bytes transferred.
    *result = static_cast<int>(transfer.len);
    return true;
}

void Forget(int fd)
{
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    const auto descriptor = registry.descriptors.find(fd);
    if (descriptor == registry.descriptors.end()) {
        return;
    }
    --descriptor->second->openDescriptors;
    registry.descriptors.erase(descriptor);
}

} // namespace SpiHooks

SpiDevice::SpiDevice(std::shared_ptr<SpiDeviceState> state) : state(std::move(state)) {}

SpiDevice::SpiDevice(SpiDevice&& other) noexcept : state(std::move(other.state)) {}

SpiDevice::~SpiDevice()
{
    if (!state) {
        return;
    }
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    registry.nodes.erase(state->path);
}

const std::string& SpiDevice::Path() const
{
    return state->path;
}

void SpiDevice::SetRegister(unsigned int address, std::uint8_t value)
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    state->registers.at(address) = value;
}

void SpiDevice::FailTransfers(bool fail)
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    state->failTransfers = fail;
}

void SpiDevice::FailReadsOf(unsigned int address, bool fail)
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    if (fail) {
        state->failingReads.insert(address);
    } else {
        state->failingReads.erase(address);
    }
}

std::vector<SpiTransfer> SpiDevice::Transfers() const
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return state->transfers;
}

std::vector<unsigned int> SpiDevice::RegistersRead() const
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return state->registersRead;
}

void SpiDevice::ClearTransfers()
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    state->transfers.clear();
    state->registersRead.clear();
}

int SpiDevice::OpenCount() const
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return state->openCount;
}

int SpiDevice::LastOpenFlags() const
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return state->lastOpenFlags;
}

int SpiDevice::OpenDescriptors() const
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return state->openDescriptors;
}

int SpiDevice::ForeignRequests() const
{
    std::lock_guard<std::mutex> guard(TheRegistry().lock);
    return state->foreignRequests;
}

SpiEmulator::SpiEmulator(Chip chip) : chip(chip), registers(RegisterCount, 0) {}

SpiEmulator SpiEmulator::Ksz8794()
{
    // Chip id 0x87, family 0x6 with revision 1 in the low nibble.
    return SpiEmulator(Chip::Ksz8794).Register(0x00, 0x87).Register(0x01, 0x61);
}

SpiEmulator SpiEmulator::Ksz8863()
{
    // Chip id 0x88, family 0x3 with revision 1 in the low nibble.
    return SpiEmulator(Chip::Ksz8863).Register(0x00, 0x88).Register(0x01, 0x31);
}

SpiEmulator& SpiEmulator::Register(unsigned int address, std::uint8_t value)
{
    registers.at(address) = value;
    return *this;
}

SpiEmulator& SpiEmulator::FailTransfers()
{
    failTransfers = true;
    return *this;
}

SpiEmulator& SpiEmulator::FailReadsOf(unsigned int address)
{
    failingReads.insert(address);
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
    state->chip = chip == Chip::Ksz8794 ? SpiDeviceState::Chip::Ksz8794 : SpiDeviceState::Chip::Ksz8863;
    state->registers = registers;
    state->failTransfers = failTransfers;
    state->failingReads = failingReads;

    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    if (!registry.nodes.emplace(path, state).second) {
        throw std::runtime_error("SpiEmulator: '" + path + "' is already emulated");
    }
    return SpiDevice(state);
}

} // namespace Zel::Test
