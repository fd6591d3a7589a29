#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <mutex>

namespace Zel::System::Commons::Logging {

ILogSink::~ILogSink() = default;

void StderrLogSink::Write(int level, std::string_view channel, std::string_view text)
{
    static std::mutex lineLock;
    const auto now = std::chrono::system_clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    fmt::memory_buffer line;
    fmt::format_to(std::back_inserter(line), "{:%Y-%m-%d %H:%M:%S}.{:03d} [{}] {}: {}\n",
                   fmt::localtime(std::chrono::system_clock::to_time_t(now)), ms, level, channel, text);
    // One write per line, so lines of several threads do not interleave.
    std::lock_guard<std::mutex> guard(lineLock);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace Zel::System::Commons::Logging
