#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <sstream>
#include <stdexcept>
#include <string_view>
#include <typeinfo>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
using Zel::System::Commons::Exception;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::Diagnostics::RuntimeTypeInfo;
using Zel::System::Commons::Logging::Debug;
using Zel::System::Commons::Logging::Trace;

namespace {

constexpr std::string_view addressKey = "address";
constexpr std::string_view netmaskKey = "netmask";
constexpr std::string_view gatewayKey = "gateway";
constexpr std::string_view dnsKey = "dns-nameservers";
constexpr std::string_view methodKey = "inet";
constexpr std::string_view staticMethod = "static";

int Code(Zel::Hardware::Nim::AccessErrorCode code)
{
    return static_cast<int>(code);
}

unsigned int Number(Zel::Hardware::Nim::IpAssignMode mode)
{
    return static_cast<unsigned int>(mode);
}

// The demangled name of the enumeration, without a leading "enum ", "class "
// or "struct " (compilers differ in whether they write one).
BasicString AssignModeTypeName()
{
    BasicString name = RuntimeTypeInfo::DemangleSymbol(typeid(Zel::Hardware::Nim::IpAssignMode).name());
    for (std::string_view prefix : {"enum ", "class ", "struct "}) {
        if (name.compare(0, prefix.size(), prefix) == 0) {
            name.erase(0, prefix.size());
            break;
        }
    }
    return name;
}

} // namespace

// The texts of one value getter and its setter, each defined once.
struct IpConfigModule::ValueTexts {
    std::string_view key;
    std::string_view getMessage;
    std::string_view getFailure;
    std::string_view setEntry;
    std::string_view setFailure;
    std::string_view setSuccess;
};

const IpConfigModule::ValueTexts IpConfigModule::subnetMaskTexts{
    netmaskKey,
    "IpConfigModule::GetSubnetMask(): {0}",
    "IpConfigModule::GetSubnetMask(): ReadValueFromInterface() returned {0}",
    "IpConfigModule::SetSubnetMask(): {0}, {1}",
    "IpConfigModule::SetSubnetMask(): WriteValueToInterface() returned {0}",
    "IpConfigModule::SetSubnetMask(): OK...",
};

const IpConfigModule::ValueTexts IpConfigModule::defaultGatewayTexts{
    gatewayKey,
    "IpConfigModule::GetDefaultGateway(): {0}",
    "IpConfigModule::GetDefaultGateway(): ReadValueFromInterface() returned {0}",
    "IpConfigModule::SetDefaultGateway(): {0}, {1}",
    "IpConfigModule::SetDefaultGateway(): WriteValueToInterface() returned {0}",
    "IpConfigModule::SetDefaultGateway(): OK...",
};

const IpConfigModule::ValueTexts IpConfigModule::dnsNameserversTexts{
    dnsKey,
    "IpConfigModule::GetDnsNameservers(): {0}",
    "IpConfigModule::GetDnsNameservers(): ReadValueFromInterface() returned {0}",
    "IpConfigModule::SetDnsNameservers(): {0}, {1}",
    "IpConfigModule::SetDnsNameservers(): WriteValueToInterface() returned {0}",
    "IpConfigModule::SetDnsNameservers(): OK...",
};

const IpConfigModule::ValueTexts IpConfigModule::deviceIpAddressTexts{
    addressKey,
    "IpConfigModule::GetDeviceIpAddress(): {0}",
    "IpConfigModule::GetDeviceIpAddress(): ReadValueFromInterface() returned {0}",
    "IpConfigModule::SetDeviceIpAddress(): {0}, {1}",
    "IpConfigModule::SetDeviceIpAddress(): WriteValueToInterface() returned {0}",
    "IpConfigModule::SetDeviceIpAddress(): OK...",
};

IpConfigModule::IpConfigModule()
    : fileAccess({BasicString(addressKey), BasicString(netmaskKey), BasicString(gatewayKey), BasicString(dnsKey)})
{
}

IpConfigModule::~IpConfigModule() = default;

void IpConfigModule::SetupSettings(const ModuleSettings& /*settings*/, const HardwareModuleProvider& provider)
{
    log(Debug, "IpConfigModule::SetupSettings()");
    ethInfoModule = provider.GetHardwareModule<IEthernetInfoModule>();
    if (ethInfoModule == nullptr) {
        throw InvalidOperationException(BasicString("IpConfigModule::SetupSettings(): ethInfoModule is NULL!"));
    }
    deviceCount = ethInfoModule->GetDeviceCount();
}

void IpConfigModule::Dispose()
{
    log(Debug, "IpConfigModule::Dispose()");
}

bool IpConfigModule::IsEnabled() const
{
    log(Debug, "IpConfigModule::IsEnabled()");
    return true;
}

IpConfigModule::AccessErrorCode IpConfigModule::ReadValueFromInterface(unsigned int device, const BasicString& key,
                                                                       BasicString& value)
{
    log(Trace, "IpConfigModule::ReadValueFromInterface(): Read {0}", key);
    // Asked before the range test below: the Ethernet information module
    // throws std::out_of_range for a bad number itself, so that test answers
    // only behind a module that does not.
    const BasicString interfaceName = ethInfoModule->GetInterfaceName(device);
    log(Trace, "IpConfigModule::ReadValueFromInterface(): device {0} interfaceName {1}", device, interfaceName);

    AccessErrorCode result = AccessErrorCode::InvalidArgument;
    if (device != 0 && device <= deviceCount) {
        BasicString text;
        result = static_cast<AccessErrorCode>(fileAccess.ReadIpPara(interfaceName, key, text));
        if (result == AccessErrorCode::Success) {
            value = text;
        }
    }
    log(Trace, "IpConfigModule::ReadValueFromInterface(): {0} = {1}", key, value);
    return result;
}

IpConfigModule::AccessErrorCode IpConfigModule::WriteValueToInterface(unsigned int device, const BasicString& key,
                                                                      const BasicString& value)
{
    log(Trace, "IpConfigModule::WriteValueToInterface(): Write {0} to {1}", value, key);
    const BasicString interfaceName = ethInfoModule->GetInterfaceName(device);
    log(Trace, "IpConfigModule::WriteValueToInterface(): device {0} interfaceName {1}", device, interfaceName);

    if (device == 0 || device > deviceCount) {
        return AccessErrorCode::InvalidArgument;
    }
    return static_cast<AccessErrorCode>(fileAccess.WriteIpPara(interfaceName, key, value));
}

BasicString IpConfigModule::GetValue(const ValueTexts& texts, unsigned int device)
{
    log(Trace, texts.getMessage, device);
    BasicString value;
    const AccessErrorCode result = ReadValueFromInterface(device, BasicString(texts.key), value);
    if (result != AccessErrorCode::Success) {
        // A getter never answers with an empty text for a value it could not
        // read.
        throw InvalidOperationException(BasicString::Format(texts.getFailure, Code(result)));
    }
    log(Trace, texts.getMessage, value);
    return value;
}

IpConfigModule::AccessErrorCode IpConfigModule::SetValue(const ValueTexts& texts, unsigned int device,
                                                         const BasicString& value)
{
    log(Trace, texts.setEntry, device, value);
    const AccessErrorCode result = WriteValueToInterface(device, BasicString(texts.key), value);
    if (result != AccessErrorCode::Success) {
        // The framework knows only success and failure from these setters,
        // so an invalid device (22) is reported as a plain failure.
        log(Debug, texts.setFailure, Code(result));
        return AccessErrorCode::Failed;
    }
    log(Trace, texts.setSuccess);
    return AccessErrorCode::Success;
}

BasicString IpConfigModule::GetIpAddress(unsigned int device)
{
    log(Trace, "IpConfigModule::GetIpAddress(): {0}", device);
    // Through the virtual slot, so a derived module's address source is used.
    const BasicString address = GetDeviceIpAddress(device);
    log(Trace, "IpConfigModule::GetIpAddress(): {0}", address);
    return address;
}

BasicString IpConfigModule::GetSubnetMask(unsigned int device)
{
    return GetValue(subnetMaskTexts, device);
}

BasicString IpConfigModule::GetDefaultGateway(unsigned int device)
{
    return GetValue(defaultGatewayTexts, device);
}

BasicString IpConfigModule::GetDnsNameservers(unsigned int device)
{
    return GetValue(dnsNameserversTexts, device);
}

BasicString IpConfigModule::GetDeviceIpAddress(unsigned int device)
{
    return GetValue(deviceIpAddressTexts, device);
}

IpConfigModule::IpAssignMode IpConfigModule::GetIpAssignMode(unsigned int device)
{
    log(Trace, "IpConfigModule::GetIpAssignMode(): {0}", device);
    BasicString text;
    const AccessErrorCode result = ReadValueFromInterface(device, BasicString(methodKey), text);
    if (result != AccessErrorCode::Success) {
        throw InvalidOperationException(
            BasicString::Format("IpConfigModule::GetIpAssignMode(): ReadValueFromInterface() returned {0}",
                                Code(result)));
    }
    log(Trace, "IpConfigModule::GetIpAssignMode(): read: {0}", text);
    if (text.empty()) {
        return IpAssignMode::Static;
    }

    // "static" is 0 whatever the framework calls it; a word the framework
    // does not know (such as "6" from an "inet6" line) counts as 0 too.
    IpAssignMode mode = IpAssignMode::Static;
    if (text != staticMethod) {
        std::istringstream in(text);
        IpAssignMode parsed = IpAssignMode::Static;
        if (in >> parsed) {
            mode = parsed;
        }
    }
    log(Trace, "IpConfigModule::GetIpAssignMode(): returnValue = {0}", Number(mode));
    return mode;
}

IpConfigModule::AccessErrorCode IpConfigModule::SetIpAddress(unsigned int device, const BasicString& value)
{
    log(Trace, "IpConfigModule::SetIpAddress(): {0}, {1}", device, value);
    const AccessErrorCode result = SetDeviceIpAddress(device, value);
    if (result != AccessErrorCode::Success) {
        // The message names SetIpAddress for the call it made to
        // SetDeviceIpAddress; the framework's log filters match that text.
        log(Debug, "IpConfigModule::SetIpAddress(): SetIpAddress() returned {0}", Code(result));
    } else {
        log(Trace, "IpConfigModule::SetIpAddress(): OK...");
    }
    return result;
}

IpConfigModule::AccessErrorCode IpConfigModule::SetSubnetMask(unsigned int device, const BasicString& value)
{
    return SetValue(subnetMaskTexts, device, value);
}

IpConfigModule::AccessErrorCode IpConfigModule::SetDefaultGateway(unsigned int device, const BasicString& value)
{
    return SetValue(defaultGatewayTexts, device, value);
}

IpConfigModule::AccessErrorCode IpConfigModule::SetDnsNameservers(unsigned int device, const BasicString& value)
{
    return SetValue(dnsNameserversTexts, device, value);
}

IpConfigModule::AccessErrorCode IpConfigModule::SetDeviceIpAddress(unsigned int device, const BasicString& value)
{
    return SetValue(deviceIpAddressTexts, device, value);
}

IpConfigModule::AccessErrorCode IpConfigModule::SetIpAssignMode(unsigned int device, IpAssignMode mode)
{
    log(Trace, "IpConfigModule::SetIpAssignMode(): {0}, {1}", device, Number(mode));
    try {
        std::ostringstream text;
        text << mode;
        if (text.fail()) {
            throw Exception(
                BasicString::Format("Invalid value for Enum '{0}' occurs: {1}", AssignModeTypeName(), Number(mode)));
        }
        // Mode 0 is always written as "static", whatever the framework calls it.
        const BasicString method = mode == IpAssignMode::Static ? BasicString(staticMethod) : BasicString(text.str());
        const AccessErrorCode result = WriteValueToInterface(device, BasicString(methodKey), method);
        if (result != AccessErrorCode::Success) {
            log(Debug, "IpConfigModule::SetIpAssignMode(): WriteValueToInterface() returned {0}", Code(result));
            return AccessErrorCode::Failed;
        }
        log(Trace, "IpConfigModule::SetIpAssignMode(): OK...");
        return AccessErrorCode::Success;
    } catch (const std::out_of_range&) {
        // Unlike the value setters, an invalid device number reported by the
        // Ethernet information module becomes a result code here.
        log(Debug, "IpConfigModule::SetIpAssignMode(): Value out of range");
        return AccessErrorCode::OutOfRange;
    }
}

} // namespace Zel::Hardware::Modules::Nim::Linux
