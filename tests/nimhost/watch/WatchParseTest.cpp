// The rtnetlink link-message parser on the datagrams of
// watch/cases/link-messages.cases, and the log digest that prints the
// library's messages while the watch runs.
#include "plugin/LogDigest.hpp"
#include "watch/LinkEvents.hpp"

#include "CaseFile.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {
namespace {

// The datagrams are written in hex; each parsed event is one line "kind
// index name flags", and "lost" follows when the batch is not to be trusted.
TEST(WatchParse, LinkMessagesGiveTheirKindIndexNameAndFlagsAndAFaultMarksTheBatchLost)
{
    for (const auto& c : Zel::Test::Cases("watch/cases/link-messages.cases")) {
        SCOPED_TRACE(c.name);
        std::vector<std::uint8_t> datagram;
        std::istringstream hex(c["datagram"]);
        for (std::string word; hex >> word;) {
            for (std::size_t at = 0; at + 1 < word.size(); at += 2) {
                datagram.push_back(static_cast<std::uint8_t>(std::stoul(word.substr(at, 2), nullptr, 16)));
            }
        }
        const LinkMessages parsed = ParseLinkMessages(datagram.data(), datagram.size());
        std::string events;
        for (const auto& event : parsed.events) {
            events += fmt::format("{} {} {} {:#x}\n", event.kind == LinkEvent::Kind::NewLink ? "new" : "del",
                                  event.index, event.name, event.flags);
        }
        EXPECT_EQ(events + (parsed.lost ? "lost\n" : ""), c["parsed"]);
    }
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
