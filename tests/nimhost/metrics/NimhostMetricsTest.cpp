// nimhost's metrics file in the network sandbox, read by promtool; and on
// their own, the label escaping of the metrics text and the atomic replace
// of the metrics file.
#include "NimhostBoard.hpp"
#include "metrics/AtomicFile.hpp"
#include "metrics/PrometheusText.hpp"

#include <atomic>
#include <regex>
#include <system_error>
#include <thread>
#include <utility>

namespace Zel::Test {
namespace {

class NimhostMetrics : public NimhostSandbox {};

TEST_F(NimhostMetrics, MetricsPassPromtoolAndLeaveUnknownValuesOut)
{
    // Device 3 reads made-up attribute files: 100 Mbit/s half duplex, and a
    // port name that needs escaping.
    const std::string port = directory.Path("port3") + "/";
    Zel::Test::Run("mkdir -p " + port + " && printf 'up\\n' >" + port + "operstate && printf '100\\n' >" + port +
                   "speed && printf 'half\\n' >" + port + "duplex");
    settings =
        directory.Write("three.toml", BoardSettings(R"(["3", "X3", "lo", "1", "sysFile", "P\"3", "Internal"])", port));

    // lo's block has an address line without the address: a query that fails.
    WriteFile(interfacesFile, interfacesText + "\niface lo inet static\n    address\n");

    const auto result = Nimhost({"metrics", "--output", directory.Path("nim.prom")});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Zel::Test::Run("test \"$(stat -c %a " + directory.Path("nim.prom") + ")\" = 644"), 0);
    EXPECT_EQ(Zel::Test::Run("promtool check metrics <" + directory.Path("nim.prom")), 0);
    std::string text = ReadFile(directory.Path("nim.prom"));
    EXPECT_EQ(Nimhost({"metrics"}).out.substr(0, 200), text.substr(0, 200));
    text = std::regex_replace(text, std::regex(R"(^nim_collection_duration_seconds \d.*$)", std::regex::multiline),
                              "nim_collection_duration_seconds T");
    // eth0's block has no dns line, eth1's (dhcp) none of the values: not set,
    // no failed queries.
    EXPECT_EQ(text, ReadFile(ZEL_TEST_CASES "/metrics/golden/metrics.prom"));
    // The other speed codes in bytes per second too.
    for (const auto& [mbits, bytes] : {std::pair{"10\n", " 1250000\n"}, std::pair{"1000\n", " 125000000\n"}}) {
        WriteFile(port + "speed", mbits);
        EXPECT_NE(Nimhost({"metrics"})
                      .out.find(R"(nim_port_speed_bytes{device="3",interface="lo",port="1"})" + std::string(bytes)),
                  std::string::npos)
            << mbits;
    }
}

// ---- the metrics text and file on their own ----

using Zel::Tools::Nimhost::PrometheusText;
using Zel::Tools::Nimhost::WriteFileAtomically;

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
    ScratchDirectory directory;
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
    ScratchDirectory directory;
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
        const std::string text = ReadFile(target);
        if (text != texts[0] && text != texts[1]) {
            ADD_FAILURE() << "read " << reads << " found " << text.size() << " bytes";
            break;
        }
    }
    writer.join();
}

} // namespace
} // namespace Zel::Test
