#include "settings/MachineInterfaces.hpp"

#include <ifaddrs.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <system_error>

namespace Zel::Tools::Nimhost {

std::vector<std::string> ReadLinkLayerInterfaceNames()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        const int error = errno;
        throw std::system_error(error, std::generic_category(), "Could not read this machine's interfaces");
    }
    std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    std::vector<std::string> names;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_PACKET && entry->ifa_name != nullptr) {
            names.emplace_back(entry->ifa_name);
        }
    }
    return names;
}

} // namespace Zel::Tools::Nimhost
