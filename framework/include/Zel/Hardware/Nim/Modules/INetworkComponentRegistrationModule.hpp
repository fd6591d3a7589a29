#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <vector>

namespace Zel::Hardware::Nim::Modules {

using Zel::System::Commons::BasicString;

// A registry of named network components and the interface id each is bound
// to. Not synchronised: callers that share it between threads serialise
// their calls.
class ZEL_API INetworkComponentRegistrationModule : public Zel::Hardware::Commons::Modules::IHardwareModule {
public:
    ~INetworkComponentRegistrationModule() override;

    virtual void RegisterNetworkComponent(const BasicString& name, unsigned int interfaceId) = 0;
    virtual void UnregisterNetworkComponent(const BasicString& name) = 0;
    virtual unsigned int GetNetworkInterface(const BasicString& name) const = 0;
    virtual std::vector<BasicString> GetNetworkComponents(unsigned int interfaceId) const = 0;
};

} // namespace Zel::Hardware::Nim::Modules
