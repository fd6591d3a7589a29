// Per-class log channels: one adapter however many threads race to create
// it, no formatting at all for a disabled level, and the two fallback
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
#include <thread>
#include <vector>

namespace Zel::Test::LoggingSubjects {

// Owners of the channels under test; each test uses its own so that a
// channel's first use happens inside that test.
class Levels {};
class Formatting {};
class LongText {};
class Raced {};
class Preset {};

// Counts how often fmt asks it to format itself.
struct Counted {
    int value;
};
std::atomic<int> countedFormats{0};

// Makes formatting fail with a standard exception or with something else.
struct ThrowsStandard {};
struct ThrowsOther {};

} // namespace Zel::Test::LoggingSubjects

template <>
struct fmt::formatter<Zel::Test::LoggingSubjects::Counted> : fmt::formatter<int> {
    auto format(const Zel::Test::LoggingSubjects::Counted& counted, fmt::format_context& ctx) const
    {
        ++Zel::Test::LoggingSubjects::countedFormats;
        return fmt::formatter<int>::format(counted.value, ctx);
    }
};

template <>
struct fmt::formatter<Zel::Test::LoggingSubjects::ThrowsStandard> : fmt::formatter<int> {
    auto format(const Zel::Test::LoggingSubjects::ThrowsStandard&, fmt::format_context& ctx) const
        -> decltype(ctx.out())
    {
        throw std::runtime_error("formatter refused");
    }
};

template <>
struct fmt::formatter<Zel::Test::LoggingSubjects::ThrowsOther> : fmt::formatter<int> {
    auto format(const Zel::Test::LoggingSubjects::ThrowsOther&, fmt::format_context& ctx) const
        -> decltype(ctx.out())
    {
        throw 42;
    }
};

namespace {

using namespace Zel::Test::LoggingSubjects;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::BasicStringFormatExceptionHandler;
using Zel::System::Commons::Logging::LogAdapter;
using Zel::System::Commons::Logging::Loggable;
using Zel::System::Commons::Logging::LogManager;
using Zel::System::Commons::Logging::StderrLogSink;
using Zel::Test::LogCapture;
using Zel::Test::LogRecord;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

LogManager& Manager()
{
    return AppDomain::GetCurrentSingleton<LogManager>();
}

auto Record(int level, const std::string& channel, const std::string& text)
{
    return AllOf(Field(&LogRecord::level, level), Field(&LogRecord::channel, channel), Field(&LogRecord::text, text));
}

TEST(LogChannel, IsNamedAfterTheOwningClassWithDots)
{
    EXPECT_EQ(Loggable<Levels>::log.GetName(), "Zel.Test.LoggingSubjects.Levels");
}

TEST(LogChannel, ALevelAboveTheCurrentOneFormatsNothing)
{
    LogCapture capture(5);
    const int before = countedFormats.load();

    Loggable<Levels>::log(6, "skipped {0}", Counted{1});
    Loggable<Levels>::log(8, "skipped {0}", Counted{2});
    EXPECT_EQ(countedFormats.load(), before);
    EXPECT_TRUE(capture.Records().empty());

    Loggable<Levels>::log(5, "written {0}", Counted{3});
    Loggable<Levels>::log(3, "{1} before {0}", Counted{4}, "this");
    EXPECT_EQ(countedFormats.load(), before + 2);
    EXPECT_THAT(capture.Records(), ElementsAre(Record(5, "Zel.Test.LoggingSubjects.Levels", "written 3"),
                                               Record(3, "Zel.Test.LoggingSubjects.Levels", "this before 4")));
}

TEST(LogChannel, FollowsTheLevelOfItsOwnAdapter)
{
    LogCapture capture(8);
    Loggable<Levels>::log(8, "first");
    Manager().SetLogLevel("Zel.Test.LoggingSubjects.Levels", 7);
    const int before = countedFormats.load();

    Loggable<Levels>::log(8, "dropped {0}", Counted{1});
    Loggable<Levels>::log(7, "kept");

    EXPECT_EQ(countedFormats.load(), before);
    EXPECT_EQ(Loggable<Levels>::log.GetAdapter().GetLogLevel(), 7);
    EXPECT_THAT(capture.Records(), ElementsAre(Field(&LogRecord::text, "first"), Field(&LogRecord::text, "kept")));
}

TEST(LogChannel, ALevelSetBeforeTheFirstUseAppliesWhenTheAdapterIsCreated)
{
    LogCapture capture(8);
    Manager().SetLogLevel("Zel.Test.LoggingSubjects.Preset", 3);

    Loggable<Preset>::log(5, "not written");
    Loggable<Preset>::log(3, "written");

    EXPECT_EQ(Loggable<Preset>::log.GetAdapter().GetLogLevel(), 3);
    EXPECT_THAT(capture.Records(), ElementsAre(Field(&LogRecord::text, "written")));
}

class FormatFailure : public ::testing::Test {
protected:
    LogCapture capture{8};
    const std::string channel = "Zel.Test.LoggingSubjects.Formatting";
};

TEST_F(FormatFailure, AStandardExceptionIsReportedAtLevel3ThenTheFormatStringAtTheCallsLevel)
{
    Loggable<Formatting>::log(7, "Value {0} of {1}", ThrowsStandard{}, 2);

    EXPECT_THAT(capture.Records(),
                ElementsAre(Record(3, channel, "Exception occurs during format of log message: formatter refused"),
                            Record(7, channel, "Value {0} of {1}")));
}

TEST_F(FormatFailure, AnythingElseThrownIsReportedAsUnknown)
{
    Loggable<Formatting>::log(8, "Value {0}", ThrowsOther{});

    EXPECT_THAT(capture.Records(),
                ElementsAre(Record(3, channel, "Exception occurs during format of log message: Unknown exception"),
                            Record(8, channel, "Value {0}")));
}

TEST_F(FormatFailure, AFormatStringNamingAMissingArgumentIsLoggedUnformatted)
{
    Loggable<Formatting>::log(5, "Two {0} {1}", 1);

    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].level, 3);
    EXPECT_THAT(records[0].text, StartsWith("Exception occurs during format of log message: "));
    EXPECT_THAT(records[1], Record(5, channel, "Two {0} {1}"));
}

TEST(LogChannel, AMessageLongerThanTheInlineBufferIsWrittenWhole)
{
    LogCapture capture(8);
    const std::string text(2000, 'x');

    Loggable<LongText>::log(8, "<{0}>", text);

    EXPECT_THAT(capture.Records(), ElementsAre(Field(&LogRecord::text, "<" + text + ">")));
}

TEST(LogChannel, ThreadsRacingForTheFirstUseShareOneAdapter)
{
    LogCapture capture(8);
    const std::string name = "Zel.Test.LoggingSubjects.Raced";
    ASSERT_EQ(Manager().FindLogAdapter(name), nullptr) << "the channel must be fresh";
    const std::size_t adaptersBefore = Manager().GetAdapterCount();

    constexpr int threadCount = 8;
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<const LogAdapter*> seen(threadCount, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (!go.load()) {
                std::this_thread::yield();
            }
            Loggable<Raced>::log(8, "thread {0}", i);
            seen[static_cast<std::size_t>(i)] = &Loggable<Raced>::log.GetAdapter();
        });
    }
    while (ready.load() < threadCount) {
        std::this_thread::yield();
    }
    go = true;
    for (auto& thread : threads) {
        thread.join();
    }

    const auto adapter = Manager().FindLogAdapter(name);
    ASSERT_NE(adapter, nullptr);
    EXPECT_EQ(Manager().GetAdapterCount(), adaptersBefore + 1);
    for (const LogAdapter* each : seen) {
        EXPECT_EQ(each, adapter.get());
    }
    std::size_t written = 0;
    for (const auto& record : capture.Records()) {
        written += record.channel == name ? 1U : 0U;
    }
    EXPECT_EQ(written, static_cast<std::size_t>(threadCount));
}

TEST(StderrLogSink, WritesOneLineWithTimeLevelChannelAndText)
{
    StderrLogSink sink;
    ::testing::internal::CaptureStderr();
    sink.Write(5, "Zel.Test.Channel", "text {0} stays");
    const std::string line = ::testing::internal::GetCapturedStderr();

    EXPECT_THAT(line, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                                   "\\[5\\] Zel\\.Test\\.Channel: text \\{0\\} stays\n"));
}

namespace FormatHandler {
std::string format;
std::string what;
void Record(std::string_view f, std::string_view w)
{
    format = f;
    what = w;
}
} // namespace FormatHandler

TEST(BasicStringFormat, AFailureGoesToTheHandlerAndYieldsAnEmptyString)
{
    const auto previous = BasicStringFormatExceptionHandler::SetHandler(&FormatHandler::Record);

    const BasicString failed = BasicString::Format("a {0} b", ThrowsStandard{});
    const std::string failedWhat = FormatHandler::what;
    const std::string failedFormat = FormatHandler::format;
    const BasicString unknown = BasicString::Format("c {0}", ThrowsOther{});
    const std::string unknownWhat = FormatHandler::what;
    const BasicString fine = BasicString::Format("{1}-{0}", 1, "x");

    BasicStringFormatExceptionHandler::SetHandler(previous);
    EXPECT_EQ(failed, "");
    EXPECT_EQ(failedFormat, "a {0} b");
    EXPECT_EQ(failedWhat, "formatter refused");
    EXPECT_EQ(unknown, "");
    EXPECT_EQ(unknownWhat, "Unknown exception");
    EXPECT_EQ(fine, "x-1");
}

} // namespace
