// The emulated spidev node for programs a test starts (nimhost), loaded with
// LD_PRELOAD: ZEL_SPI_KSZ8863 names the node of a KSZ8863 whose port 1 status
// register says 100 Mbit/s full duplex (0x06) and port 2's 10 Mbit/s half
// duplex (0x00).
#include "SpiEmulator.hpp"

#include <cstdlib>

namespace {

const bool built = [] {
    if (const char* path = std::getenv("ZEL_SPI_KSZ8863")) {
        static const auto device =
            Zel::Test::SpiEmulator::Ksz8863().Register(0x1F, 0x06).Register(0x2F, 0x00).Build(path);
    }
    return true;
}();

} // namespace
