// The rtnetlink link-message parser on hand-built datagrams, and the label
// escaping of the metrics text.
#include "LinkEvents.hpp"
#include "LogDigest.hpp"
#include "PrometheusText.hpp"

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {
namespace {

using Bytes = std::vector<std::uint8_t>;

template <typename T>
void Append(Bytes& bytes, const T& value)
{
    const auto* raw = reinterpret_cast<const std::uint8_t*>(&value);
    bytes.insert(bytes.end(), raw, raw + sizeof value);
}

// A netlink message of this type around the body.
Bytes Message(std::uint16_t type, const Bytes& body)
{
    // Sized first and filled: gcc 12 at -O3 for 32-bit ARM warns wrongly on
    // an insert into an empty vector here.
    const nlmsghdr header{static_cast<std::uint32_t>(NLMSG_HDRLEN + body.size()), type, 0, 0, 0};
    Bytes message(sizeof header + body.size());
    std::memcpy(message.data(), &header, sizeof header);
    std::copy(body.begin(), body.end(), message.begin() + static_cast<std::ptrdiff_t>(sizeof header));
    return message;
}

// One link message: ifinfomsg, an unrelated attribute, and IFLA_IFNAME with
// its terminating zero when named; `nameLength` overrides its length field.
Bytes LinkMessage(std::uint16_t type, int index, const std::string& name, unsigned int flags = 0,
                  std::uint16_t nameLength = 0)
{
    Bytes body;
    ifinfomsg info{};
    info.ifi_index = index;
    info.ifi_flags = flags;
    Append(body, info);
    Append(body, rtattr{static_cast<unsigned short>(RTA_LENGTH(4)), IFLA_MTU});
    Append(body, 1500U);
    if (!name.empty()) {
        const auto length = static_cast<unsigned short>(RTA_LENGTH(name.size() + 1));
        Append(body, rtattr{nameLength != 0 ? nameLength : length, IFLA_IFNAME});
        body.insert(body.end(), name.c_str(), name.c_str() + name.size() + 1);
        body.resize(NLMSG_ALIGN(body.size()), 0);
    }
    return Message(type, body);
}

Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

Bytes Cut(Bytes bytes, std::size_t keep)
{
    bytes.resize(keep);
    return bytes;
}

using Kind = LinkEvent::Kind;

TEST(WatchParse, LinkMessagesGiveTheirKindIndexNameAndFlagsAndAFaultMarksTheBatchLost)
{
    const Bytes eth0 = LinkMessage(RTM_NEWLINK, 2, "eth0", 0x1043);
    const struct {
        const char* what;
        Bytes bytes;
        std::vector<LinkEvent> events;
        bool lost;
    } rows[] = {
        {"one new link", eth0, {{Kind::NewLink, 2, "eth0", 0x1043}}, false},
        {"a removal without a name", LinkMessage(RTM_DELLINK, 7, ""), {{Kind::DelLink, 7, "", 0}}, false},
        {"several messages in one datagram, other types skipped",
         Join({eth0, LinkMessage(RTM_NEWADDR, 2, "eth0"), LinkMessage(RTM_DELLINK, 3, "eth1")}),
         {{Kind::NewLink, 2, "eth0", 0x1043}, {Kind::DelLink, 3, "eth1", 0}},
         false},
        {"the kernel's overrun message",
         Join({Message(NLMSG_OVERRUN, {}), eth0}),
         {{Kind::NewLink, 2, "eth0", 0x1043}},
         true},
        {"a datagram cut inside the second header",
         Join({eth0, Cut(eth0, 8)}),
         {{Kind::NewLink, 2, "eth0", 0x1043}},
         true},
        {"a message shorter than its ifinfomsg", Cut(eth0, NLMSG_HDRLEN + 4), {}, true},
        {"an attribute running past the message", LinkMessage(RTM_NEWLINK, 3, "eth1", 0, 200), {}, true},
        {"a header claiming more than the datagram", Cut(eth0, eth0.size() - 4), {}, true},
        {"nothing", {}, {}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const LinkMessages parsed = ParseLinkMessages(row.bytes.data(), row.bytes.size());
        EXPECT_EQ(parsed.events, row.events);
        EXPECT_EQ(parsed.lost, row.lost);
    }
}

TEST(WatchParse, MetricsTextEscapesLabelValuesAndLeavesEmptyFamiliesOut)
{
    PrometheusText text;
    text.Family("nim_empty", "gauge", "No samples.");
    text.Family("nim_port_info", "gauge", "Texts\\of a port.");
    text.Sample({{"public_name", "a\"b\\c\nd"}}, 1);
    text.Family("nim_port_speed_bytes", "gauge", "Speed.");
    text.Sample({}, 125000000);
    text.Sample({}, 0.25);
    EXPECT_EQ(text.Text(),
              "# HELP nim_port_info Texts\\\\of a port.\n# TYPE nim_port_info gauge\n"
              "nim_port_info{public_name=\"a\\\"b\\\\c\\nd\"} 1\n"
              "# HELP nim_port_speed_bytes Speed.\n# TYPE nim_port_speed_bytes gauge\n"
              "nim_port_speed_bytes 125000000\nnim_port_speed_bytes 0.25\n");
}

// News once, repeats counted and told at the end; debug lines every time;
// lines above the print level only kept.
TEST(WatchParse, LogDigestPrintsNewsOnceAndTellsHowOftenItCame)
{
    std::FILE* out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    LogDigest digest(7, out);
    digest.Silence("said by nimhost");
    for (const char* text : {"again", "again", "once", "said by nimhost", "twice", "again", "twice"}) {
        digest.Write(3, "A", text);
    }
    digest.Write(7, "B", "debug");
    digest.Write(7, "B", "debug");
    digest.Write(8, "B", "trace");
    digest.Finish();
    std::string text(4096, '\0');
    std::rewind(out);
    text.resize(std::fread(text.data(), 1, text.size(), out));
    std::fclose(out);
    EXPECT_EQ(text,
              "[3] A: again\n[3] A: once\n[3] A: twice\n[7] B: debug\n[7] B: debug\n"
              "[3] A: again (3 times)\n[3] A: twice (2 times)\n");
    EXPECT_EQ(digest.TextsSince(4, 3), (std::vector<std::string>{"twice", "again", "twice"}));
}

} // namespace
} // namespace Zel::Tools::Nimhost
