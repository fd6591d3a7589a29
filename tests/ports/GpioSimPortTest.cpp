// The KSZ8863's link lines on real GPIO lines: a gpio-sim chip's lines 0 and
// 1, exported through /sys/class/gpio, are ports 1 and 2 of device 2; the
// switch's registers come from an emulated spidev node. The kernel's GPIO
// stack is in the armhf VM only, so only its preset runs these.
#include "CaseFile.hpp"
#include "GpioSimChip.hpp"
#include "MemoryLogSink.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"
#include "spi/SpiEmulator.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace Zel::Hardware::Modules::Nim::Linux::Internal;
using namespace Zel::Hardware::Nim;
using namespace Zel::Test;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Pull = GpioSimChip::Pull;

const std::string Node8863 = "/dev/zel-emulated/spidev2.1";

class SimulatedLinkLines : public ::testing::Test {
protected:
    void SetUp() override
    {
        settings.AddSetting("path.2.spi", Node8863);
        settings.AddSetting("path.2.1.link", link1);
        settings.AddSetting("path.2.2.link", link2);
        chip.SetPull(0, Pull::Up);
        chip.SetPull(1, Pull::Up);
    }
    auto Make8863(unsigned int port) const { return std::make_unique<EthPortInfoSwitchKSZ8863gpio>(2, port, settings); }

    GpioSimChip chip = GpioSimChip().Lines(2).Name(0, "link1").Name(1, "link2").Build();
    const std::string link1 = chip.Export(0);
    const std::string link2 = chip.Export(1);
    SpiDevice spi = SpiEmulator::Ksz8863().Build(Node8863);
    ModuleSettings settings;
    LogCapture capture{8};
};

// The KSZ8863 rows of the register table, with the link set by the line's pull.
TEST_F(SimulatedLinkLines, TheLineIsTheLinkOfTheRegisterTable)
{
    const auto port = Make8863(1);
    for (const auto& row : Cases("registers.cases").at(0).Lines("rows")) {
        const auto fields = Words(row); // chip|link|register value|state|speed|duplex
        if (fields.at(0) != "KSZ8863") {
            continue;
        }
        chip.SetPull(0, fields.at(1) == "1" ? Pull::Up : Pull::Down);
        spi.SetRegister(0x1F, static_cast<std::uint8_t>(std::stoul(fields.at(2), nullptr, 0)));
        EXPECT_EQ(fmt::format("{}|{}|{}", static_cast<int>(port->GetPortLinkState()),
                              static_cast<int>(port->GetPortLinkSpeed()), static_cast<int>(port->GetPortLinkDuplex())),
                  fmt::format("{}|{}|{}", fields.at(3), fields.at(4), fields.at(5)))
            << row;
    }
    EXPECT_TRUE(capture.Records().empty());
}

// The line is read again through the descriptor opened at set-up. A line
// taken back, or a chip gone with all its lines, reads ENODEV: link unknown
// and GpioAccess's two messages per read, the speed's included.
TEST_F(SimulatedLinkLines, AGoneLineIsAnUnknownLink)
{
    const auto port1 = Make8863(1);
    const auto port2 = Make8863(2);
    ASSERT_EQ(port1->GetPortLinkState(), LinkState::Up);
    ASSERT_EQ(port2->GetPortLinkState(), LinkState::Up);

    chip.Unexport(0);
    EXPECT_EQ(port1->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port1->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(capture.Count(3, "Could not read '" + link1 + "': No such device"), 4U);
    EXPECT_EQ(port2->GetPortLinkState(), LinkState::Up) << "the other line is still there";

    chip.SetLive(false);
    EXPECT_EQ(port2->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(capture.Count(3, "Could not read '" + link2 + "': No such device"), 2U);
    EXPECT_EQ(capture.Records().size(), 6U);
}

} // namespace
