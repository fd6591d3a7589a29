#pragma once

#include "Modules/Commons/Linux/ScopedDescriptor.hpp"
#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"

#include <Zel/System/Commons/Logging/Loggable.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port of an I210 controller, read through the interface flags and the
// ethtool get-settings ioctl on a socket kept for the object's life (one
// ioctl per query; the kernel lets threads share the socket). Throws only
// when the socket cannot be made; a failed query logs and answers unknown.
class EthPortInfoI210Drv : public IEthPortInfo,
                           private Zel::System::Commons::Logging::Loggable<EthPortInfoI210Drv, false, false> {
public:
    EthPortInfoI210Drv(unsigned int deviceIndex, unsigned int portIndex, const BasicString& interfaceName);
    ~EthPortInfoI210Drv() override;
    EthPortInfoI210Drv(const EthPortInfoI210Drv&) = delete;
    EthPortInfoI210Drv& operator=(const EthPortInfoI210Drv&) = delete;

    LinkState GetPortLinkState() const override;
    LinkSpeed GetPortLinkSpeed() const override;
    LinkDuplex GetPortLinkDuplex() const override;

private:
    unsigned int deviceIndex;
    unsigned int portIndex;
    BasicString interfaceName;
    Zel::Hardware::Modules::Commons::Linux::ScopedDescriptor fdSocket;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
