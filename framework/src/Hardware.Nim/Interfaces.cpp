#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>

namespace Zel::Hardware::Nim::Modules {

// Key functions: the type information of the module interfaces is defined
// here, once, and shared by the host and every plug-in.
IEthernetInfoModule::~IEthernetInfoModule() = default;
IIpConfigModule::~IIpConfigModule() = default;
IIpStatusModule::~IIpStatusModule() = default;
INetworkComponentRegistrationModule::~INetworkComponentRegistrationModule() = default;

} // namespace Zel::Hardware::Nim::Modules
