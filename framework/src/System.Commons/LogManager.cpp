#include <Zel/System/Commons/Logging/LogManager.hpp>

namespace Zel::System::Commons::Logging {

LogManager::LogManager(int defaultLevel) : defaultLevel(defaultLevel)
{
    keptSinks.push_back(std::make_shared<StderrLogSink>());
    currentSink.store(keptSinks.back().get());
}

LogManager::~LogManager() = default;

std::shared_ptr<LogAdapter> LogManager::CreateLogAdapter(const BasicString& name)
{
    std::lock_guard<std::mutex> guard(tableLock);
    auto found = adapters.find(name);
    if (found != adapters.end()) {
        return found->second;
    }
    auto level = channelLevels.find(name);
    auto adapter =
        std::make_shared<LogAdapter>(name, level != channelLevels.end() ? level->second : GetDefaultLogLevel(), *this);
    adapters.emplace(name, adapter);
    return adapter;
}

std::shared_ptr<LogAdapter> LogManager::FindLogAdapter(const BasicString& name) const
{
    std::lock_guard<std::mutex> guard(tableLock);
    auto found = adapters.find(name);
    return found != adapters.end() ? found->second : nullptr;
}

std::size_t LogManager::GetAdapterCount() const
{
    std::lock_guard<std::mutex> guard(tableLock);
    return adapters.size();
}

void LogManager::SetLogLevel(int level)
{
    std::lock_guard<std::mutex> guard(tableLock);
    defaultLevel.store(level);
    channelLevels.clear();
    for (auto& [name, adapter] : adapters) {
        adapter->SetLogLevel(level);
    }
}

void LogManager::SetLogLevel(const BasicString& name, int level)
{
    std::lock_guard<std::mutex> guard(tableLock);
    channelLevels[name] = level;
    auto found = adapters.find(name);
    if (found != adapters.end()) {
        found->second->SetLogLevel(level);
    }
}

void LogManager::SetSink(std::shared_ptr<ILogSink> sink)
{
    std::lock_guard<std::mutex> guard(tableLock);
    if (!sink) {
        currentSink.store(keptSinks.front().get());
        return;
    }
    keptSinks.push_back(std::move(sink));
    currentSink.store(keptSinks.back().get());
}

void LogManager::Write(int level, std::string_view channel, std::string_view text)
{
    currentSink.load(std::memory_order_acquire)->Write(level, channel, text);
}

} // namespace Zel::System::Commons::Logging
