// The register reader on its own, for what the port classes never ask: a
// register number with bit 7 set, and reads around Open and Close.
#include "Modules/Nim/Linux/Internal/SpiSwitchRegisterReader.hpp"
#include "spi/SpiEmulator.hpp"

#include "MemoryLogSink.hpp"

#include <gtest/gtest.h>

#include <typeinfo>

namespace {

using Zel::Hardware::Modules::Nim::Linux::Internal::SpiSwitchChip;
using Zel::Hardware::Modules::Nim::Linux::Internal::SpiSwitchRegisterReader;
using Zel::Test::SpiEmulator;

struct ReaderTestChannel {};

TEST(SpiSwitchRegisterReader, AddressBitsGoWhereEachChipExpectsThem)
{
    Zel::Test::LogCapture capture{8};
    const Zel::System::Commons::Logging::LogChannel channel{typeid(ReaderTestChannel)};
    Zel::Hardware::Commons::Modules::ModuleSettings settings;
    settings.AddSetting("path.1.spi", "/dev/zel-emulated/spidev0.0");
    for (const SpiSwitchChip* chip : {&SpiSwitchChip::Ksz8794, &SpiSwitchChip::Ksz8863}) {
        const bool is8794 = chip == &SpiSwitchChip::Ksz8794;
        auto device = (is8794 ? SpiEmulator::Ksz8794() : SpiEmulator::Ksz8863())
                          .Register(0xAB, 0x42)
                          .Build("/dev/zel-emulated/spidev0.0");
        SpiSwitchRegisterReader reader(*chip, channel);
        unsigned char value = 0;
        EXPECT_FALSE(reader.Read(0xAB, value)) << "not open yet";
        reader.Open(settings, 1);
        reader.Open(settings, 1);
        device.ClearTransfers();
        ASSERT_TRUE(reader.Read(0xAB, value));
        EXPECT_EQ(value, 0x42);
        // KSZ8794: bit 7 of the address goes into the first byte.
        const std::vector<std::uint8_t> sent = is8794 ? std::vector<std::uint8_t>{0x61, 0x56, 0x00}
                                                      : std::vector<std::uint8_t>{0x03, 0xAB, 0x00};
        ASSERT_EQ(device.Transfers().size(), 1U);
        EXPECT_EQ(device.Transfers()[0].sent, sent);
        EXPECT_EQ(device.OpenCount(), 1);
        reader.Close();
        reader.Close();
        EXPECT_FALSE(reader.Read(0xAB, value));
    }
    EXPECT_EQ(capture.Count(3, "Error in ReadRegister(): Handle invalid.fdSpi = -1"), 4U);
}

} // namespace
