#include "Modules/Nim/Linux/Internal/NetworkInterfaceAccess.hpp"

#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/SecureStrcpy.hpp>

#include <cerrno>
#include <memory>

#include <ifaddrs.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Zel::Hardware::Modules::Nim::Linux::Internal {

using ::Zel::System::Commons::InvalidOperationException;

namespace {

struct IfAddrsDeleter {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

} // namespace

std::vector<NetworkInterfaceAccess::BasicString> NetworkInterfaceAccess::ReadLinkInterfaceNames() const
{
    ifaddrs* raw = nullptr;
    if (getifaddrs(&raw) == -1) {
        const int error = errno;
        // Two blanks before "errno": the text is matched as it stands.
        throw InvalidOperationException(
            BasicString::Format("Could not read current interface list:  errno {0}", error));
    }
    const std::unique_ptr<ifaddrs, IfAddrsDeleter> list(raw);

    // One AF_PACKET entry per link-layer interface, whether or not it has
    // an IP address.
    std::vector<BasicString> names;
    for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET) {
            names.emplace_back(entry->ifa_name);
        }
    }
    return names;
}

NetworkInterfaceAccess::HardwareAddress
NetworkInterfaceAccess::ReadHardwareAddress(const BasicString& interfaceName) const
{
    ifreq request{};
    ::Zel::System::Commons::SecureStrcpy(request.ifr_name, IFNAMSIZ, interfaceName.c_str());

    // Raw descriptor: the failure path below leaves it open on purpose.
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        const int error = errno;
        throw InvalidOperationException(
            BasicString::Format("Could not open socket for read mac info from '{0}': errno {1}", interfaceName, error));
    }
    if (ioctl(fd, SIOCGIFHWADDR, &request) < 0) {
        const int error = errno;
        // The socket stays open on this path; the controller's runtime has
        // always behaved so and set-up fails here anyway.
        throw InvalidOperationException(
            BasicString::Format("Could not read mac info from '{0}': errno {1}", interfaceName, error));
    }
    close(fd);

    // sa_data is plain char, signed on x86: go through unsigned char.
    HardwareAddress address{};
    for (std::size_t i = 0; i < address.size(); ++i) {
        address[i] = static_cast<unsigned char>(request.ifr_hwaddr.sa_data[i]);
    }
    return address;
}

} // namespace Zel::Hardware::Modules::Nim::Linux::Internal
