#pragma once

#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <cstdint>
#include <map>
#include <vector>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::System::Commons::BasicString;

// In-memory registry of named network components and the interface id each
// one uses. Interface id 0 means "no interface" and is never stored. Holds
// no lock: callers that share the module between threads serialise their
// calls themselves.
class NetworkComponentRegistrationModule
    : public Zel::Hardware::Commons::Modules::HardwareModuleBase<
          Zel::Hardware::Nim::Modules::INetworkComponentRegistrationModule, NetworkComponentRegistrationModule>,
      private Zel::System::Commons::Logging::Loggable<NetworkComponentRegistrationModule, false, false> {
public:
    NetworkComponentRegistrationModule();
    ~NetworkComponentRegistrationModule() override;
    NetworkComponentRegistrationModule(const NetworkComponentRegistrationModule&) = delete;
    NetworkComponentRegistrationModule& operator=(const NetworkComponentRegistrationModule&) = delete;

    void SetupSettings(const Zel::Hardware::Commons::Modules::ModuleSettings& settings,
                       const Zel::Hardware::Commons::Modules::HardwareModuleProvider& provider) override;
    // Keeps the registrations; they go with the module.
    void Dispose() override;
    bool IsEnabled() const override;

    // Throws ArgumentException for interface id 0. A name already registered
    // keeps its first interface id; the new one is ignored without notice.
    void RegisterNetworkComponent(const BasicString& name, unsigned int interfaceId) override;
    // An unknown name changes nothing.
    void UnregisterNetworkComponent(const BasicString& name) override;
    // 0 for a name that is not registered.
    unsigned int GetNetworkInterface(const BasicString& name) const override;
    // The names on interfaceId in byte-wise ascending order.
    std::vector<BasicString> GetNetworkComponents(unsigned int interfaceId) const override;

private:
    std::map<BasicString, std::uint32_t> components;
};

} // namespace Zel::Hardware::Modules::Nim::Linux
