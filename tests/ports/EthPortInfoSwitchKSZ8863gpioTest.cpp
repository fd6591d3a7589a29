#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"
#include "PortTestSupport.hpp"
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
using Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoSwitchKSZ8863gpio;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::NotSupportedException;
using Zel::Test::LogCapture;
using Zel::Test::SpiDevice;
using Zel::Test::SpiEmulator;
using Zel::Test::Ports::OpenDescriptorCount;
using Zel::Test::Ports::ScratchDirectory;
using Bytes = std::vector<std::uint8_t>;

constexpr const char* NodePath = "/dev/zel-emulated/spidev2.1";
constexpr unsigned int Port1Status = 0x1F;
constexpr unsigned int Port2Status = 0x2F;

// Device 2: two link lines (GPIO value files) and the switch on SPI. The
// class's SPI descriptor outlives a failed set-up: each test starts and ends
// with it closed.
class Ksz8863GpioPort : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(EthPortInfoSwitchKSZ8863gpio::fdSpi, -1);
        dir.Write("link1", "1\n");
        dir.Write("link2", "1\n");
        settings.AddSetting("path.2.spi", NodePath);
        settings.AddSetting("path.2.1.link", dir.Path("link1"));
        settings.AddSetting("path.2.2.link", dir.Path("link2"));
    }
    void TearDown() override
    {
        if (EthPortInfoSwitchKSZ8863gpio::fdSpi >= 0) {
            close(EthPortInfoSwitchKSZ8863gpio::fdSpi);
            EthPortInfoSwitchKSZ8863gpio::fdSpi = -1;
        }
    }

    std::unique_ptr<EthPortInfoSwitchKSZ8863gpio> Make(unsigned int port) const
    {
        return std::make_unique<EthPortInfoSwitchKSZ8863gpio>(2, port, settings);
    }

    ScratchDirectory dir;
    ModuleSettings settings;
    LogCapture capture{8};
};

TEST_F(Ksz8863GpioPort, ChecksTheChipThenReadsTheStatusRegisterOfEachPort)
{
    const SpiDevice device = SpiEmulator::Ksz8863().Register(Port1Status, 0x06).Register(Port2Status, 0x00).Build(NodePath);
    const auto port1 = Make(1);
    const auto port2 = Make(2);
    EXPECT_EQ(device.LastOpenFlags() & O_ACCMODE, O_RDWR);
    EXPECT_EQ(port1->GetPortLinkSpeed(), LinkSpeed::Speed100);
    EXPECT_EQ(port2->GetPortLinkDuplex(), LinkDuplex::Half);

    const auto transfers = device.Transfers();
    ASSERT_EQ(transfers.size(), 4U);
    EXPECT_EQ(transfers[0].sent, (Bytes{0x03, 0x00, 0x00}));
    EXPECT_EQ(transfers[1].sent, (Bytes{0x03, 0x01, 0x00}));
    EXPECT_EQ(transfers[2].sent, (Bytes{0x03, 0x1F, 0x00}));
    EXPECT_EQ(transfers[3].sent, (Bytes{0x03, 0x2F, 0x00}));
    for (const auto& transfer : transfers) {
        EXPECT_EQ(transfer.length, 3U);
        EXPECT_TRUE(transfer.defaultsOnly);
    }
    EXPECT_EQ(device.OpenCount(), 1) << "the second port reuses the device";
    EXPECT_TRUE(capture.Records().empty());
}

struct StatusCase {
    std::uint8_t status;
    LinkSpeed speed;
    LinkDuplex duplex;
};

TEST_F(Ksz8863GpioPort, StatusRegisterTable)
{
    SpiDevice device = SpiEmulator::Ksz8863().Build(NodePath);
    const auto port = Make(1);
    // Bit 2: 100 Mbit/s, else 10; bit 1: full duplex, else half.
    for (const StatusCase& c : {
             StatusCase{0x00, LinkSpeed::Speed10, LinkDuplex::Half},
             StatusCase{0x02, LinkSpeed::Speed10, LinkDuplex::Full},
             StatusCase{0x04, LinkSpeed::Speed100, LinkDuplex::Half},
             StatusCase{0x06, LinkSpeed::Speed100, LinkDuplex::Full},
             StatusCase{0xF9, LinkSpeed::Speed10, LinkDuplex::Half},
             StatusCase{0xFF, LinkSpeed::Speed100, LinkDuplex::Full},
         }) {
        device.SetRegister(Port1Status, c.status);
        EXPECT_EQ(port->GetPortLinkSpeed(), c.speed) << "status " << int(c.status);
        EXPECT_EQ(port->GetPortLinkDuplex(), c.duplex) << "status " << int(c.status);
    }
}

struct LineCase {
    const char* text;
    LinkState expected;
};

TEST_F(Ksz8863GpioPort, LinkLineIsActiveHigh)
{
    const SpiDevice device = SpiEmulator::Ksz8863().Build(NodePath);
    const auto port = Make(2);
    for (const LineCase& c : {LineCase{"1\n", LinkState::Up}, LineCase{"0\n", LinkState::Down},
                              LineCase{"1", LinkState::Up}, LineCase{"x\n", LinkState::Down}}) {
        dir.Write("link2", c.text);
        EXPECT_EQ(port->GetPortLinkState(), c.expected) << c.text;
    }
}

TEST_F(Ksz8863GpioPort, NoLinkMeansNoSpiTraffic)
{
    SpiDevice device = SpiEmulator::Ksz8863().Register(Port1Status, 0x06).Build(NodePath);
    const auto port = Make(1);
    device.ClearTransfers();
    dir.Write("link1", "0\n");
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_TRUE(device.Transfers().empty());
}

TEST_F(Ksz8863GpioPort, UnreadableLinkLineGivesUnknownWithTwoMessagesPerQuery)
{
    SpiDevice device = SpiEmulator::Ksz8863().Build(NodePath);
    dir.MakeUnreadable("link1");
    const auto port = Make(1);
    device.ClearTransfers();
    const std::string message = "Could not read '" + dir.Path("link1") + "': Is a directory";

    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(capture.Count(3, message), 2U);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(capture.Count(3, message), 4U);
    EXPECT_TRUE(device.Transfers().empty());
}

TEST_F(Ksz8863GpioPort, FailedStatusReadGivesUnknownWithTheIoctlResult)
{
    SpiDevice device = SpiEmulator::Ksz8863().Build(NodePath);
    const auto port = Make(1);
    device.FailTransfers(true);
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Up) << "the link comes from the GPIO line";
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8863 Switch: SPI_IOC_MESSAGE failed: -1"), 2U);
    EXPECT_EQ(capture.Records().size(), 2U);
}

TEST_F(Ksz8863GpioPort, OnlyPortsOneAndTwoExistAndNothingIsOpenedForOthers)
{
    const SpiDevice device = SpiEmulator::Ksz8863().Build(NodePath);
    // No link settings for these ports: a read of them would throw another exception.
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

TEST_F(Ksz8863GpioPort, MissingLinkLineStopsSetUpBeforeTheSwitchIsOpened)
{
    const SpiDevice device = SpiEmulator::Ksz8863().Build(NodePath);
    dir.Remove("link1");
    try {
        Make(1);
        FAIL() << "accepted";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "Could not open '" + dir.Path("link1") + "': No such file or directory");
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

TEST_F(Ksz8863GpioPort, ChipIdentityMismatch)
{
    for (const ChipCase& c : {
             ChipCase{"a KSZ8794", 0x87, 0x31, "KSZ8863: Chip id0 mismatch. 135", "KSZ8863: Chip id0 mismatch."},
             ChipCase{"wrong family", 0x88, 0x61, "KSZ8863: Chip id1 mismatch. 96", "KSZ8863: Chip id1 mismatch."},
         }) {
        capture.Sink().Clear();
        {
            const SpiDevice device = SpiEmulator::Ksz8863().Register(0x00, c.id0).Register(0x01, c.id1).Build(NodePath);
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

TEST_F(Ksz8863GpioPort, UnreadableChipStopsSetUpWithTheId0TextForBothReads)
{
    for (unsigned int failing : {0x00U, 0x01U}) {
        capture.Sink().Clear();
        {
            const SpiDevice device = SpiEmulator::Ksz8863().FailReadsOf(failing).Build(NodePath);
            try {
                Make(1);
                FAIL() << "accepted";
            } catch (const InvalidOperationException& e) {
                EXPECT_EQ(e.GetMessage(), "Could not read driver KSZ8863_REG_CHIP_ID0.");
            }
            EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8863 Switch: SPI_IOC_MESSAGE failed: -1"), 1U);
        }
        TearDown();
    }
}

TEST_F(Ksz8863GpioPort, AfterAFailedChipCheckLaterPortsAreBuiltWithoutOne)
{
    SpiDevice device = SpiEmulator::Ksz8863().Register(0x00, 0x87).Register(Port2Status, 0x06).Build(NodePath);
    EXPECT_THROW(Make(1), NotSupportedException);
    device.ClearTransfers();
    const auto port = Make(2);
    EXPECT_TRUE(device.Transfers().empty());
    EXPECT_EQ(device.OpenCount(), 1);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Speed100);
}

TEST_F(Ksz8863GpioPort, FirstDestructorClosesTheDeviceForAllPorts)
{
    const SpiDevice device = SpiEmulator::Ksz8863().Register(Port2Status, 0x06).Build(NodePath);
    const int before = OpenDescriptorCount();
    auto port1 = Make(1);
    auto port2 = Make(2);
    EXPECT_EQ(device.RegistersRead(), (std::vector<unsigned int>{0x00, 0x01})) << "one chip check";
    EXPECT_EQ(OpenDescriptorCount(), before + 3) << "two link lines and the device";

    port1.reset();
    EXPECT_EQ(OpenDescriptorCount(), before + 1) << "port 2's link line only";
    EXPECT_EQ(EthPortInfoSwitchKSZ8863gpio::fdSpi, -1);
    EXPECT_EQ(port2->GetPortLinkState(), LinkState::Up);
    EXPECT_EQ(port2->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(capture.Count(3, "Error in ReadRegister(): Handle invalid.fdSpi = -1"), 1U);

    port2.reset();
    EXPECT_EQ(OpenDescriptorCount(), before);
    EXPECT_EQ(device.OpenCount(), 1);
}

} // namespace
