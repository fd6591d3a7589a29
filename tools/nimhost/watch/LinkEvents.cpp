#include "watch/LinkEvents.hpp"

#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>

namespace Zel::Tools::Nimhost {

namespace {

// Copies a header out of the buffer: the bytes of a datagram carry no
// alignment promise for the struct.
template <typename T>
T Load(const std::uint8_t* at)
{
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

constexpr std::size_t Align(std::size_t length)
{
    return (length + NLMSG_ALIGNTO - 1) & ~static_cast<std::size_t>(NLMSG_ALIGNTO - 1);
}

// The interface's name among the attributes after ifinfomsg; false when an
// attribute runs past the message.
bool ReadName(const std::uint8_t* at, std::size_t size, std::string& name)
{
    while (size >= sizeof(rtattr)) {
        const auto attribute = Load<rtattr>(at);
        if (attribute.rta_len < sizeof(rtattr) || attribute.rta_len > size) {
            return false;
        }
        if ((attribute.rta_type & NLA_TYPE_MASK) == IFLA_IFNAME) {
            const char* text = reinterpret_cast<const char*>(at + sizeof(rtattr));
            const std::size_t length = attribute.rta_len - sizeof(rtattr);
            name.assign(text, ::strnlen(text, length));
        }
        const std::size_t step = Align(attribute.rta_len);
        if (step >= size) {
            break;
        }
        at += step;
        size -= step;
    }
    return true;
}

} // namespace

LinkMessages ParseLinkMessages(const std::uint8_t* data, std::size_t size)
{
    LinkMessages result;
    while (size > 0) {
        if (size < sizeof(nlmsghdr)) {
            result.lost = true;
            break;
        }
        const auto header = Load<nlmsghdr>(data);
        if (header.nlmsg_len < sizeof(nlmsghdr) || header.nlmsg_len > size) {
            result.lost = true;
            break;
        }
        const std::uint8_t* payload = data + sizeof(nlmsghdr);
        const std::size_t payloadSize = header.nlmsg_len - sizeof(nlmsghdr);
        if (header.nlmsg_type == NLMSG_OVERRUN) {
            result.lost = true;
        } else if (header.nlmsg_type == RTM_NEWLINK || header.nlmsg_type == RTM_DELLINK) {
            if (payloadSize < sizeof(ifinfomsg)) {
                result.lost = true;
                break;
            }
            const auto info = Load<ifinfomsg>(payload);
            LinkEvent event;
            event.kind = header.nlmsg_type == RTM_NEWLINK ? LinkEvent::Kind::NewLink : LinkEvent::Kind::DelLink;
            event.index = info.ifi_index;
            event.flags = info.ifi_flags;
            const std::size_t attributes = Align(sizeof(ifinfomsg));
            if (payloadSize > attributes && !ReadName(payload + attributes, payloadSize - attributes, event.name)) {
                result.lost = true;
                break;
            }
            result.events.push_back(std::move(event));
        }
        const std::size_t step = Align(header.nlmsg_len);
        if (step >= size) {
            break;
        }
        data += step;
        size -= step;
    }
    return result;
}

} // namespace Zel::Tools::Nimhost
