#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <fmt/format.h>

#include <algorithm>

namespace Zel::Test {

using Zel::System::Commons::AppDomain;
using Zel::System::Commons::Logging::LogManager;

void MemoryLogSink::Write(int level, std::string_view channel, std::string_view text)
{
    std::lock_guard<std::mutex> guard(lock);
    records.push_back({level, std::string(channel), std::string(text)});
}

std::vector<LogRecord> MemoryLogSink::Records() const
{
    std::lock_guard<std::mutex> guard(lock);
    return records;
}

std::size_t MemoryLogSink::Count(const std::string& text) const
{
    return Count(-1, text);
}

// Level -1 counts the text at every level.
std::size_t MemoryLogSink::Count(int level, const std::string& text) const
{
    std::lock_guard<std::mutex> guard(lock);
    return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [&](const LogRecord& r) {
        return (level < 0 || r.level == level) && r.text == text;
    }));
}

void MemoryLogSink::Clear()
{
    std::lock_guard<std::mutex> guard(lock);
    records.clear();
}

LogCapture::LogCapture(int level)
{
    TestLog().Clear();
    AppDomain::GetCurrentSingleton<LogManager>().SetLogLevel(level);
}

std::string LogCapture::Text() const
{
    std::string text;
    for (const auto& record : Records()) {
        text += fmt::format("{} {}\n", record.level, record.text);
    }
    return text;
}

LogCapture::~LogCapture()
{
    AppDomain::GetCurrentSingleton<LogManager>().SetLogLevel(8);
    TestLog().Clear();
}

} // namespace Zel::Test
