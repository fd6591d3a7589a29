#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogAdapter.hpp>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::Logging::Debug;
using Zel::System::Commons::Logging::Trace;

IpStatusModule::IpStatusModule() = default;

IpStatusModule::~IpStatusModule() = default;

void IpStatusModule::SetupSettings(const ModuleSettings& /*settings*/, const HardwareModuleProvider& provider)
{
    // The module has no configuration of its own.
    log(Debug, "IpStatusModule::SetupSettings()");
    IEthernetInfoModule* module = provider.GetHardwareModule<IEthernetInfoModule>();
    if (module == nullptr) {
        throw InvalidOperationException("IpStatusModule::SetupSettings(): ethInfoModule is NULL!");
    }
    ethInfoModule = module;
    // Taken once: devices the Ethernet module learns of later are not seen.
    deviceCount = ethInfoModule->GetDeviceCount();
}

void IpStatusModule::Dispose()
{
    log(Debug, "IpStatusModule::Dispose()");
}

bool IpStatusModule::IsEnabled() const
{
    log(Debug, "IpStatusModule::IsEnabled()");
    return true;
}

BasicString IpStatusModule::GetIpAddress(unsigned int device) const
{
    return Query(device, &IpStatusSocketAccess::GetCurrentIpAdress, "IpStatusModule::GetIpAddress(): {0}",
                 "IpStatusModule::GetIpAddress(): GetCurrentIpAdress() returned {0}");
}

BasicString IpStatusModule::GetSubnetMask(unsigned int device) const
{
    return Query(device, &IpStatusSocketAccess::GetCurrentSubnetMask, "IpStatusModule::GetSubnetMask(): {0}",
                 "IpStatusModule::GetSubnetMask(): GetCurrentSubnetMask() returned {0}");
}

BasicString IpStatusModule::GetDefaultGateway(unsigned int device) const
{
    return Query(device, &IpStatusSocketAccess::GetCurrentDefaultGateway, "IpStatusModule::GetDefaultGateway(): {0}",
                 "IpStatusModule::GetDefaultGateway(): GetCurrentDefaultGateway() returned {0}");
}

BasicString IpStatusModule::GetDeviceIpAddress(unsigned int device) const
{
    return GetIpAddress(device);
}

BasicString IpStatusModule::Query(unsigned int device, AccessFunction access, const char* traceFormat,
                                  const char* failureFormat) const
{
    log(Trace, traceFormat, device);
    BasicString result;
    // Asked before any check of the number: for 0 or a number above the
    // count the Ethernet module's std::out_of_range passes through unchanged,
    // so the access class's own device check is only a second guard.
    const BasicString interfaceName = ethInfoModule->GetInterfaceName(device);
    const int status = (socketAccess.*access)(device, deviceCount, interfaceName, result);
    if (status != 0) {
        throw InvalidOperationException(BasicString::Format(failureFormat, status));
    }
    log(Trace, traceFormat, result);
    return result;
}

} // namespace Zel::Hardware::Modules::Nim::Linux
