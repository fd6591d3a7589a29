#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <atomic>
#include <memory>
#include <string_view>

namespace Zel::System::Commons::Logging {

// Numeric levels as the framework uses them: lower is more severe. A message
// is written when its level is less than or equal to the adapter's level.
enum LogLevel : int {
    Fatal = 1,
    Critical = 2,
    Error = 3,
    Warning = 5,
    Notice = 6,
    Debug = 7,
    Trace = 8,
};

class LogManager;

// One log channel. Created by LogManager::CreateLogAdapter; lives as long as
// the log manager or the last holder. GetLogLevel is a single relaxed load so
// that a disabled call costs a load and a compare.
class ZEL_API LogAdapter {
public:
    LogAdapter(BasicString name, int level, LogManager& manager);
    ~LogAdapter();

    const BasicString& GetName() const { return name; }
    int GetLogLevel() const { return level.load(std::memory_order_relaxed); }
    void SetLogLevel(int newLevel) { level.store(newLevel, std::memory_order_relaxed); }

    // Hands the finished text to the log manager's sink.
    void Log(int messageLevel, std::string_view text) const;

private:
    BasicString name;
    std::atomic<int> level;
    LogManager& manager;
};

} // namespace Zel::System::Commons::Logging
