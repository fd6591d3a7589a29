#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/System/Commons/BasicString.hpp>

namespace Zel::Hardware::Nim::Modules {

using Zel::System::Commons::BasicString;

// The current IPv4 settings of each device as the kernel holds them, as
// dotted-decimal text. Failures throw InvalidOperationException.
class ZEL_API IIpStatusModule : public Zel::Hardware::Commons::Modules::IHardwareModule {
public:
    ~IIpStatusModule() override;

    virtual BasicString GetIpAddress(unsigned int device) const = 0;
    virtual BasicString GetSubnetMask(unsigned int device) const = 0;
    virtual BasicString GetDefaultGateway(unsigned int device) const = 0;
    virtual BasicString GetDeviceIpAddress(unsigned int device) const = 0;
};

} // namespace Zel::Hardware::Nim::Modules
