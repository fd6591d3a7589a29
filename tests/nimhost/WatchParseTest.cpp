// The rtnetlink link-message parser on the datagrams of
// cases/link-messages.cases, the label escaping of the metrics text, the log
// digest, and the atomic replace of the metrics file.
#include "AtomicFile.hpp"
#include "LinkEvents.hpp"
#include "LogDigest.hpp"
#include "PrometheusText.hpp"

#include "CaseFile.hpp"
#include "ScratchDirectory.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace Zel::Tools::Nimhost {
namespace {

// The datagrams are written in hex; each parsed event is one line "kind
// index name flags", and "lost" follows when the batch is not to be trusted.
TEST(WatchParse, LinkMessagesGiveTheirKindIndexNameAndFlagsAndAFaultMarksTheBatchLost)
{
    for (const auto& c : Zel::Test::Cases("link-messages.cases")) {
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

// A rename that fails (the target is a directory) throws naming the path and
// leaves no temporary file behind, where the metrics collector would find it.
TEST(WatchParse, AFailedReplaceOfTheMetricsFileLeavesNoTemporaryFile)
{
    Zel::Test::ScratchDirectory directory;
    const std::string target = directory.Path("nim.prom");
    std::filesystem::create_directory(target);
    try {
        WriteFileAtomically(target, "nim_up 1\n");
        ADD_FAILURE() << "no exception";
    } catch (const std::system_error& e) {
        EXPECT_EQ(std::string(e.what()), "Could not replace '" + target + "': Is a directory");
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path("")), {}), 1);
}

// node_exporter reads the file whole whenever it is scraped: a reader doing
// so while the file is replaced over and over finds one whole text each time.
TEST(WatchParse, AReaderDuringRewritesOfTheMetricsFileFindsOnlyWholeTexts)
{
    Zel::Test::ScratchDirectory directory;
    const std::string target = directory.Path("nim.prom");
    const std::string texts[] = {"nim_up 1\n", std::string(100000, '#') + "\nnim_up 0\n"};
    WriteFileAtomically(target, texts[0]);
    std::atomic<bool> done = false;
    std::thread writer([&] {
        for (int i = 1; i <= 300; ++i) {
            WriteFileAtomically(target, texts[i % 2]);
        }
        done = true;
    });
    for (int reads = 0; !done; ++reads) {
        const std::string text = Zel::Test::ReadFile(target);
        if (text != texts[0] && text != texts[1]) {
            ADD_FAILURE() << "read " << reads << " found " << text.size() << " bytes";
            break;
        }
    }
    writer.join();
}

} // namespace
} // namespace Zel::Tools::Nimhost
