#pragma once

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <cstdint>

namespace Zel::Hardware::Modules::Commons::Linux {

using Zel::System::Commons::BasicString;

// Reads the live IPv4 settings of one kernel interface: address and netmask
// through the interface ioctls, the default gateway from the kernel's route
// table. Never changes anything.
//
// Every query takes the device number (from 1), the device count (its upper
// bound), the kernel interface name and the result, and returns 0 on success
// or 1 on failure (the cause is logged at level 3; the result is then left
// as it was). Nothing is kept between calls: each query opens and closes its
// own socket or file, so calls from several threads at once are safe.
class IpStatusSocketAccess : private Zel::System::Commons::Logging::Loggable<IpStatusSocketAccess, false, false> {
public:
    // The kernel's route table, "/proc/net/route".
    static const BasicString routeFileName;

    // routeFile is the table GetCurrentDefaultGateway reads; anything other
    // than the kernel's table only makes sense for a copy in that format.
    explicit IpStatusSocketAccess(const BasicString& routeFile = routeFileName);

    // The name has one d; callers and the framework's log filters know it so.
    int GetCurrentIpAdress(std::uint32_t deviceNumber, std::uint32_t deviceCount, const BasicString& interfaceName,
                           BasicString& result) const;
    int GetCurrentSubnetMask(std::uint32_t deviceNumber, std::uint32_t deviceCount, const BasicString& interfaceName,
                             BasicString& result) const;
    // The gateway of the interface's default route; "0.0.0.0" (status 0)
    // when the interface has none.
    int GetCurrentDefaultGateway(std::uint32_t deviceNumber, std::uint32_t deviceCount,
                                 const BasicString& interfaceName, BasicString& result) const;
    // One interface ioctl (SIOCGIFADDR, SIOCGIFNETMASK) on a fresh AF_INET
    // datagram socket. An interface without an IPv4 address answers
    // "0.0.0.0" with status 0.
    int GetSettingFromSocket(std::uint32_t deviceNumber, std::uint32_t deviceCount, const BasicString& interfaceName,
                             std::uint32_t request, BasicString& result) const;

    // Dotted decimal of an address as the route table prints it: the lowest
    // byte is the first octet.
    BasicString FormatIpParameter(std::uint32_t value) const;

private:
    BasicString routeFile;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
