#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/BasicString.hpp>

namespace Zel::Hardware::Nim::Modules {

using Zel::System::Commons::BasicString;

// The persistent IP configuration of each device. Getters throw
// InvalidOperationException when a value cannot be read; setters answer with
// a result code.
class ZEL_API IIpConfigModule : public Zel::Hardware::Commons::Modules::IHardwareModule {
public:
    ~IIpConfigModule() override;

    virtual BasicString GetIpAddress(unsigned int device) = 0;
    virtual BasicString GetSubnetMask(unsigned int device) = 0;
    virtual BasicString GetDefaultGateway(unsigned int device) = 0;
    virtual BasicString GetDnsNameservers(unsigned int device) = 0;
    virtual IpAssignMode GetIpAssignMode(unsigned int device) = 0;
    virtual AccessErrorCode SetIpAddress(unsigned int device, const BasicString& value) = 0;
    virtual AccessErrorCode SetSubnetMask(unsigned int device, const BasicString& value) = 0;
    virtual AccessErrorCode SetDefaultGateway(unsigned int device, const BasicString& value) = 0;
    virtual AccessErrorCode SetDnsNameservers(unsigned int device, const BasicString& value) = 0;
    virtual AccessErrorCode SetIpAssignMode(unsigned int device, IpAssignMode mode) = 0;
    virtual BasicString GetDeviceIpAddress(unsigned int device) = 0;
    virtual AccessErrorCode SetDeviceIpAddress(unsigned int device, const BasicString& value) = 0;
};

} // namespace Zel::Hardware::Nim::Modules
