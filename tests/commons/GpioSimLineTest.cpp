// GpioAccess on the value files of real GPIO lines: a gpio-sim chip's lines
// exported through /sys/class/gpio, their level set by the chip's pulls. The
// kernel's GPIO stack is in the armhf VM only, so only its preset runs these.
#include "Modules/Commons/Linux/GpioAccess.hpp"

#include "Checks.hpp"
#include "GpioSimChip.hpp"
#include "MemoryLogSink.hpp"
#include "ScratchDirectory.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::GpioAccess;
using Zel::System::Commons::InvalidOperationException;
using namespace Zel::Test;
using Pull = GpioSimChip::Pull;

class SimulatedLine : public ::testing::Test {
protected:
    GpioSimChip chip = GpioSimChip().Lines(2).Build();
    const std::string value = chip.Export(1);
    GpioAccess gpio;
    LogCapture capture{8};
};

// The value file is read again from offset 0 through the descriptor opened
// once, as the link lines are; a line whose export is gone reads ENODEV.
TEST_F(SimulatedLine, ReadFollowsThePullUntilTheLineIsGone)
{
    int fd = gpio.Open(value, O_RDONLY);
    for (const Pull pull : {Pull::Up, Pull::Down, Pull::Up}) {
        chip.SetPull(1, pull);
        bool high = pull == Pull::Down;
        EXPECT_TRUE(gpio.Read(fd, value, high));
        EXPECT_EQ(high, pull == Pull::Up);
    }
    EXPECT_TRUE(capture.Records().empty());

    chip.Unexport(1);
    bool high = true;
    EXPECT_FALSE(gpio.Read(fd, value, high));
    EXPECT_TRUE(high) << "value must stay untouched";
    EXPECT_EQ(capture.Count(3, "Could not read '" + value + "': No such device"), 2U);
    EXPECT_EQ(capture.Records().size(), 2U);
    gpio.Close(fd, value);
    EXPECT_EQ(fd, -1);
    ExpectThrow<InvalidOperationException>([this] { gpio.Open(value, O_RDONLY); },
                                           "Could not open '" + value + "': No such file or directory");
}

TEST_F(SimulatedLine, WriteDrivesAnOutputLineAndAnInputRefusesIt)
{
    const int fd = gpio.Open(value, O_RDWR);
    gpio.Write(fd, value, true);
    EXPECT_EQ(capture.Count(3, "Could not write '1 to '" + value + "': Operation not permitted"), 1U);

    WriteFile(value.substr(0, value.rfind('/')) + "/direction", "out");
    for (const bool level : {true, false, true}) {
        gpio.Write(fd, value, level);
        EXPECT_EQ(chip.Value(1), level ? 1 : 0);
    }
    EXPECT_EQ(capture.Records().size(), 1U);
}

} // namespace
