// Parses arbitrary datagrams as rtnetlink link notifications and checks the
// answer against a walk with the kernel's own netlink macros (NLMSG_OK,
// NLMSG_NEXT, RTA_OK, RTA_NEXT):
//   - the events are exactly the link messages the walk finds whole, in
//     order, with kind, index, flags and name (the last IFLA_IFNAME up to
//     its first NUL), so every event lies inside the datagram;
//   - the batch is lost exactly when the walk meets an overrun, a link
//     message too short for its ifinfomsg, an attribute running past its
//     message, or left bytes that cannot be a message (a last message or
//     attribute missing only its padding is whole);
//   - cut inside a link message (its last byte, or one byte into it), the
//     datagram reports the events before it and is lost: a truncated
//     message is never reported.
#include "fuzz/support/FuzzSupport.hpp"

#include "watch/LinkEvents.hpp"

#include <fmt/format.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <vector>

namespace {

using Zel::Fuzz::Check;
using Zel::Tools::Nimhost::LinkEvent;
using Zel::Tools::Nimhost::LinkMessages;
using Zel::Tools::Nimhost::ParseLinkMessages;

struct Walk {
    LinkMessages expected;
    std::vector<std::size_t> starts; // of each event's message
};

// The kernel's macros mix signed and unsigned lengths.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wsign-compare"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wconversion"
Walk WalkWithMacros(const std::uint8_t* data, std::size_t size)
{
    // The macros cast the bytes to the headers: an aligned copy.
    std::vector<std::uint32_t> aligned(size / 4 + 1);
    if (size > 0) {
        std::memcpy(aligned.data(), data, size);
    }
    auto* const base = reinterpret_cast<std::uint8_t*>(aligned.data());
    Walk walk;
    LinkMessages& out = walk.expected;
    int left = static_cast<int>(size);
    for (auto* h = reinterpret_cast<nlmsghdr*>(base); NLMSG_OK(h, left); h = NLMSG_NEXT(h, left)) {
        out.lost = out.lost || h->nlmsg_type == NLMSG_OVERRUN;
        if (h->nlmsg_type != RTM_NEWLINK && h->nlmsg_type != RTM_DELLINK) {
            continue;
        }
        if (h->nlmsg_len < NLMSG_LENGTH(sizeof(ifinfomsg))) {
            out.lost = true;
            return walk;
        }
        const auto* info = static_cast<const ifinfomsg*>(NLMSG_DATA(h));
        LinkEvent event;
        event.kind = h->nlmsg_type == RTM_NEWLINK ? LinkEvent::Kind::NewLink : LinkEvent::Kind::DelLink;
        event.index = info->ifi_index;
        event.flags = info->ifi_flags;
        int attributes = static_cast<int>(IFLA_PAYLOAD(h));
        for (auto* a = IFLA_RTA(info); RTA_OK(a, attributes); a = RTA_NEXT(a, attributes)) {
            if ((a->rta_type & NLA_TYPE_MASK) == IFLA_IFNAME) {
                const auto* text = static_cast<const char*>(RTA_DATA(a));
                event.name.assign(text, ::strnlen(text, RTA_PAYLOAD(a)));
            }
        }
        if (attributes >= static_cast<int>(sizeof(rtattr))) {
            out.lost = true;
            return walk;
        }
        out.events.push_back(event);
        walk.starts.push_back(static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(h) - base));
    }
    out.lost = out.lost || left > 0;
    return walk;
}
#pragma GCC diagnostic pop

std::string Describe(const LinkMessages& messages)
{
    std::string text = fmt::format("lost {}:", messages.lost);
    for (const LinkEvent& e : messages.events) {
        text += fmt::format(" {}/{}/{:x}/'{}'", e.kind == LinkEvent::Kind::NewLink ? "new" : "del", e.index, e.flags,
                            e.name);
    }
    return text;
}

void CheckSame(const LinkMessages& parsed, const LinkMessages& expected, const char* what)
{
    Check(parsed.lost == expected.lost && parsed.events == expected.events, what,
          "parsed " + Describe(parsed) + ", expected " + Describe(expected));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Walk walk = WalkWithMacros(data, size);
    CheckSame(ParseLinkMessages(data, size), walk.expected, "the datagram parses as the kernel's macros walk it:");
    const std::size_t count = walk.expected.events.size();
    if (count == 0) {
        return 0;
    }
    // One event's message, chosen by the size, cut inside.
    const std::size_t cutEvent = size % count;
    const std::size_t start = walk.starts[cutEvent];
    std::uint32_t length = 0;
    std::memcpy(&length, data + start, sizeof length);
    LinkMessages before;
    before.lost = true;
    before.events.assign(walk.expected.events.begin(),
                         walk.expected.events.begin() + static_cast<std::ptrdiff_t>(cutEvent));
    for (const std::size_t cut : {start + length - 1, start + 1}) {
        // A copy of exactly the cut bytes, so that a read past the cut is
        // AddressSanitizer's to see.
        const std::vector<std::uint8_t> cutCopy(data, data + cut);
        CheckSame(ParseLinkMessages(cutCopy.data(), cut), before, "a message cut short is not reported:");
    }
    return 0;
}
