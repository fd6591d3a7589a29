// The SPI switch ports against emulated spidev nodes: device 3 is a KSZ8794,
// device 2 a KSZ8863 with one GPIO link line (a scratch file) per port.
#include "CaseFile.hpp"
#include "Checks.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8794spi.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"
#include "Modules/Nim/Linux/Internal/SpiSwitchRegisterReader.hpp"
#include "ScratchDirectory.hpp"
#include "spi/SpiEmulator.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fcntl.h>

#include <memory>
#include <typeinfo>
#include <vector>

namespace {

using namespace Zel::Hardware::Modules::Nim::Linux::Internal;
using namespace Zel::Hardware::Nim;
using namespace Zel::System::Commons;
using namespace Zel::Test;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Bytes = std::vector<std::uint8_t>;

const std::string Node8794 = "/dev/zel-emulated/spidev1.0";
const std::string Node8863 = "/dev/zel-emulated/spidev2.1";
const std::string Channel8794 = "Zel.Hardware.Modules.Nim.Linux.Internal.EthPortInfoSwitchKSZ8794spi";
const std::string Channel8863 = "Zel.Hardware.Modules.Nim.Linux.Internal.EthPortInfoSwitchKSZ8863gpio";

// Every transfer is one SPI_IOC_MESSAGE(1) of the three bytes expected, with
// the device's default clock, word size and delays.
void ExpectCommands(const SpiDevice& device, const std::vector<Bytes>& expected)
{
    const auto state = device.State();
    ASSERT_EQ(state.transfers.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(state.transfers[i].sent, expected[i]) << i;
        EXPECT_TRUE(state.transfers[i].defaultsOnly);
    }
    EXPECT_EQ(state.foreignRequests, 0);
    EXPECT_EQ(state.lastOpenFlags & O_ACCMODE, O_RDWR);
}

class SpiSwitchPort : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir.Write("link1", "1\n");
        dir.Write("link2", "1\n");
        settings.AddSetting("path.3.spi", Node8794);
        settings.AddSetting("path.2.spi", Node8863);
        settings.AddSetting("path.2.1.link", dir.Path("link1"));
        settings.AddSetting("path.2.2.link", dir.Path("link2"));
    }
    auto Make8794(unsigned int port) const { return std::make_unique<EthPortInfoSwitchKSZ8794spi>(3, port, settings); }
    auto Make8863(unsigned int port) const { return std::make_unique<EthPortInfoSwitchKSZ8863gpio>(2, port, settings); }

    ScratchDirectory dir;
    ModuleSettings settings;
    LogCapture capture{8};
};

// Without a link (KSZ8794 link register bit 5, KSZ8863 GPIO line) speed and
// duplex are unknown and the mode or status register is not read at all.
TEST_F(SpiSwitchPort, RegisterDecodingTables)
{
    // Any revision in the identity's low nibble is accepted.
    SpiDevice spi8794 = SpiEmulator::Ksz8794().Register(0x01, 0x6E).Register(0xAB, 0x42).Build(Node8794);
    SpiDevice spi8863 = SpiEmulator::Ksz8863().Register(0x01, 0x3F).Build(Node8863);
    const auto port8794 = Make8794(2);
    const auto port8863 = Make8863(1);
    // The chip check: identity registers 0 and 1, each read once. KSZ8794:
    // 011, twelve address bits and a turnaround bit.
    ExpectCommands(spi8794, {{0x60, 0x00, 0x00}, {0x60, 0x02, 0x00}});
    ExpectCommands(spi8863, {{0x03, 0x00, 0x00}, {0x03, 0x01, 0x00}});
    for (const auto& row : Cases("registers.cases").at(0).Lines("rows")) {
        SCOPED_TRACE(row);
        const auto fields = Words(row); // chip|link|register value|state|speed|duplex
        const bool is8794 = fields.at(0) == "KSZ8794";
        const auto link = static_cast<std::uint8_t>(std::stoul(fields.at(1), nullptr, 0));
        SpiDevice& spi = is8794 ? spi8794 : spi8863;
        is8794 ? spi8794.SetRegister(0x2E, link) : (void)dir.Write("link1", link != 0 ? "1\n" : "0\n");
        spi.SetRegister(is8794 ? 0x2F : 0x1F, static_cast<std::uint8_t>(std::stoul(fields.at(2), nullptr, 0)));
        spi.ClearTransfers();
        const IEthPortInfo& port = is8794 ? static_cast<const IEthPortInfo&>(*port8794) : *port8863;
        // One query after the other, in the order the commands are checked in.
        const int state = static_cast<int>(port.GetPortLinkState());
        const int speed = static_cast<int>(port.GetPortLinkSpeed());
        const int duplex = static_cast<int>(port.GetPortLinkDuplex());
        EXPECT_EQ(fmt::format("{}|{}|{}", state, speed, duplex),
                  fmt::format("{}|{}|{}", fields.at(3), fields.at(4), fields.at(5)));
        const bool up = fields.at(3) == "1";
        // KSZ8794: the link register at each query, the mode register after a link.
        const Bytes linkRead = {0x60, 0x5C, 0x00};
        const Bytes mode = {0x60, 0x5E, 0x00};
        ExpectCommands(spi,
                       is8794
                           ? (up ? std::vector<Bytes>{linkRead, linkRead, mode, linkRead, mode}
                                 : std::vector<Bytes>{linkRead, linkRead, linkRead})
                           : (up ? std::vector<Bytes>{{0x03, 0x1F, 0x00}, {0x03, 0x1F, 0x00}} : std::vector<Bytes>{}));
    }

    // A register number with bit 7 set, which no port asks for, goes into the
    // KSZ8794's first byte.
    SpiSwitchRegisterReader reader(SpiSwitchChip::Ksz8794, Logging::LogChannel{typeid(SpiSwitchPort)});
    reader.Open(settings, 3);
    spi8794.ClearTransfers();
    unsigned char value = 0;
    ASSERT_TRUE(reader.ReadRegister(0xAB, value));
    EXPECT_EQ(value, 0x42);
    ExpectCommands(spi8794, {{0x61, 0x56, 0x00}});
    reader.Close();
    EXPECT_TRUE(capture.Records().empty());
}

// KSZ8794: port 1's link register fails, port 2 has a link and its mode
// register fails; KSZ8863: the status register fails.
TEST_F(SpiSwitchPort, FailedReadsGiveUnknownCodesWithOneMessageEach)
{
    SpiDevice spi8794 = SpiEmulator::Ksz8794().Register(0x2E, 0x20).Build(Node8794);
    SpiDevice spi8863 = SpiEmulator::Ksz8863().Build(Node8863);
    const auto port1 = Make8794(1);
    const auto port2 = Make8794(2);
    const auto port8863 = Make8863(1);
    spi8794.FailReadsOf(0x1E);
    spi8794.FailReadsOf(0x2F);
    spi8863.FailReadsOf(0x1F);
    EXPECT_EQ(port1->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port1->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port2->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8794 Switch: SPI_IOC_MESSAGE failed: -1"), 3U);

    EXPECT_EQ(port8863->GetPortLinkState(), LinkState::Up) << "the link comes from the GPIO line";
    EXPECT_EQ(port8863->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port8863->GetPortLinkDuplex(), LinkDuplex::Unknown);
    EXPECT_EQ(capture.Count(3, "Can not read data from KSZ8863 Switch: SPI_IOC_MESSAGE failed: -1"), 2U);
    EXPECT_EQ(capture.Records().size(), 5U);

    // An unreadable link line: GpioAccess's two messages per query, and no SPI traffic.
    capture.Sink().Clear();
    spi8863.ClearTransfers();
    dir.MakeUnreadable("link2");
    const auto unreadable = Make8863(2);
    EXPECT_EQ(unreadable->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(unreadable->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(capture.Count(3, "Could not read '" + dir.Path("link2") + "': Is a directory"), 4U);
    EXPECT_TRUE(spi8863.State().transfers.empty());
}

// Identity mismatches log with the KSZ8863's name for both chips, on each
// class's own channel; an unreadable identity throws the ID0 text for both
// registers.
TEST_F(SpiSwitchPort, ChipCheckFailuresStopSetUp)
{
    for (const auto& row : Cases("registers.cases").at(1).Lines("rows")) {
        SCOPED_TRACE(row);
        const auto fields = Words(row); // chip|id0|id1|failing read|thrown|logged
        const bool is8794 = fields.at(0) == "KSZ8794";
        capture.Sink().Clear();
        SpiDevice device = (is8794 ? SpiEmulator::Ksz8794() : SpiEmulator::Ksz8863())
                               .Register(0, static_cast<std::uint8_t>(std::stoul(fields.at(1), nullptr, 0)))
                               .Register(1, static_cast<std::uint8_t>(std::stoul(fields.at(2), nullptr, 0)))
                               .Build(is8794 ? Node8794 : Node8863);
        if (!fields.at(3).empty()) {
            device.FailReadsOf(static_cast<unsigned int>(std::stoul(fields.at(3))));
        }
        try {
            is8794 ? (void)Make8794(1) : (void)Make8863(1);
            ADD_FAILURE() << "accepted";
        } catch (const Exception& e) {
            EXPECT_EQ(typeid(e),
                      fields.at(3).empty() ? typeid(NotSupportedException) : typeid(InvalidOperationException));
            EXPECT_EQ(e.GetMessage(), fields.at(4));
        }
        ASSERT_EQ(capture.Records().size(), 1U);
        EXPECT_EQ(capture.Count(3, fields.at(5)), 1U);
        EXPECT_EQ(capture.Records()[0].channel, is8794 ? Channel8794 : Channel8863);
        // The device stays open: a port built now skips the check and closes it when dropped.
        EXPECT_NO_THROW(is8794 ? (void)Make8794(1) : (void)Make8863(1));
    }
}

// A port the chip does not have, or a missing node or link line, is refused
// before the device is opened. After a failed chip check the device stays
// open and later ports skip the check; the first destructor closes the one
// device of all ports.
TEST_F(SpiSwitchPort, OneDeviceForAllPortsThatTheFirstDestructorCloses)
{
    ExpectThrow<InvalidOperationException>([this] { Make8794(1); }, "Could not open driver '" + Node8794 + "'.");
    ExpectThrow<InvalidOperationException>([this] { Make8863(1); }, "Could not open driver '" + Node8863 + "'.");
    const long before = OpenDescriptorCount();
    SpiDevice spi8794 = SpiEmulator::Ksz8794().Register(0x00, 0x00).Register(0x2E, 0x20).Build(Node8794);
    SpiDevice spi8863 = SpiEmulator::Ksz8863().Register(0x00, 0x87).Register(0x2F, 0x06).Build(Node8863);
    for (unsigned int port : {0U, 3U}) {
        const std::string message = fmt::format("Invalid argument 'port' = '{}': unsupported", port);
        ExpectThrow<ArgumentException>([&] { Make8794(port); }, message);
        // No link line is configured for these ports: reading one would throw another exception.
        ExpectThrow<ArgumentException>([&] { Make8863(port); }, message);
    }
    dir.Remove("link1");
    ExpectThrow<InvalidOperationException>([this] { Make8863(1); },
                                           "Could not open '" + dir.Path("link1") + "': No such file or directory");
    EXPECT_EQ(spi8794.State().openCount + spi8863.State().openCount, 0);
    dir.Write("link1", "1\n");

    EXPECT_THROW(Make8794(1), NotSupportedException);
    EXPECT_THROW(Make8863(1), NotSupportedException);
    EXPECT_EQ(OpenDescriptorCount(), before + 3) << "both devices and the failed port's link line";
    spi8794.ClearTransfers();
    spi8863.ClearTransfers();
    auto a1 = Make8794(2);
    auto a2 = Make8794(2);
    auto b1 = Make8863(2);
    auto b2 = Make8863(2);
    EXPECT_TRUE(spi8794.State().transfers.empty());
    EXPECT_TRUE(spi8863.State().transfers.empty());
    EXPECT_EQ(a2->GetPortLinkState(), LinkState::Up);
    EXPECT_EQ(b2->GetPortLinkSpeed(), LinkSpeed::Speed100);

    a1.reset();
    b1.reset();
    EXPECT_EQ(OpenDescriptorCount(), before + 2) << "b2's link line and the leaked one";
    EXPECT_EQ(a2->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(b2->GetPortLinkState(), LinkState::Up) << "from its own link line";
    EXPECT_EQ(b2->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(capture.Count(3, "Error in ReadRegister(): Handle invalid.fdSpi = -1"), 2U);
    a2.reset();
    b2.reset();
    EXPECT_EQ(OpenDescriptorCount(), before + 1);
    EXPECT_EQ(spi8794.State().openCount, 1);
    EXPECT_EQ(spi8863.State().openCount, 1);
    // A device closed by a destructor is opened and checked again.
    ExpectThrow<NotSupportedException>([this] { Make8794(1); }, "KSZ8794: Chip id0 mismatch.");
    EXPECT_NO_THROW(Make8794(1)) << "closes the device the failed check left open";
}

} // namespace
