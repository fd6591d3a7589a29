#include <Zel/System/Commons/BasicString.hpp>

#include <atomic>
#include <exception>

namespace Zel::System::Commons {

namespace {
std::atomic<BasicStringFormatExceptionHandler::Handler> installedHandler{nullptr};
}

BasicString BasicString::VFormat(std::string_view format, fmt::format_args args)
{
    try {
        return BasicString(fmt::vformat(fmt::string_view(format.data(), format.size()), args));
    } catch (const std::exception& e) {
        BasicStringFormatExceptionHandler::Invoke(format, e.what());
    } catch (...) {
        BasicStringFormatExceptionHandler::Invoke(format, "Unknown exception");
    }
    return BasicString();
}

void BasicStringFormatExceptionHandler::Invoke(std::string_view format, std::string_view what)
{
    if (Handler handler = installedHandler.load()) {
        handler(format, what);
    }
}

BasicStringFormatExceptionHandler::Handler BasicStringFormatExceptionHandler::SetHandler(Handler handler)
{
    return installedHandler.exchange(handler);
}

} // namespace Zel::System::Commons
