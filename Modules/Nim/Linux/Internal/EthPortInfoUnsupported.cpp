#include "Modules/Nim/Linux/Internal/EthPortInfoUnsupported.hpp"

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

LinkState EthPortInfoUnsupported::GetPortLinkState() const
{
    return LinkState::Unknown;
}

// Speed and duplex answer alike: unknown is 0 for both.
LinkSpeed EthPortInfoUnsupported::GetPortLinkSpeed() const
{
    return LinkSpeed::Unknown;
}

LinkDuplex EthPortInfoUnsupported::GetPortLinkDuplex() const
{
    return LinkDuplex::Unknown;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
