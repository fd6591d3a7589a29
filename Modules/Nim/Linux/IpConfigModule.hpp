#pragma once

#include "Modules/Commons/Linux/IpConfigFileAccess.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux {

using Zel::System::Commons::BasicString;

// The persistent IP configuration of each Ethernet device (address, subnet
// mask, default gateway, DNS name servers, address assignment method) in
// /etc/network/interfaces. Devices are numbered from 1 and turned into
// kernel interface names by the EthernetInfoModule, found in SetupSettings,
// which must run before any getter or setter.
//
// Getters throw InvalidOperationException with the result code in the text
// when a value cannot be read, and let std::out_of_range from the Ethernet
// information module or from the file's line rules pass. Setters answer 0 or
// 1; SetIpAssignMode answers 7 for std::out_of_range. Setters may be called
// from any thread: the file access serialises the writes.
class IpConfigModule
    : public Zel::Hardware::Commons::Modules::HardwareModuleBase<Zel::Hardware::Nim::Modules::IIpConfigModule,
                                                                 IpConfigModule>,
      private Zel::System::Commons::Logging::Loggable<IpConfigModule, false, false> {
public:
    using AccessErrorCode = Zel::Hardware::Nim::AccessErrorCode;
    using IpAssignMode = Zel::Hardware::Nim::IpAssignMode;

    IpConfigModule();
    ~IpConfigModule() override;

    void SetupSettings(const Zel::Hardware::Commons::Modules::ModuleSettings& settings,
                       const Zel::Hardware::Commons::Modules::HardwareModuleProvider& provider) override;
    void Dispose() override;
    bool IsEnabled() const override;

    BasicString GetIpAddress(unsigned int device) override;
    BasicString GetSubnetMask(unsigned int device) override;
    BasicString GetDefaultGateway(unsigned int device) override;
    BasicString GetDnsNameservers(unsigned int device) override;
    IpAssignMode GetIpAssignMode(unsigned int device) override;
    AccessErrorCode SetIpAddress(unsigned int device, const BasicString& value) override;
    AccessErrorCode SetSubnetMask(unsigned int device, const BasicString& value) override;
    AccessErrorCode SetDefaultGateway(unsigned int device, const BasicString& value) override;
    AccessErrorCode SetDnsNameservers(unsigned int device, const BasicString& value) override;
    AccessErrorCode SetIpAssignMode(unsigned int device, IpAssignMode mode) override;
    BasicString GetDeviceIpAddress(unsigned int device) override;
    AccessErrorCode SetDeviceIpAddress(unsigned int device, const BasicString& value) override;

private:
    // The key and the messages of one plain value (getter and setter).
    struct ValueTexts;
    static const ValueTexts subnetMaskTexts;
    static const ValueTexts defaultGatewayTexts;
    static const ValueTexts dnsNameserversTexts;
    static const ValueTexts deviceIpAddressTexts;

    AccessErrorCode ReadValueFromInterface(unsigned int device, const BasicString& key, BasicString& value);
    AccessErrorCode WriteValueToInterface(unsigned int device, const BasicString& key, const BasicString& value);

    BasicString GetValue(const ValueTexts& texts, unsigned int device);
    AccessErrorCode SetValue(const ValueTexts& texts, unsigned int device, const BasicString& value);

    // Not owned; set by SetupSettings.
    Zel::Hardware::Nim::Modules::IEthernetInfoModule* ethInfoModule = nullptr;
    // Read once in SetupSettings: devices that appear later are not seen.
    unsigned int deviceCount = 0;
    Zel::Hardware::Modules::Commons::Linux::IpConfigFileAccess fileAccess;
};

} // namespace Zel::Hardware::Modules::Nim::Linux
