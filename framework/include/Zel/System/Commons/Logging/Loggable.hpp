#pragma once

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <fmt/format.h>

#include <atomic>
#include <exception>
#include <iterator>
#include <memory>
#include <mutex>
#include <string_view>
#include <typeinfo>

namespace Zel::System::Commons::Logging {

// Formats a message into the 500-character inline buffer and hands it to the
// adapter. A formatter that throws is reported at level 3 and the format
// string itself is logged at the call's level.
ZEL_API void WriteFormatted(const LogAdapter& adapter, int level, std::string_view format, fmt::format_args args);

// The log channel of one class: an adapter created on first use plus the flag
// that says it exists. Creation takes the log manager's mutex and tests the
// flag before and after, so racing first calls create one adapter.
class ZEL_API LogChannel {
public:
    // constexpr, so every class's channel is ready before any static
    // initialiser of the library can log through it.
    constexpr explicit LogChannel(const std::type_info& owner) noexcept : owner(owner) {}
    LogChannel(const LogChannel&) = delete;
    LogChannel& operator=(const LogChannel&) = delete;

    // Logs at a numeric level; nothing is formatted when the level is above
    // the adapter's current level.
    template <typename... Args>
    void operator()(int level, std::string_view format, const Args&... args) const
    {
        const LogAdapter& adapter = GetAdapter();
        if (level > adapter.GetLogLevel()) {
            return;
        }
        WriteFormatted(adapter, level, format, fmt::make_format_args(args...));
    }

    bool IsEnabled(int level) const { return level <= GetAdapter().GetLogLevel(); }

    const LogAdapter& GetAdapter() const
    {
        if (created.load(std::memory_order_acquire)) {
            return *adapter;
        }
        return CreateAdapter();
    }

    // The channel name: the owner's fully qualified name, "::" as ".".
    BasicString GetName() const;

private:
    const LogAdapter& CreateAdapter() const;

    const std::type_info& owner;
    mutable std::shared_ptr<LogAdapter> adapter;
    mutable std::atomic<bool> created{false};
};

// Per-class logger. The two flags select framework options this system does
// not use (timestamps in the text, thread ids in the text); every class here
// instantiates it with both false.
template <typename T, bool WithTimestamp = false, bool WithThreadId = false>
class Loggable {
public:
    static LogChannel log;
};

template <typename T, bool WithTimestamp, bool WithThreadId>
LogChannel Loggable<T, WithTimestamp, WithThreadId>::log{typeid(T)};

} // namespace Zel::System::Commons::Logging
