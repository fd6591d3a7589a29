#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <exception>

namespace Zel::System::Commons::Logging {

void WriteFormatted(const LogAdapter& adapter, int level, std::string_view format, fmt::format_args args)
{
    static constexpr std::string_view formatFailed = "Exception occurs during format of log message: ";
    fmt::basic_memory_buffer<char, 500> buffer;
    try {
        fmt::vformat_to(std::back_inserter(buffer), fmt::string_view(format.data(), format.size()), args);
    } catch (const std::exception& e) {
        if (LogLevel::Error <= adapter.GetLogLevel()) {
            adapter.Log(LogLevel::Error, fmt::format("{}{}", formatFailed, e.what()));
        }
        adapter.Log(level, format);
        return;
    } catch (...) {
        if (LogLevel::Error <= adapter.GetLogLevel()) {
            adapter.Log(LogLevel::Error, fmt::format("{}Unknown exception", formatFailed));
        }
        adapter.Log(level, format);
        return;
    }
    adapter.Log(level, std::string_view(buffer.data(), buffer.size()));
}

BasicString LogChannel::GetName() const
{
    return Diagnostics::RuntimeTypeInfo::GetDottedTypeName(owner);
}

const LogAdapter& LogChannel::CreateAdapter() const
{
    LogManager& manager = AppDomain::GetCurrentSingleton<LogManager>();
    Threading::ScopedLock guard(manager.GetMutex());
    if (!created.load(std::memory_order_acquire)) {
        adapter = manager.CreateLogAdapter(GetName());
        created.store(true, std::memory_order_release);
    }
    return *adapter;
}

} // namespace Zel::System::Commons::Logging
