#include <Zel/System/Commons/Exception.hpp>

namespace Zel::System::Commons {

Exception::Exception(BasicString message) : message(std::move(message))
{
}
Exception::~Exception() = default;

const char* Exception::what() const noexcept
{
    return message.c_str();
}

ArgumentException::ArgumentException(BasicString message) : Exception(std::move(message))
{
}
ArgumentException::~ArgumentException() = default;

ArgumentException ArgumentException::CreateFromText(std::string_view argName, std::string_view value,
                                                    std::string_view message)
{
    return ArgumentException(BasicString::Format("Invalid argument '{0}' = '{1}': {2}", argName, value, message));
}

InvalidConfigException::InvalidConfigException(BasicString message) : Exception(std::move(message))
{
}
InvalidConfigException::~InvalidConfigException() = default;

InvalidOperationException::InvalidOperationException(BasicString message) : Exception(std::move(message))
{
}
InvalidOperationException::~InvalidOperationException() = default;

NotSupportedException::NotSupportedException(BasicString message) : Exception(std::move(message))
{
}
NotSupportedException::~NotSupportedException() = default;

} // namespace Zel::System::Commons
