#pragma once

#include "Modules/Nim/Linux/Internal/IEthPortInfo.hpp"

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// A port whose link cannot be read: unknown state, speed and duplex.
class EthPortInfoUnsupported : public IEthPortInfo {
public:
    LinkState GetPortLinkState() const override;
    LinkSpeed GetPortLinkSpeed() const override;
    LinkDuplex GetPortLinkDuplex() const override;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
