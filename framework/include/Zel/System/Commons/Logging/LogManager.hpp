#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>
#include <Zel/System/Commons/Threading/Mutex.hpp>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace Zel::System::Commons::Logging {

// The process's log manager, kept as a singleton in the AppDomain. It owns the
// adapters (one per channel name) and the sink they write to.
class ZEL_API LogManager {
public:
    explicit LogManager(int defaultLevel = LogLevel::Warning);
    ~LogManager();

    // Guards lazy adapter creation by Loggable.
    Threading::Mutex& GetMutex() { return mutex; }

    // Returns the adapter of the channel, creating it at the default level
    // (or at the level set for that name) when it does not exist yet.
    std::shared_ptr<LogAdapter> CreateLogAdapter(const BasicString& name);
    std::shared_ptr<LogAdapter> FindLogAdapter(const BasicString& name) const;
    std::size_t GetAdapterCount() const;

    int GetDefaultLogLevel() const { return defaultLevel.load(std::memory_order_relaxed); }
    // Sets the level of every existing adapter and of those created later.
    void SetLogLevel(int level);
    // Sets the level of one channel, now or when it is created.
    void SetLogLevel(const BasicString& name, int level);

    // The sink receives every message; null restores standard error.
    void SetSink(std::shared_ptr<ILogSink> sink);
    void Write(int level, std::string_view channel, std::string_view text);

private:
    Threading::Mutex mutex;
    mutable std::mutex tableLock;
    std::map<BasicString, std::shared_ptr<LogAdapter>> adapters;
    std::map<BasicString, int> channelLevels;
    std::atomic<int> defaultLevel;
    // Sinks are kept until the manager goes, so a writer racing with
    // SetSink never sees a freed sink; the current one is a plain load.
    std::vector<std::shared_ptr<ILogSink>> keptSinks;
    std::atomic<ILogSink*> currentSink;
};

} // namespace Zel::System::Commons::Logging
