// Per-class log channels (the race for a channel's first use is in the
// stress test): no formatting at all for a disabled level, and the two fallback
// messages when formatting fails.
#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Test::LoggingSubjects {

// Owners of the channels under test; each test uses its own so that a
// channel's first use happens inside that test.
class Levels {};
class Formatting {};
class Preset {};

// Counts how often fmt asks it to format itself; formatting `refused` fails
// with a standard exception, formatting `unknown` with something else.
struct Subject {
    int value;
};
constexpr Subject refused{-1}, unknown{-2};
std::atomic<int> formats{0};

} // namespace Zel::Test::LoggingSubjects

template <>
struct fmt::formatter<Zel::Test::LoggingSubjects::Subject> : fmt::formatter<int> {
    auto format(const Zel::Test::LoggingSubjects::Subject& subject, fmt::format_context& ctx) const
    {
        ++Zel::Test::LoggingSubjects::formats;
        if (subject.value == Zel::Test::LoggingSubjects::refused.value) {
            throw std::runtime_error("formatter refused");
        }
        if (subject.value == Zel::Test::LoggingSubjects::unknown.value) {
            throw 42;
        }
        return fmt::formatter<int>::format(subject.value, ctx);
    }
};

namespace {

using namespace Zel::Test::LoggingSubjects;
using namespace Zel::System::Commons;
using namespace Zel::System::Commons::Logging;
using namespace ::testing;
using namespace Zel::Test;

auto Record(int level, const std::string& channel, const std::string& text)
{
    return AllOf(Field(&LogRecord::level, level), Field(&LogRecord::channel, channel), Field(&LogRecord::text, text));
}

TEST(LogChannel, ALevelAboveTheAdaptersCurrentOneFormatsNothing)
{
    const std::string channel = "Zel.Test.LoggingSubjects.Levels";
    LogCapture capture(5);
    const int before = formats.load();
    Loggable<Levels>::log(6, "skipped {0}", Subject{1});
    Loggable<Levels>::log(8, "skipped {0}", Subject{2});
    EXPECT_EQ(formats.load(), before);

    const std::string longText(2000, 'x'); // beyond the inline buffer
    Loggable<Levels>::log(5, "written {0}", Subject{3});
    Loggable<Levels>::log(3, "{1} before {0}", Subject{4}, "this");
    Loggable<Levels>::log(3, "<{0}>", longText);
    EXPECT_EQ(formats.load(), before + 2);
    EXPECT_THAT(capture.Records(),
                ElementsAre(Record(5, channel, "written 3"), Record(3, channel, "this before 4"),
                            Record(3, channel, "<" + longText + ">")));

    // Each channel follows its own adapter's level, also one set before the
    // adapter exists.
    AppDomain::GetCurrentSingleton<LogManager>().SetLogLevel(channel, 7);
    Loggable<Levels>::log(8, "dropped {0}", Subject{5});
    EXPECT_EQ(formats.load(), before + 2);
    AppDomain::GetCurrentSingleton<LogManager>().SetLogLevel("Zel.Test.LoggingSubjects.Preset", 2);
    Loggable<Preset>::log(3, "dropped {0}", Subject{6});
    EXPECT_EQ(formats.load(), before + 2);
    EXPECT_EQ(capture.Records().size(), 3U);
}

TEST(LogChannel, AFormattingFailureIsReportedAtLevel3ThenTheFormatStringAtTheCallsLevel)
{
    const std::string channel = "Zel.Test.LoggingSubjects.Formatting";
    const std::string prefix = "Exception occurs during format of log message: ";
    LogCapture capture(8);
    Loggable<Formatting>::log(7, "Value {0} of {1}", refused, 2);
    Loggable<Formatting>::log(8, "Value {0}", unknown);
    Loggable<Formatting>::log(5, "Two {0} {1}", 1); // names a missing argument
    EXPECT_THAT(capture.Records(),
                ElementsAre(Record(3, channel, prefix + "formatter refused"), Record(7, channel, "Value {0} of {1}"),
                            Record(3, channel, prefix + "Unknown exception"), Record(8, channel, "Value {0}"),
                            AllOf(Field(&LogRecord::level, 3), Field(&LogRecord::text, StartsWith(prefix))),
                            Record(5, channel, "Two {0} {1}")));

    // The failure report keeps to the channel's level like any level-3 line.
    capture.Sink().Clear();
    AppDomain::GetCurrentSingleton<LogManager>().SetLogLevel(channel, 2);
    Loggable<Formatting>::log(2, "Low {0}", refused);
    Loggable<Formatting>::log(1, "Lower {0}", unknown);
    EXPECT_THAT(capture.Records(), ElementsAre(Record(2, channel, "Low {0}"), Record(1, channel, "Lower {0}")));
}

TEST(StderrLogSink, WritesOneLineWithTimeLevelChannelAndText)
{
    StderrLogSink sink;
    internal::CaptureStderr();
    sink.Write(5, "Zel.Test.Channel", "text {0} stays");
    EXPECT_THAT(internal::GetCapturedStderr(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                             "\\[5\\] Zel\\.Test\\.Channel: text \\{0\\} stays\n"));
}

std::vector<std::string> handled;

TEST(BasicStringFormat, AFailureGoesToTheHandlerAndYieldsAnEmptyString)
{
    const auto previous = BasicStringFormatExceptionHandler::SetHandler(
        [](std::string_view format, std::string_view what) { handled.push_back(fmt::format("{}|{}", format, what)); });
    const BasicString failed = BasicString::Format("a {0} b", refused);
    const BasicString failedOther = BasicString::Format("c {0}", unknown);
    const BasicString fine = BasicString::Format("{1}-{0}", 1, "x");
    BasicStringFormatExceptionHandler::SetHandler(previous);

    EXPECT_EQ(failed, "");
    EXPECT_EQ(failedOther, "");
    EXPECT_EQ(fine, "x-1");
    EXPECT_THAT(handled, ElementsAre("a {0} b|formatter refused", "c {0}|Unknown exception"));
}

} // namespace
