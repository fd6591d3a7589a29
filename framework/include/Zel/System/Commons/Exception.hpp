#pragma once

#include <Zel/Export.hpp>
#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Diagnostics/StackTrace.hpp>

#include <exception>
#include <string_view>
#include <type_traits>

namespace Zel::System::Commons {

// Base of the framework's exceptions: a message and the stack trace taken
// where the exception was created. Thrown and caught by value/reference.
class ZEL_API Exception : public std::exception {
public:
    explicit Exception(BasicString message);
    ~Exception() override;

    const char* what() const noexcept override;
    const BasicString& GetMessage() const noexcept { return message; }
    const Diagnostics::StackTrace& GetStackTrace() const noexcept { return stackTrace; }

private:
    BasicString message;
    Diagnostics::StackTrace stackTrace;
};

class ZEL_API ArgumentException : public Exception {
public:
    explicit ArgumentException(BasicString message);
    ~ArgumentException() override;

    // The message "Invalid argument '{0}' = '{1}': {2}" built from the
    // argument's name, its value and the reason.
    template <typename T>
    static ArgumentException Create(std::string_view argName, const T& value, std::string_view message);

    static ArgumentException CreateFromText(std::string_view argName, std::string_view value, std::string_view message);
};

class ZEL_API InvalidConfigException : public Exception {
public:
    explicit InvalidConfigException(BasicString message);
    ~InvalidConfigException() override;
};

class ZEL_API InvalidOperationException : public Exception {
public:
    explicit InvalidOperationException(BasicString message);
    ~InvalidOperationException() override;
};

class ZEL_API NotSupportedException : public Exception {
public:
    explicit NotSupportedException(BasicString message);
    ~NotSupportedException() override;
};

template <typename T>
ArgumentException ArgumentException::Create(std::string_view argName, const T& value, std::string_view message)
{
    if constexpr (std::is_same_v<std::decay_t<T>, const char*> || std::is_same_v<std::decay_t<T>, char*>) {
        return CreateFromText(argName, value != nullptr ? std::string_view(value) : std::string_view(), message);
    } else if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T>) {
        return CreateFromText(argName, fmt::format("{}", static_cast<const void*>(value)), message);
    } else if constexpr (std::is_enum_v<T>) {
        return CreateFromText(argName, fmt::format("{}", static_cast<std::underlying_type_t<T>>(value)), message);
    } else {
        return CreateFromText(argName, fmt::format("{}", value), message);
    }
}

} // namespace Zel::System::Commons
