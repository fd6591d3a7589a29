#include "Modules/Commons/Linux/ErrorString.hpp"
#include "Modules/Commons/Linux/GpioAccess.hpp"
#include "PortTestSupport.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::ErrorString;
using Zel::Hardware::Modules::Commons::Linux::GpioAccess;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::LogCapture;
using Zel::Test::Ports::ScratchDirectory;

TEST(ErrorString, GivesTheCLibraryText)
{
    EXPECT_EQ(ErrorString().GetString(ENOENT), "No such file or directory");
    EXPECT_EQ(ErrorString().GetString(EISDIR), "Is a directory");
    EXPECT_EQ(ErrorString().GetString(12345), "Unknown error 12345");
}

class GpioLine : public ::testing::Test {
protected:
    void TearDown() override
    {
        if (fd >= 0) {
            close(fd);
        }
    }

    ScratchDirectory dir;
    GpioAccess gpio;
    LogCapture capture{8};
    int fd = -1;
};

TEST_F(GpioLine, OpenFailureNamesPathAndErrorText)
{
    try {
        gpio.Open(dir.Path("gpio7/value"), O_RDONLY);
        FAIL() << "no exception";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "Could not open '" + dir.Path("gpio7/value") + "': No such file or directory");
    }
}

TEST_F(GpioLine, ReadFollowsTheFileBetweenCalls)
{
    dir.Write("value", "1\n");
    fd = gpio.Open(dir.Path("value"), O_RDONLY);
    struct Case {
        const char* text;
        bool expected;
    };
    // Only a leading '1' is high; the same descriptor is read from offset 0 each time.
    for (const Case& c : {Case{"1\n", true}, Case{"0\n", false}, Case{"1", true}, Case{"x\n", false},
                          Case{"10\n", true}, Case{" 1\n", false}}) {
        dir.Write("value", c.text);
        bool value = !c.expected;
        EXPECT_TRUE(gpio.Read(fd, dir.Path("value"), value)) << c.text;
        EXPECT_EQ(value, c.expected) << c.text;
    }
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(GpioLine, FailingReadIsTriedTwiceWithOneMessageEach)
{
    dir.MakeUnreadable("value");
    fd = gpio.Open(dir.Path("value"), O_RDONLY);
    bool value = true;
    EXPECT_FALSE(gpio.Read(fd, dir.Path("value"), value));
    EXPECT_TRUE(value) << "value must stay untouched";
    EXPECT_EQ(capture.Count(3, "Could not read '" + dir.Path("value") + "': Is a directory"), 2U);
    EXPECT_EQ(capture.Records().size(), 2U);
}

TEST_F(GpioLine, EmptyReadCountsAsFailure)
{
    dir.Write("value", "");
    fd = gpio.Open(dir.Path("value"), O_RDONLY);
    bool value = false;
    EXPECT_FALSE(gpio.Read(fd, dir.Path("value"), value));
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 2U);
    for (const auto& record : records) {
        EXPECT_EQ(record.level, 3);
        EXPECT_EQ(record.text.rfind("Could not read '" + dir.Path("value") + "': ", 0), 0U) << record.text;
    }
}

TEST_F(GpioLine, MissingLineIsSkippedSilently)
{
    bool value = true;
    EXPECT_FALSE(gpio.Read(-1, "unused", value));
    EXPECT_TRUE(value);
    gpio.Write(-1, "unused", false);
    int none = -1;
    gpio.Close(none, "unused");
    EXPECT_EQ(none, -1);
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(GpioLine, CloseResetsDescriptorSoASecondCloseIsHarmless)
{
    dir.Write("value", "0\n");
    int line = gpio.Open(dir.Path("value"), O_RDONLY);
    gpio.Close(line, dir.Path("value"));
    EXPECT_EQ(line, -1);
    gpio.Close(line, dir.Path("value"));
    EXPECT_EQ(line, -1);
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(GpioLine, FailedCloseWarnsAndKeepsDescriptor)
{
    int stale = 1000; // not open in this process
    gpio.Close(stale, "/sys/class/gpio/gpio3/value");
    EXPECT_EQ(stale, 1000);
    EXPECT_EQ(capture.Count(5, "Could not close '/sys/class/gpio/gpio3/value': Bad file descriptor"), 1U);
}

TEST_F(GpioLine, WriteIsOneCharacterAtOffsetZero)
{
    dir.Write("value", "0\n");
    fd = gpio.Open(dir.Path("value"), O_RDWR);
    gpio.Write(fd, dir.Path("value"), true);
    EXPECT_EQ(dir.ReadBack("value"), "1\n");
    gpio.Write(fd, dir.Path("value"), false);
    EXPECT_EQ(dir.ReadBack("value"), "0\n");
    EXPECT_TRUE(capture.Records().empty());
}

TEST_F(GpioLine, FailedWriteKeepsTheEstablishedText)
{
    dir.Write("value", "0\n");
    fd = gpio.Open(dir.Path("value"), O_RDONLY);
    gpio.Write(fd, dir.Path("value"), true);
    EXPECT_EQ(capture.Count(3, "Could not write '1 to '" + dir.Path("value") + "': Bad file descriptor"), 1U);
    EXPECT_EQ(dir.ReadBack("value"), "0\n");
}

} // namespace
