// The label escaping of the metrics text, and the atomic replace of the
// metrics file.
#include "metrics/AtomicFile.hpp"
#include "metrics/PrometheusText.hpp"

#include "CaseFile.hpp"
#include "ScratchDirectory.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

namespace Zel::Tools::Nimhost {
namespace {

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
