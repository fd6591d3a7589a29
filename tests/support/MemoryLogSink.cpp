#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

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
    std::lock_guard<std::mutex> guard(lock);
    std::size_t n = 0;
    for (const auto& r : records) {
        n += r.text == text ? 1U : 0U;
    }
    return n;
}

std::size_t MemoryLogSink::Count(int level, const std::string& text) const
{
    std::lock_guard<std::mutex> guard(lock);
    std::size_t n = 0;
    for (const auto& r : records) {
        n += (r.level == level && r.text == text) ? 1U : 0U;
    }
    return n;
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

LogCapture::~LogCapture()
{
    AppDomain::GetCurrentSingleton<LogManager>().SetLogLevel(8);
    TestLog().Clear();
}

} // namespace Zel::Test
