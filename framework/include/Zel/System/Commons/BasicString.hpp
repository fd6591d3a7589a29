#pragma once

#include <Zel/Export.hpp>

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <utility>

namespace Zel::System::Commons {

// The framework's byte string. A std::string with the framework's formatting
// on top; compared, ordered and hashed exactly as std::string.
class ZEL_API BasicString : public std::string {
public:
    using std::string::string;
    BasicString() = default;
    BasicString(const std::string& s) : std::string(s) {}
    BasicString(std::string&& s) noexcept : std::string(std::move(s)) {}
    explicit BasicString(std::string_view s) : std::string(s) {}

    // fmt-formatted text. A formatting failure is handed to
    // BasicStringFormatExceptionHandler::Invoke and yields an empty string.
    template <typename... Args>
    static BasicString Format(std::string_view format, const Args&... args);

    static BasicString VFormat(std::string_view format, fmt::format_args args);
};

// Receives the format string and the exception text of every failed
// BasicString::Format. The default handler does nothing; a host may install
// its own (for example to log the failure).
class ZEL_API BasicStringFormatExceptionHandler {
public:
    using Handler = void (*)(std::string_view format, std::string_view what);

    static void Invoke(std::string_view format, std::string_view what);
    static Handler SetHandler(Handler handler);
};

template <typename... Args>
BasicString BasicString::Format(std::string_view format, const Args&... args)
{
    return VFormat(format, fmt::make_format_args(args...));
}

} // namespace Zel::System::Commons

template <>
struct fmt::formatter<Zel::System::Commons::BasicString> : fmt::formatter<fmt::string_view> {
    template <typename FormatContext>
    auto format(const Zel::System::Commons::BasicString& s, FormatContext& ctx) const
    {
        return fmt::formatter<fmt::string_view>::format(fmt::string_view(s.data(), s.size()), ctx);
    }
};
