#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::Logging::Trace;

// This module's messages use "{}" placeholders, unlike the rest of the
// library; the framework's log filters know them in this form.

NetworkComponentRegistrationModule::NetworkComponentRegistrationModule() = default;

NetworkComponentRegistrationModule::~NetworkComponentRegistrationModule() = default;

void NetworkComponentRegistrationModule::SetupSettings(const ModuleSettings& /*settings*/,
                                                       const HardwareModuleProvider& /*provider*/)
{
    log(Trace, "NetworkComponentRegistrationModule::SetupSettings()");
}

void NetworkComponentRegistrationModule::Dispose()
{
    log(Trace, "NetworkComponentRegistrationModule::Dispose()");
}

bool NetworkComponentRegistrationModule::IsEnabled() const
{
    log(Trace, "NetworkComponentRegistrationModule::IsEnabled()");
    return true;
}

void NetworkComponentRegistrationModule::RegisterNetworkComponent(const BasicString& name, unsigned int interfaceId)
{
    if (interfaceId == 0) {
        throw ArgumentException::Create("interfaceId", interfaceId, "0 is not a valid interface id.");
    }
    log(Trace, "Registering '{}' on interface {}", name, interfaceId);
    // emplace keeps an existing entry: a second registration of a name is
    // ignored on purpose; moving a component means unregistering it first.
    components.emplace(name, interfaceId);
}

void NetworkComponentRegistrationModule::UnregisterNetworkComponent(const BasicString& name)
{
    log(Trace, "Unregistering '{}'", name);
    components.erase(name);
}

unsigned int NetworkComponentRegistrationModule::GetNetworkInterface(const BasicString& name) const
{
    const auto entry = components.find(name);
    if (entry == components.end()) {
        log(Trace, "GetNetworkInterface: '{}' not found!", name);
        return 0;
    }
    log(Trace, "GetNetworkInterface: '{}' is on interface {}", name, entry->second);
    return entry->second;
}

std::vector<BasicString> NetworkComponentRegistrationModule::GetNetworkComponents(unsigned int interfaceId) const
{
    std::vector<BasicString> names;
    for (const auto& [name, id] : components) {
        if (id == interfaceId) {
            names.push_back(name);
        }
    }
    return names;
}

} // namespace Zel::Hardware::Modules::Nim::Linux
