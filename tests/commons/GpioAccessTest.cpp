// GpioAccess on a scratch file standing in for a GPIO line's value file.
// Descriptors opened here are left to the process's end.
#include "Modules/Commons/Linux/GpioAccess.hpp"
#include "Modules/Commons/Linux/ErrorString.hpp"

#include "MemoryLogSink.hpp"
#include "ScratchDirectory.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::GpioAccess;
using namespace Zel::Test;

class GpioLine : public ::testing::Test {
protected:
    void OpenValue(const char* text, int flags = O_RDONLY)
    {
        dir.Write("value", text);
        fd = gpio.Open(value, flags);
    }

    ScratchDirectory dir;
    LogCapture capture{8};
    const std::string value = dir.Path("value");
    GpioAccess gpio;
    int fd = -1;
};

TEST_F(GpioLine, ReadFollowsTheFileFromOffsetZero)
{
    OpenValue("1\n");
    // Only a leading '1' is high.
    for (const auto& [text, expected] :
         {std::pair{"1\n", true}, {"0\n", false}, {"1", true}, {"x\n", false}, {"10\n", true}, {" 1\n", false}}) {
        dir.Write("value", text);
        bool result = !expected;
        EXPECT_TRUE(gpio.Read(fd, value, result)) << text;
        EXPECT_EQ(result, expected) << text;
    }
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(GpioLine, FailedReadsAreTriedTwiceWithOneMessageEach)
{
    OpenValue("");
    bool result = true;
    EXPECT_FALSE(gpio.Read(fd, value, result)) << "an empty read is a failure";
    EXPECT_TRUE(result) << "value must stay untouched";
    // errno of an empty read is whatever came before; only the start of the
    // text is fixed. An errno's text is pinned through the KSZ8863's link line.
    ASSERT_EQ(capture.Records().size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(capture.Records()[i].level, 3);
        EXPECT_EQ(capture.Records()[i].text.rfind("Could not read '" + value + "': ", 0), 0U);
    }
    // A missing line's open failure is pinned through the KSZ8863's link line.
    // An errno the C library has no text for keeps its number.
    EXPECT_EQ(Zel::Hardware::Modules::Commons::Linux::ErrorString().GetString(12345), "Unknown error 12345");
}

TEST_F(GpioLine, WriteIsOneCharacterAtOffsetZero)
{
    OpenValue("0xy", O_RDWR);
    gpio.Write(fd, value, true);
    EXPECT_EQ(dir.Read("value"), "1xy");
    gpio.Write(fd, value, false);
    EXPECT_EQ(dir.Read("value"), "0xy");
    EXPECT_TRUE(capture.Records().empty());

    fd = gpio.Open(value, O_RDONLY);
    gpio.Write(fd, value, true);
    // The quote after the value is missing in the established text.
    EXPECT_EQ(capture.Count(3, "Could not write '1 to '" + value + "': Bad file descriptor"), 1U);
    EXPECT_EQ(dir.Read("value"), "0xy");
}

// -1 is a line that is not available: skipped silently by all three.
TEST_F(GpioLine, CloseResetsTheDescriptorOrWarnsAndKeepsIt)
{
    bool result = true;
    EXPECT_FALSE(gpio.Read(-1, "unused", result));
    EXPECT_TRUE(result);
    gpio.Write(-1, "unused", false);
    OpenValue("0\n");
    gpio.Close(fd, value);
    EXPECT_EQ(fd, -1);
    gpio.Close(fd, value);
    EXPECT_TRUE(capture.Records().empty());

    int stale = 1000; // not open in this process
    gpio.Close(stale, "/sys/class/gpio/gpio3/value");
    EXPECT_EQ(stale, 1000);
    EXPECT_EQ(capture.Count(5, "Could not close '/sys/class/gpio/gpio3/value': Bad file descriptor"), 1U);
}

} // namespace
