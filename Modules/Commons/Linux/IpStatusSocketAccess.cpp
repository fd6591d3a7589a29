#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"

#include "Modules/Commons/Linux/ScopedDescriptor.hpp"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Zel::Hardware::Modules::Commons::Linux {

const BasicString IpStatusSocketAccess::routeFileName("/proc/net/route");

namespace {

// The destination field of a default route in the route table.
constexpr const char* defaultDestination = "00000000";

// Dotted decimal needs at most 15 characters; the buffer leaves room.
constexpr std::size_t addressTextSize = 32;

// fgets piece size. The kernel pads every table line with blanks to 127
// characters, so a line arrives in two pieces: the first holds every field we
// read, the second only blanks and the newline, which has fewer than three
// tab-separated fields and is skipped.
constexpr int routeLineSize = 100;

using ::Zel::System::Commons::Logging::Error;
using ::Zel::System::Commons::Logging::Trace;

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

bool IsValidDevice(std::uint32_t deviceNumber, std::uint32_t deviceCount)
{
    return deviceNumber != 0 && deviceNumber <= deviceCount;
}

} // namespace

IpStatusSocketAccess::IpStatusSocketAccess(const BasicString& routeFile) : routeFile(routeFile)
{
}

int IpStatusSocketAccess::GetCurrentIpAdress(std::uint32_t deviceNumber, std::uint32_t deviceCount,
                                             const BasicString& interfaceName, BasicString& result) const
{
    log(Trace, "IpStatusSocketAccess::GetCurrentIpAdress(): {0}", deviceNumber);
    return GetSettingFromSocket(deviceNumber, deviceCount, interfaceName, SIOCGIFADDR, result);
}

int IpStatusSocketAccess::GetCurrentSubnetMask(std::uint32_t deviceNumber, std::uint32_t deviceCount,
                                               const BasicString& interfaceName, BasicString& result) const
{
    log(Trace, "IpStatusSocketAccess::GetCurrentSubnetMask(): {0}", deviceNumber);
    return GetSettingFromSocket(deviceNumber, deviceCount, interfaceName, SIOCGIFNETMASK, result);
}

int IpStatusSocketAccess::GetSettingFromSocket(std::uint32_t deviceNumber, std::uint32_t deviceCount,
                                               const BasicString& interfaceName, std::uint32_t request,
                                               BasicString& result) const
{
    if (!IsValidDevice(deviceNumber, deviceCount)) {
        log(Error, "IpStatusSocketAccess::GetSettingFromSocket(): Invalid device number {0}", deviceNumber);
        return 1;
    }
    log(Trace, "IpStatusSocketAccess::GetSettingFromSocket(): device {0} interfaceName {1} request {2}", deviceNumber,
        interfaceName, request);

    // One socket per query, closed before returning; none is kept.
    const ScopedDescriptor socketFd(socket(AF_INET, SOCK_DGRAM, 0));
    if (socketFd.Get() == -1) {
        log(Error, "IpStatusSocketAccess::GetSettingFromSocket(): error during socket() for interfaceName {0}",
            interfaceName);
        return 1;
    }

    struct ifreq interfaceRequest {};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    std::memcpy(&interfaceRequest.ifr_addr, &address, sizeof(address));
    // The kernel takes at most 15 characters and a zero; a longer name is cut
    // here, while the route table compares the whole name.
    std::strncpy(interfaceRequest.ifr_name, interfaceName.c_str(), IFNAMSIZ - 1);

    if (ioctl(socketFd.Get(), request, &interfaceRequest) == 0) {
        std::memcpy(&address, &interfaceRequest.ifr_addr, sizeof(address));
        char text[addressTextSize] = {};
        std::strncpy(text, inet_ntoa(address.sin_addr), addressTextSize - 1);
        text[addressTextSize - 1] = '\0';
        result = text;
        log(Trace, "IpStatusSocketAccess::GetSettingFromSocket(): IOCTL value {0}", result);
        return 0;
    }
    const int error = errno;
    if (error == EADDRNOTAVAIL) {
        // The interface exists but has no IPv4 address: a normal state, not
        // an error, so nothing is logged.
        result = "0.0.0.0";
        return 0;
    }
    log(Error, "IpStatusSocketAccess::GetSettingFromSocket(): error {0} during ioctl() for interfaceName {1}", error,
        interfaceName);
    return 1;
}

int IpStatusSocketAccess::GetCurrentDefaultGateway(std::uint32_t deviceNumber, std::uint32_t deviceCount,
                                                   const BasicString& interfaceName, BasicString& result) const
{
    if (!IsValidDevice(deviceNumber, deviceCount)) {
        log(Error, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Invalid device number {0}", deviceNumber);
        return 1;
    }
    log(Trace, "IpStatusSocketAccess::GetCurrentDefaultGateway(): device {0} interfaceName {1}", deviceNumber,
        interfaceName);

    const std::unique_ptr<FILE, FileCloser> file(std::fopen(routeFile.c_str(), "r"));
    if (file == nullptr) {
        log(Error, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Error open file {0}", routeFile);
        return 1;
    }

    bool found = false;
    unsigned long gateway = 0;
    char line[routeLineSize];
    while (std::fgets(line, routeLineSize, file.get()) != nullptr) {
        // Only tabs separate the fields; the padding blanks stay in the last
        // field, which is not read.
        char* savePointer = nullptr;
        const char* interfaceField = strtok_r(line, "\t", &savePointer);
        const char* destinationField = strtok_r(nullptr, "\t", &savePointer);
        const char* gatewayField = strtok_r(nullptr, "\t", &savePointer);
        if (interfaceField == nullptr || destinationField == nullptr || gatewayField == nullptr) {
            continue;
        }
        // The whole name is compared, not the 15 characters the ioctls see.
        if (std::strcmp(interfaceField, interfaceName.c_str()) != 0 ||
            std::strcmp(destinationField, defaultDestination) != 0) {
            continue;
        }
        gateway = std::strtoul(gatewayField, nullptr, 16);
        log(Trace, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Default Gateway is {0}, 0x{1:X}", gatewayField,
            gateway);
        // No break: with several default routes on the interface the last
        // line of the table wins.
        found = true;
    }

    if (found) {
        // The table holds 32-bit addresses; only a malformed field on a
        // 64-bit build parses wider, and its low 32 bits are shown.
        result = FormatIpParameter(static_cast<std::uint32_t>(gateway));
        log(Trace, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Default Gateway found in 'route': {0}", result);
    } else {
        result = "0.0.0.0";
        log(Trace, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Default Gateway not found in 'route': {0}",
            result);
    }
    return 0;
}

BasicString IpStatusSocketAccess::FormatIpParameter(std::uint32_t value) const
{
    // The table prints the address bytes as one little-endian word, so the
    // lowest byte is the first octet: 0102A8C0 is 192.168.2.1.
    return BasicString::Format("{0}.{1}.{2}.{3}", value & 0xFFu, (value >> 8) & 0xFFu, (value >> 16) & 0xFFu,
                               (value >> 24) & 0xFFu);
}

} // namespace Zel::Hardware::Modules::Commons::Linux
