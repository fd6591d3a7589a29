// KSZ8863 ports whose link lines are gpio-sim lines read through the GPIO
// character device, on the armhf VM's kernel; speed and duplex come from an
// emulated spidev node whose port 1 status says 100 Mbit/s full duplex.
#include "CaseFile.hpp"
#include "Checks.hpp"
#include "GpioSimChip.hpp"
#include "MemoryLogSink.hpp"
#include "Modules/Commons/Linux/GpioLineReader.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoSwitchKSZ8863gpio.hpp"
#include "spi/SpiEmulator.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace Zel::Test {
namespace {

using namespace Zel::Hardware::Modules::Nim::Linux::Internal;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Commons::Linux::GpioLineReader;
using Zel::System::Commons::InvalidOperationException;

const std::string SpiNode = "/dev/zel-emulated/spidev2.1";

class GpioLinkLine : public ::testing::Test {
protected:
    std::unique_ptr<EthPortInfoSwitchKSZ8863gpio> Make(const std::string& chip, const std::string& line) const
    {
        ModuleSettings settings;
        settings.AddSetting("path.2.spi", SpiNode);
        if (!chip.empty()) {
            settings.AddSetting("path.2.1.linkChip", Fill(chip));
        }
        settings.AddSetting("path.2.1.linkLine", line);
        return std::make_unique<EthPortInfoSwitchKSZ8863gpio>(2, 1, settings);
    }
    std::string Fill(std::string text) const
    {
        for (const auto& [placeholder, value] : {std::pair{"<node>", sim.DevicePath()}, {"<label>", label}}) {
            for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder)) {
                text.replace(at, std::strlen(placeholder), value);
            }
        }
        return text;
    }
    static std::string Codes(const IEthPortInfo& port)
    {
        return fmt::format("{}|{}|{}", static_cast<int>(port.GetPortLinkState()),
                           static_cast<int>(port.GetPortLinkSpeed()), static_cast<int>(port.GetPortLinkDuplex()));
    }

    GpioSimChip sim = GpioSimChip().Lines(8).Name(3, "ETH1_LINK").Name(5, "ETH2_LINK").Build();
    // As the kernel shows it, here through sysfs GPIO.
    const std::string label = [this] {
        const std::string text = ReadFile(fmt::format("/sys/class/gpio/gpiochip{}/label", sim.Base()));
        return text.substr(0, text.find('\n'));
    }();
    SpiDevice spi = SpiEmulator::Ksz8863().Register(0x1F, 0x06).Build(SpiNode);
    LogCapture capture{5};
};

// Active high: pulled up is link up with the switch's speed and duplex;
// pulled down is down, and the switch is not asked.
TEST_F(GpioLinkLine, EveryFormOfTheLineReadsItActiveHigh)
{
    for (const auto& row : Cases("gpio-lines.cases").at(0).Lines("rows")) {
        SCOPED_TRACE(row);
        const auto port = Make(Words(row).at(0), Words(row).at(1));
        for (const bool high : {true, false}) {
            sim.SetPull(3, high ? GpioSimChip::Pull::Up : GpioSimChip::Pull::Down);
            spi.ClearTransfers();
            EXPECT_EQ(Codes(*port), high ? "1|2|2" : "0|0|0");
            EXPECT_EQ(spi.State().transfers.size(), high ? 2U : 0U);
        }
    }
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(GpioLinkLine, SetUpFailsNamingChipAndLine)
{
    ASSERT_EQ(::mknod("/dev/gpiochip99", S_IFCHR | 0600, makedev(1, 250)), 0);
    for (const auto& row : Cases("gpio-lines.cases").at(1).Lines("rows")) {
        const auto fields = Words(row);
        ExpectThrow<InvalidOperationException>([&] { Make(fields.at(0), fields.at(1)); }, Fill(fields.at(2)));
    }
    ::unlink("/dev/gpiochip99");
}

// A line another user holds (here sysfs GPIO, for a value file) and a line
// whose chip went away read unknown, with one message per read.
TEST_F(GpioLinkLine, BusyAndGoneLinesReadUnknown)
{
    const auto port = Make("<label>", "3");
    sim.SetPull(3, GpioSimChip::Pull::Up);
    sim.Export(3);
    EXPECT_EQ(Codes(*port), "255|0|0");
    EXPECT_EQ(capture.Count(3, Fill("Line 3 of GPIO chip '<node>' is busy: held by 'sysfs'")), 3U);
    sim.Unexport(3);
    EXPECT_EQ(Codes(*port), "1|2|2");
    const std::string gone = Fill("Could not read line 3 of GPIO chip '<node>': No such device");
    sim.SetLive(false);
    EXPECT_EQ(Codes(*port), "255|0|0");
    EXPECT_EQ(capture.Count(3, gone), 3U);
    EXPECT_EQ(capture.Records().size(), 6U);
}

// The controller's port and another process (nimhost) read one line at once,
// each back to back: the kernel lends the line to one of them at a time, and
// no read fails. On one core, as single-core boards and the guest run them;
// two readers that read back to back on two cores can keep each other from
// the line longer than a read waits.
TEST_F(GpioLinkLine, TwoProcessesReadOneLineAtOnce)
{
    constexpr int reads = 2000;
    const auto port = Make("", "ETH1_LINK");
    sim.SetPull(3, GpioSimChip::Pull::Up);
    cpu_set_t cores;
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(0, &first);
    ASSERT_EQ(sched_getaffinity(0, sizeof cores, &cores), 0);
    ASSERT_EQ(sched_setaffinity(0, sizeof first, &first), 0);
    const pid_t other = fork();
    if (other == 0) {
        const GpioLineReader line(label, "3");
        int failed = 0;
        for (int i = 0; i < reads; ++i) {
            bool value = false;
            failed += line.Read(value) && value ? 0 : 1;
        }
        _exit(failed == 0 ? 0 : 1);
    }
    int up = 0;
    for (int i = 0; i < reads; ++i) {
        up += port->GetPortLinkState() == LinkState::Up ? 1 : 0;
    }
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    sched_setaffinity(0, sizeof cores, &cores);
    EXPECT_EQ(up, reads);
    EXPECT_EQ(status, 0) << "the other process's reads failed";
    EXPECT_EQ(capture.Text(), "");
}

} // namespace
} // namespace Zel::Test
