// nimhost's metrics file in the network sandbox, read by promtool.
#include "NimhostBoard.hpp"

#include <regex>
#include <string>
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

} // namespace
} // namespace Zel::Test
