#pragma once

#include <Zel/Export.hpp>
#include <Zel/Hardware/Commons/Modules/IHardwareModule.hpp>
#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/BasicString.hpp>

#include <vector>

namespace Zel::Hardware::Nim::Modules {

using Zel::System::Commons::BasicString;

// The controller's Ethernet devices and their ports. Devices and ports are
// numbered from 1; a number of 0 or above the count throws std::out_of_range.
// Read-only after SetupSettings; safe to call from several threads.
class ZEL_API IEthernetInfoModule : public Zel::Hardware::Commons::Modules::IHardwareModule {
public:
    ~IEthernetInfoModule() override;

    virtual unsigned int GetDeviceCount() const = 0;
    virtual unsigned int GetPortCount(unsigned int device) const = 0;
    virtual BasicString GetInterfaceName(unsigned int device) const = 0;
    virtual BasicString GetMacAddress(unsigned int device) const = 0;
    virtual LinkState GetPortLinkState(unsigned int device, unsigned int port) const = 0;
    virtual LinkSpeed GetPortLinkSpeed(unsigned int device, unsigned int port) const = 0;
    virtual LinkDuplex GetPortLinkDuplex(unsigned int device, unsigned int port) const = 0;
    virtual BasicString GetPublicInterfaceName(unsigned int device) const = 0;
    virtual BasicString GetPortPublicName(unsigned int device, unsigned int port) const = 0;
    virtual NetworkInterfaceType GetInterfaceType(unsigned int device) const = 0;
    virtual std::vector<BasicString> GetListOfInterfaceNames() const = 0;
};

} // namespace Zel::Hardware::Nim::Modules
