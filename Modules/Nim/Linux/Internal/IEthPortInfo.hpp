#pragma once

#include <Zel/Hardware/Nim/NimTypes.hpp>
#include <Zel/System/Commons/BasicString.hpp>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::System::Commons::BasicString;

// Link information of one port of an Ethernet device, read afresh from the
// hardware on every query. Unknown state is 255 (LinkState::Unknown), unknown
// speed and duplex are 0: the asymmetry is the framework's and every
// strategy keeps it. Queries never throw; they log and return the unknown
// code. Owned through std::shared_ptr by the Ethernet device table.
class IEthPortInfo {
public:
    virtual ~IEthPortInfo() = default;

    virtual LinkState GetPortLinkState() const = 0;
    virtual LinkSpeed GetPortLinkSpeed() const = 0;
    virtual LinkDuplex GetPortLinkDuplex() const = 0;

    // Set once by the Ethernet information module right after construction.
    BasicString publicName;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
