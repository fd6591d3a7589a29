// IpStatusSocketAccess without kernel set-up: the route-table reading on
// table files written here in the kernel's layout, the address formatting,
// and the device checks that come before any socket or file.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"

#include "MemoryLogSink.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::System::Commons::BasicString;

constexpr const char* heading = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT";

// One line as the kernel writes it: the fields, padded with blanks to 127
// characters, then the newline.
std::string KernelLine(const std::string& fields)
{
    return fmt::format("{:<127}\n", fields);
}

std::string Route(const std::string& interfaceName, const std::string& destination, const std::string& gateway,
                  int metric = 0, const std::string& mask = "00000000")
{
    return KernelLine(fmt::format("{}\t{}\t{}\t0003\t0\t0\t{}\t{}\t0\t0\t0", interfaceName, destination, gateway,
                                  metric, mask));
}

std::string GatewayTraceMessage(const std::string& field, const std::string& hex)
{
    return "IpStatusSocketAccess::GetCurrentDefaultGateway(): Default Gateway is " + field + ", " + hex;
}

std::string GatewayFoundMessage(const std::string& gateway)
{
    return "IpStatusSocketAccess::GetCurrentDefaultGateway(): Default Gateway found in 'route': " + gateway;
}

// A route table in a temporary file, removed at the end of the test.
class RouteTableReading : public ::testing::Test {
protected:
    void TearDown() override
    {
        if (!path.empty()) {
            ::unlink(path.c_str());
        }
    }

    IpStatusSocketAccess WithTable(const std::string& contents)
    {
        char pattern[] = "/tmp/ipstatus-route-XXXXXX";
        const int fd = ::mkstemp(pattern);
        EXPECT_NE(fd, -1);
        ::close(fd);
        path = pattern;
        std::ofstream(path, std::ios::binary) << contents;
        return IpStatusSocketAccess(BasicString(path));
    }

    // The gateway of interfaceName as device 1 of 1; expects status 0.
    std::string Gateway(const IpStatusSocketAccess& access, const std::string& interfaceName)
    {
        BasicString result("unchanged");
        EXPECT_EQ(access.GetCurrentDefaultGateway(1, 1, BasicString(interfaceName), result), 0);
        return result;
    }

    std::string path;
};

TEST_F(RouteTableReading, GatewayBytesAreReadLowestFirstAndTraced)
{
    Zel::Test::LogCapture capture(8);
    const auto access = WithTable(KernelLine(heading) + Route("eth0", "00000000", "0102A8C0") +
                                  Route("eth0", "0002A8C0", "00000000", 0, "00FFFFFF"));

    EXPECT_EQ(Gateway(access, "eth0"), "192.168.2.1");
    EXPECT_TRUE(capture.Contains(8, "IpStatusSocketAccess::GetCurrentDefaultGateway(): device 1 interfaceName eth0"));
    EXPECT_TRUE(capture.Contains(8, GatewayTraceMessage("0102A8C0", "0x102A8C0")));
    EXPECT_TRUE(capture.Contains(8, GatewayFoundMessage("192.168.2.1")));
}

TEST_F(RouteTableReading, LastDefaultRouteOfTheInterfaceWins)
{
    Zel::Test::LogCapture capture(8);
    // Metric is not looked at: the later line wins even with the higher metric.
    const auto access =
        WithTable(KernelLine(heading) + Route("eth0", "00000000", "0100000A", 100) +
                  Route("eth1", "00000000", "0900000A", 0) + Route("eth0", "00000000", "0200000A", 200) +
                  Route("eth1", "0000000A", "00000000", 0, "000000FF"));

    EXPECT_EQ(Gateway(access, "eth0"), "10.0.0.2");
    // Every matching line is traced, not only the winner.
    EXPECT_TRUE(capture.Contains(8, GatewayTraceMessage("0100000A", "0x100000A")));
    EXPECT_TRUE(capture.Contains(8, GatewayTraceMessage("0200000A", "0x200000A")));
    EXPECT_EQ(Gateway(access, "eth1"), "10.0.0.9");
}

TEST_F(RouteTableReading, NoDefaultRouteOfTheInterfaceAnswersZeroAddressWithoutFailure)
{
    const std::string table = KernelLine(heading) + Route("eth1", "00000000", "0100000A") +
                              Route("eth0", "0002A8C0", "0102A8C0", 0, "00FFFFFF");
    const struct {
        const char* what;
        std::string contents;
        const char* interfaceName;
    } cases[] = {
        {"default route on another interface only", table, "eth0"},
        {"interface absent from the table", table, "eth7"},
        {"heading only", KernelLine(heading), "eth0"},
        {"empty file", "", "eth0"},
        {"two fields only", "eth0\t00000000\n", "eth0"},
        {"destination not exactly eight zeros", Route("eth0", "0", "0102A8C0"), "eth0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Zel::Test::LogCapture capture(8);
        const auto access = WithTable(c.contents);
        EXPECT_EQ(Gateway(access, c.interfaceName), "0.0.0.0");
        EXPECT_TRUE(capture.Contains(
            8, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Default Gateway not found in 'route': 0.0.0.0"));
        ::unlink(path.c_str());
    }
}

TEST_F(RouteTableReading, ZeroGatewayOnAMatchingLineCountsAsFound)
{
    Zel::Test::LogCapture capture(8);
    const auto access = WithTable(Route("eth0", "00000000", "00000000"));

    EXPECT_EQ(Gateway(access, "eth0"), "0.0.0.0");
    EXPECT_TRUE(capture.Contains(8, GatewayFoundMessage("0.0.0.0")));
}

TEST_F(RouteTableReading, InterfaceNameIsComparedWhole)
{
    const std::string longName = "ipstatus-abcdef-longer"; // 22 characters
    const auto access = WithTable(Route("eth0", "00000000", "0100000A") +
                                  Route(longName, "00000000", "0100A8C0") +
                                  Route("ipstatus-abcdef", "00000000", "0200A8C0"));

    EXPECT_EQ(Gateway(access, longName), "192.168.0.1");
    // The 15 characters the ioctls would see name another table entry.
    EXPECT_EQ(Gateway(access, "ipstatus-abcdef"), "192.168.0.2");
    EXPECT_EQ(Gateway(access, "eth"), "0.0.0.0");
    EXPECT_EQ(Gateway(access, "eth00"), "0.0.0.0");
    EXPECT_EQ(Gateway(access, ""), "0.0.0.0");
}

TEST_F(RouteTableReading, EveryPieceOfNinetyNineCharactersIsTakenAsALine)
{
    // A line longer than the read buffer arrives in pieces, and each piece is
    // matched on its own: here the second piece of an unpadded overlong line
    // reads as a default route of eth0.
    const std::string filler(99, 'x');
    const auto access = WithTable(filler + "eth0\t00000000\t0102A8C0\n");

    EXPECT_EQ(Gateway(access, "eth0"), "192.168.2.1");
}

TEST_F(RouteTableReading, UnreadableTableIsAFailureThatLeavesTheResult)
{
    Zel::Test::LogCapture capture(8);
    const std::string missing = "/tmp/ipstatus-no-such-dir/route";
    const IpStatusSocketAccess access{BasicString(missing)};
    BasicString result("unchanged");

    EXPECT_EQ(access.GetCurrentDefaultGateway(1, 1, BasicString("eth0"), result), 1);
    EXPECT_EQ(result, "unchanged");
    EXPECT_TRUE(capture.Contains(3, "IpStatusSocketAccess::GetCurrentDefaultGateway(): Error open file " + missing));
}

// Every query checks the device number against the count first: 0 and
// numbers above the count fail with status 1 before any socket or file is
// opened, and the result stays as it was.
TEST(IpStatusDeviceCheck, NumbersOutsideOneToCountAreRejected)
{
    // The route file does not exist, so an accepted number shows up as the
    // open failure rather than as the device message.
    const IpStatusSocketAccess access{BasicString("/tmp/ipstatus-no-such-dir/route")};
    const struct {
        std::uint32_t device;
        std::uint32_t count;
        bool rejected;
    } cases[] = {
        {0, 2, true}, {3, 2, true}, {1, 0, true}, {0, 0, true}, {0xFFFFFFFFu, 2, true},
        {1, 2, false}, {2, 2, false}, {0xFFFFFFFFu, 0xFFFFFFFFu, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(fmt::format("device {} of {}", c.device, c.count));
        Zel::Test::LogCapture capture(8);
        BasicString result("unchanged");

        EXPECT_EQ(access.GetCurrentDefaultGateway(c.device, c.count, BasicString("eth0"), result), 1);
        EXPECT_EQ(result, "unchanged");
        const std::string gatewayMessage =
            fmt::format("IpStatusSocketAccess::GetCurrentDefaultGateway(): Invalid device number {}", c.device);
        EXPECT_EQ(capture.Contains(3, gatewayMessage), c.rejected);

        if (c.rejected) {
            const std::string socketMessage =
                fmt::format("IpStatusSocketAccess::GetSettingFromSocket(): Invalid device number {}", c.device);
            EXPECT_EQ(access.GetCurrentIpAdress(c.device, c.count, BasicString("lo"), result), 1);
            EXPECT_EQ(access.GetCurrentSubnetMask(c.device, c.count, BasicString("lo"), result), 1);
            EXPECT_EQ(access.GetSettingFromSocket(c.device, c.count, BasicString("lo"), 0x8915, result), 1);
            EXPECT_EQ(result, "unchanged");
            EXPECT_EQ(capture.Count(3, socketMessage), 3u);
            // The query's own trace line comes before the check.
            EXPECT_TRUE(capture.Contains(
                8, fmt::format("IpStatusSocketAccess::GetCurrentIpAdress(): {}", c.device)));
            EXPECT_TRUE(capture.Contains(
                8, fmt::format("IpStatusSocketAccess::GetCurrentSubnetMask(): {}", c.device)));
        }
    }
}

TEST(IpStatusFormatIpParameter, LowestByteIsTheFirstOctet)
{
    const struct {
        std::uint32_t value;
        const char* text;
    } cases[] = {
        {0x0102A8C0u, "192.168.2.1"},
        {0xFFFFFFFFu, "255.255.255.255"},
        {0x80000000u, "0.0.0.128"},
        {0x0A0B0C0Du, "13.12.11.10"},
    };
    const IpStatusSocketAccess access;
    for (const auto& c : cases) {
        EXPECT_EQ(access.FormatIpParameter(c.value), c.text) << std::hex << c.value;
    }
}

} // namespace
