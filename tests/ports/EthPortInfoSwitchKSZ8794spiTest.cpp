#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794spi.hpp"
#include "spi/SpiEmulator.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSwitchKSZ8794spi;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::NotSupportedException;
using Zel::Test::LogCapture;
using Zel::Test::SpiDevice;
using Zel::Test::SpiEmulator;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* NodePath = "/dev/zel-emulated/spidev1.0";
constexpr unsigned int Port1Link = 0x1E;
constexpr unsigned int Port1Mode = 0x1F;
constexpr unsigned int Port2Link = 0x2E;
constexpr unsigned int Port2Mode = 0x2F;

// The class's SPI descriptor is shared by all its objects and outlives a
// failed set-up: each test starts and ends with it closed.
class Ksz8794SpiPort : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(EthPortInfoSwitchKSZ8794spi::fdSpi, -1);
        settings.AddSetting("path.3.spi", NodePath);
    }
    void TearDown() override
    {
        if (EthPortInfoSwitchKSZ8794spi::fdSpi >= 0) {
            close(EthPortInfoSwitchKSZ8794spi::fdSpi);
            EthPortInfoSwitchKSZ8794spi::fdSpi = -1;
        }
    }

    std::unique_ptr<EthPortInfoSwitchKSZ8794spi> Make(unsigned int port) const
    {
        return std::make_unique<EthPortInfoSwitchKSZ8794spi>(3, port, settings);
    }

    ModuleSettings settings;
    LogCapture capture{8};
};

TEST_F(Ksz8794SpiPort, ChecksTheChipThenReadsPortRegistersWithReadCommands)
{
    const SpiDevice device = SpiEmulator::Ksz8794().Register(Port1Link, 0x20).Register(Port1Mode, 0x06).Build(NodePath);
    const auto port = Make(1);
    EXPECT_EQ(device.LastOpenFlags() & O_ACCMODE, O_RDWR);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Speed100);

    const auto transfers = device.Transfers();
    ASSERT_EQ(transfers.size(), 4U);
    EXPECT_EQ(transfers[0].sent, (Bytes{0x60, 0x00, 0x00})); // chip id 0
    EXPECT_EQ(transfers[1].sent, (Bytes{0x60, 0x02, 0x00})); // chip id 1
    EXPECT_EQ(transfers[2].sent, (Bytes{0x60, 0x3C, 0x00})); // link 0x1E
    EXPECT_EQ(transfers[3].sent, (Bytes{0x60, 0x3E, 0x00})); // mode 0x1F
    for (const auto& transfer : transfers) {
        EXPECT_EQ(transfer.length, 3U);
        EXPECT_TRUE(transfer.defaultsOnly) << "clock, word size and delays are the device's defaults";
    }
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(Ksz8794SpiPort, AddressBitsAboveSevenGoIntoTheFirstByte)
{
    SpiDevice device = SpiEmulator::Ksz8794().Register(0xAB, 0x42).Build(NodePath);
    const auto port = Make(2);
    device.ClearTransfers();
    unsigned char value = 0;
    ASSERT_TRUE(port->ReadRegister(0xAB, value));
    EXPECT_EQ(value, 0x42);
    ASSERT_EQ(device.Transfers().size(), 1U);
    EXPECT_EQ(device.Transfers()[0].sent, (Bytes{0x61, 0x56, 0x00}));
}

struct ModeCase {
    std::uint8_t mode;
    LinkSpeed speed;
    LinkDuplex duplex;
};

TEST_F(Ksz8794SpiPort, OperationModeTable)
{
    SpiDevice device = SpiEmulator::Ksz8794().Register(Port2Link, 0x20).Build(NodePath);
    const auto port = Make(2);
    // Only the low three bits count; 2, 3, 5 and 6 are the known modes.
    for (const ModeCase& c : {
             ModeCase{0x00, LinkSpeed::Unknown, LinkDuplex::Unknown},
             ModeCase{0x01, LinkSpeed::Unknown, LinkDuplex::Unknown},
             ModeCase{0x02, LinkSpeed::Speed10, LinkDuplex::Half},
             ModeCase{0x03, LinkSpeed::Speed100, LinkDuplex::Half},
             ModeCase{0x04, LinkSpeed::Unknown, LinkDuplex::Unknown},
             ModeCase{0x05, LinkSpeed::Speed10, LinkDuplex::Full},
             ModeCase{0x06, LinkSpeed::Speed100, LinkDuplex::Full},
             ModeCase{0x07, LinkSpeed::Unknown, LinkDuplex::Unknown},
             ModeCase{0xFB, LinkSpeed::Speed100, LinkDuplex::Half},
             ModeCase{0xF8, LinkSpeed::Unknown, LinkDuplex::Unknown},
         }) {
        device.SetRegister(Port2Mode, c.mode);
        EXPECT_EQ(port->GetPortLinkState(), LinkState::Up);
        EXPECT_EQ(port->GetPortLinkSpeed(), c.speed) << "mode " << int(c.mode);
        EXPECT_EQ(port->GetPortLinkDuplex(), c.duplex) << "mode " << int(c.mode);
    }
}

TEST_F(Ksz8794SpiPort, LinkDownNeverReadsTheModeRegister)
{
    SpiDevice device = SpiEmulator::Ksz8794().Register(Port1Link, 0xDF).Register(Port1Mode, 0x06).Build(NodePath);
    const auto port = Make(1);
    device.ClearTransfers();
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Down);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(device.RegistersRead(), (std::vector<unsigned int>{Port1Link, Port1Link, Port1Link}));

    // Every query asks the chip again.
    device.SetRegister(Port1Link, 0x20);
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Up);
}

TEST_F(Ksz8794SpiPort, FailedTransferGivesUnknownWithTheIoctlResult)
{
    SpiDevice device = SpiEmulator::Ksz8794().Register(Port1Link, 0x20).Build(NodePath);
    const auto port = Make(1);
    device.FailTransfers(true);
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8794 Switch: SPI_IOC_MESSAGE failed: -1"), 2U);

    device.FailTransfers(false);
    device.FailReadsOf(Port1Mode, true);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8794 Switch: SPI_IOC_MESSAGE failed: -1"), 3U);
}

TEST_F(Ksz8794SpiPort, OnlyPortsOneAndTwoExist)
{
    const SpiDevice device = SpiEmulator::Ksz8794().Build(NodePath);
    for (unsigned int port : {0U, 3U}) {
        try {
            Make(port);
            FAIL() << "port " << port << " accepted";
        } catch (const ArgumentException& e) {
            EXPECT_EQ(e.GetMessage(), ArgumentException::Create("port", port, "unsupported").GetMessage());
        }
    }
    EXPECT_EQ(device.OpenCount(), 0);
}

struct ChipCase {
    const char* name;
    std::uint8_t id0;
    std::uint8_t id1;
    const char* logged;
    const char* thrown;
};

TEST_F(Ksz8794SpiPort, ChipIdentityMismatchLogsKsz8863AndThrowsKsz8794)
{
    for (const ChipCase& c : {
             ChipCase{"a KSZ8863", 0x88, 0x61, "KSZ8863: Chip id0 mismatch. 136", "KSZ8794: Chip id0 mismatch."},
             ChipCase{"wrong family", 0x87, 0x31, "KSZ8863: Chip id1 mismatch. 48", "KSZ8794: Chip id1 mismatch."},
         }) {
        capture.Sink().Clear();
        {
            const SpiDevice device = SpiEmulator::Ksz8794().Register(0x00, c.id0).Register(0x01, c.id1).Build(NodePath);
            try {
                Make(1);
                FAIL() << c.name << ": accepted";
            } catch (const NotSupportedException& e) {
                EXPECT_EQ(e.GetMessage(), c.thrown) << c.name;
            }
            EXPECT_EQ(capture.Count(3, c.logged), 1U) << c.name;
        }
        TearDown();
    }
}

TEST_F(Ksz8794SpiPort, UnreadableChipStopsSetUp)
{
    for (unsigned int failing : {0x00U, 0x01U}) {
        capture.Sink().Clear();
        {
            const SpiDevice device = SpiEmulator::Ksz8794().FailReadsOf(failing).Build(NodePath);
            try {
                Make(1);
                FAIL() << "accepted";
            } catch (const InvalidOperationException& e) {
                // The ID0 text serves both reads.
                EXPECT_EQ(e.GetMessage(), "Could not read driver KSZ8863_REG_CHIP_ID0.");
            }
            EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8794 Switch: SPI_IOC_MESSAGE failed: -1"), 1U);
        }
        TearDown();
    }
}

TEST_F(Ksz8794SpiPort, MissingDeviceStopsSetUp)
{
    try {
        Make(1);
        FAIL() << "accepted";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), std::string("Could not open driver '") + NodePath + "'.");
    }
    EXPECT_EQ(EthPortInfoSwitchKSZ8794spi::fdSpi, -1);
}

TEST_F(Ksz8794SpiPort, AfterAFailedChipCheckLaterPortsAreBuiltWithoutOne)
{
    SpiDevice device = SpiEmulator::Ksz8794().Register(0x00, 0x00).Register(Port2Link, 0x20).Build(NodePath);
    EXPECT_THROW(Make(1), NotSupportedException);
    EXPECT_GE(EthPortInfoSwitchKSZ8794spi::fdSpi, 0) << "the device stays open";
    device.ClearTransfers();

    const auto port = Make(2);
    EXPECT_TRUE(device.Transfers().empty());
    EXPECT_EQ(device.OpenCount(), 1);
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Up);
}

TEST_F(Ksz8794SpiPort, PortsShareOneDeviceThatTheFirstDestructorCloses)
{
    const SpiDevice device = SpiEmulator::Ksz8794().Register(Port1Link, 0x20).Register(Port2Link, 0x20).Build(NodePath);
    auto port1 = Make(1);
    auto port2 = Make(2);
    EXPECT_EQ(device.OpenCount(), 1);
    EXPECT_EQ(device.RegistersRead(), (std::vector<unsigned int>{0x00, 0x01})) << "one chip check";
    EXPECT_EQ(port2->GetPortLinkState(), LinkState::Up);

    port1.reset();
    EXPECT_EQ(device.OpenDescriptors(), 0);
    EXPECT_EQ(EthPortInfoSwitchKSZ8794spi::fdSpi, -1);
    EXPECT_EQ(port2->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port2->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, "Error in ReadRegister(): Handle invalid.fdSpi = -1"), 2U);
    port2.reset();
    EXPECT_EQ(device.OpenCount(), 1);
}

} // namespace
