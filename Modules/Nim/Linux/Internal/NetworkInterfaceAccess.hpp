#pragma once

#include <Zel/System/Commons/BasicString.hpp>

#include <array>
#include <vector>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

// The kernel's view of the network interfaces that Ethernet set-up needs:
// the link-layer interface list and an interface's hardware address. The
// Ethernet information module holds one (this class, the kernel, unless it
// is given another) and asks it afresh on every call. Both calls throw
// InvalidOperationException when the kernel refuses; they keep no state and
// may run on any thread.
class NetworkInterfaceAccess {
public:
    using BasicString = ::Zel::System::Commons::BasicString;
    using HardwareAddress = std::array<unsigned char, 6>;

    virtual ~NetworkInterfaceAccess() = default;

    // getifaddrs: the names of the AF_PACKET entries, one per link-layer
    // interface, in the kernel's order.
    virtual std::vector<BasicString> ReadLinkInterfaceNames() const;
    // SIOCGIFHWADDR on a fresh AF_INET datagram socket.
    virtual HardwareAddress ReadHardwareAddress(const BasicString& interfaceName) const;
};

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
