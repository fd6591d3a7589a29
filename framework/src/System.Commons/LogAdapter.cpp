#include <Zel/System/Commons/Logging/LogAdapter.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

namespace Zel::System::Commons::Logging {

LogAdapter::LogAdapter(BasicString name, int level, LogManager& manager)
    : name(std::move(name)), level(level), manager(manager)
{
}

LogAdapter::~LogAdapter() = default;

void LogAdapter::Log(int messageLevel, std::string_view text) const
{
    manager.Write(messageLevel, name, text);
}

} // namespace Zel::System::Commons::Logging
