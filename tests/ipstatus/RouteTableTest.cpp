// IpStatusSocketAccess without kernel set-up: the route-table reading on
// table files written here in the kernel's layout, the address formatting,
// and the device checks that come before any socket or file.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"

#include "MemoryLogSink.hpp"
#include "ScratchDirectory.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>

#include <sys/resource.h>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::System::Commons::BasicString;

const std::string gatewayTrace = "IpStatusSocketAccess::GetCurrentDefaultGateway(): ";
const std::string missingTable = "/tmp/ipstatus-no-such-dir/route";

// One line as the kernel writes it: the fields padded with blanks to 127
// characters, then the newline.
std::string Line(const std::string& fields)
{
    return fmt::format("{:<127}\n", fields);
}

std::string Route(const std::string& interfaceName, const std::string& destination, const std::string& gateway,
                  int metric = 0, const std::string& mask = "00000000", const std::string& flags = "0003")
{
    return Line(
        fmt::format("{}\t{}\t{}\t{}\t0\t0\t{}\t{}\t0\t0\t0", interfaceName, destination, gateway, flags, metric, mask));
}

const std::string heading = Line("Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT");
const std::string longName = "ipstatus-abcdef-longer"; // the ioctls would see "ipstatus-abcdef"
const std::string table = heading + Route("eth0", "00000000", "0100000A", 100) + Route("eth1", "00000000", "0900000A") +
    Route("eth0", "00000000", "0200000A", 200) + Route("eth1", "0000000A", "00000000", 0, "000000FF") +
    Route("eth2", "0002A8C0", "0102A8C0", 0, "00FFFFFF") + Route(longName, "00000000", "0100A8C0") +
    Route("ipstatus-abcdef", "00000000", "0200A8C0") + Route("eth3", "00000000", "00000000");

// Status and result of the gateway query for interfaceName (device 1 of 1)
// on a table file holding contents.
std::pair<int, std::string> GatewayFrom(const std::string& contents, const std::string& interfaceName)
{
    const Zel::Test::ScratchDirectory scratch("ipstatus-route");
    BasicString result("unchanged");
    const int status = IpStatusSocketAccess(BasicString(scratch.Write("route", contents)))
                           .GetCurrentDefaultGateway(1, 1, interfaceName, result);
    return {status, result};
}

struct GatewayCase {
    const char* what;
    std::string contents;
    std::string interfaceName;
    std::string gateway; // "" when no default route is found
};

class RouteTable : public ::testing::TestWithParam<GatewayCase> {};

TEST_P(RouteTable, GivesTheGatewayOfTheLastDefaultRouteOfTheInterface)
{
    const GatewayCase& c = GetParam();
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(GatewayFrom(c.contents, c.interfaceName), std::make_pair(0, c.gateway.empty() ? "0.0.0.0" : c.gateway));
    EXPECT_TRUE(capture.Contains(8, gatewayTrace + "device 1 interfaceName " + c.interfaceName));
    const std::string outcome = c.gateway.empty() ? "not found in 'route': 0.0.0.0" : "found in 'route': " + c.gateway;
    EXPECT_TRUE(capture.Contains(8, gatewayTrace + "Default Gateway " + outcome));
}

const GatewayCase gatewayCases[] = {
    // The metric is not looked at: the later line wins even with the higher one.
    {"later_line_wins", table, "eth0", "10.0.0.2"},
    {"other_lines_of_the_interface_ignored", table, "eth1", "10.0.0.9"},
    // Nor are flags, mask or a falling metric: only name and destination count.
    {"flags_mask_and_metric_ignored",
     Route("eth0", "00000000", "0100000A", 5, "FFFFFFFF", "0001") +
         Route("eth0", "00000000", "0200000A", 1, "0000FFFF", "0000"),
     "eth0", "10.0.0.2"},
    {"gateway_bytes_lowest_first", Route("eth0", "00000000", "FF02A8C0"), "eth0", "192.168.2.255"},
    {"zero_gateway_counts_as_found", table, "eth3", "0.0.0.0"},
    {"name_compared_whole", table, longName, "192.168.0.1"},
    {"fifteen_characters_name_another_entry", table, "ipstatus-abcdef", "192.168.0.2"},
    {"no_default_route_of_interface", table, "eth2", ""},
    {"interface_absent", table, "eth7", ""},
    {"name_prefix", table, "eth", ""},
    {"longer_name", table, "eth00", ""},
    {"empty_name", table, "", ""},
    {"heading_only", heading, "eth0", ""},
    {"empty_file", "", "eth0", ""},
    {"two_fields_only", "eth0\t00000000\n", "eth0", ""},
    {"destination_not_eight_zeros", Route("eth0", "0", "0102A8C0"), "eth0", ""},
    // A line longer than the 100-character read buffer arrives in pieces,
    // each matched on its own: the second piece reads as a default route.
    {"each_piece_is_a_line", std::string(99, 'x') + "eth0\t00000000\t0102A8C0\n", "eth0", "192.168.2.1"},
};

INSTANTIATE_TEST_SUITE_P(Cases, RouteTable, ::testing::ValuesIn(gatewayCases),
                         [](const auto& info) { return std::string(info.param.what); });

TEST(RouteTableTrace, EveryMatchingLineIsTracedWithItsHexValueAndAnUnreadableTableLeavesTheResult)
{
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(GatewayFrom(table, "eth0").second, "10.0.0.2");
    EXPECT_TRUE(capture.Contains(8, gatewayTrace + "Default Gateway is 0100000A, 0x100000A"));
    EXPECT_TRUE(capture.Contains(8, gatewayTrace + "Default Gateway is 0200000A, 0x200000A"));
    BasicString result("unchanged");
    EXPECT_EQ(IpStatusSocketAccess(BasicString(missingTable)).GetCurrentDefaultGateway(1, 1, "eth0", result), 1);
    EXPECT_EQ(result, "unchanged");
    EXPECT_TRUE(capture.Contains(3, gatewayTrace + "Error open file " + missingTable));
}

// Every query checks the device number against the count first: 0 and
// numbers above the count fail with status 1 before any socket or file is
// opened, after the query's own trace line, and the result stays as it was.
TEST(IpStatusDeviceCheck, NumbersOutsideOneToCountAreRejected)
{
    // An accepted number shows up as the open failure of the missing table.
    const IpStatusSocketAccess access{BasicString(missingTable)};
    const struct {
        std::uint32_t device;
        std::uint32_t count;
        bool rejected;
    } cases[] = {{0, 2, true},           {3, 2, true},  {1, 0, true},  {0, 0, true},
                 {0xFFFFFFFFu, 2, true}, {1, 2, false}, {2, 2, false}, {0xFFFFFFFFu, 0xFFFFFFFFu, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(fmt::format("device {} of {}", c.device, c.count));
        Zel::Test::LogCapture capture(8);
        BasicString result("unchanged");
        EXPECT_EQ(access.GetCurrentDefaultGateway(c.device, c.count, "eth0", result), 1);
        EXPECT_EQ(capture.Contains(3, gatewayTrace + fmt::format("Invalid device number {}", c.device)), c.rejected);
        if (c.rejected) {
            const std::string number = fmt::format(" {}", c.device);
            EXPECT_EQ(access.GetCurrentIpAdress(c.device, c.count, "lo", result), 1);
            EXPECT_EQ(access.GetCurrentSubnetMask(c.device, c.count, "lo", result), 1);
            EXPECT_EQ(access.GetSettingFromSocket(c.device, c.count, "lo", 0x8915, result), 1);
            EXPECT_EQ(capture.Count(3, "IpStatusSocketAccess::GetSettingFromSocket(): Invalid device number" + number),
                      3u);
            EXPECT_TRUE(capture.Contains(8, "IpStatusSocketAccess::GetCurrentIpAdress():" + number));
            EXPECT_TRUE(capture.Contains(8, "IpStatusSocketAccess::GetCurrentSubnetMask():" + number));
        }
        EXPECT_EQ(result, "unchanged");
    }
}

// Every path closes what it opened: the table file and the query socket,
// also when the ioctl fails.
TEST(IpStatusDescriptors, NoQueryLeavesADescriptorOpen)
{
    const auto openCount = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const IpStatusSocketAccess access;
    BasicString result;
    const auto before = openCount();
    EXPECT_EQ(GatewayFrom(table, "eth0").first, 0);
    EXPECT_EQ(access.GetCurrentDefaultGateway(1, 1, "lo", result), 0);
    EXPECT_EQ(access.GetCurrentIpAdress(1, 1, "lo", result), 0);
    EXPECT_EQ(access.GetCurrentSubnetMask(1, 1, "zel-absent0", result), 1);
    EXPECT_EQ(openCount(), before);
}

// Without a free descriptor the socket cannot be opened.
TEST(IpStatusDescriptors, ASocketThatCannotBeOpenedIsAFailure)
{
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    none.rlim_cur = 0;
    Zel::Test::LogCapture capture(8);
    BasicString result("unchanged");
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const int status = IpStatusSocketAccess().GetCurrentIpAdress(1, 1, "lo", result);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(result, "unchanged");
    EXPECT_TRUE(capture.Contains(3,
                                 "IpStatusSocketAccess::GetSettingFromSocket(): error during socket() for "
                                 "interfaceName lo"));
}

} // namespace
