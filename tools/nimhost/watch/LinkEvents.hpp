#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// One rtnetlink link notification: an interface was created or changed
// (RTM_NEWLINK) or removed (RTM_DELLINK).
struct LinkEvent {
    enum class Kind { NewLink, DelLink };
    Kind kind = Kind::NewLink;
    int index = 0;
    // IFLA_IFNAME; empty when the message carries none.
    std::string name;
    unsigned int flags = 0;

    bool operator==(const LinkEvent& other) const
    {
        return kind == other.kind && index == other.index && name == other.name && flags == other.flags;
    }
};

// What one datagram from an rtnetlink socket holds.
struct LinkMessages {
    std::vector<LinkEvent> events;
    // NLMSG_OVERRUN, or a message cut short or malformed: the notifications
    // can no longer be trusted to be complete.
    bool lost = false;
};

// Parses the netlink messages of one datagram (several may be packed into it,
// each aligned to 4 bytes). Messages of other types are skipped; parsing stops
// at the first header or attribute that runs past the data, and marks the
// batch lost. Pure: no socket, so it can be fed hand-built bytes.
LinkMessages ParseLinkMessages(const std::uint8_t* data, std::size_t size);

} // namespace Zel::Tools::Nimhost
