// IP status without kernel set-up: the route-table reading on the tables of
// cases/routes.cases, the device checks that come before any socket or file,
// and IpStatusModule's own paths against a stand-in Ethernet module whose
// device count and device table disagree. The kernel reads themselves are in
// IpStatusKernelTest.cpp.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "CaseFile.hpp"
#include "Checks.hpp"
#include "MemoryLogSink.hpp"
#include "ScratchDirectory.hpp"
#include "StandInEthernetInfo.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>

#include <sys/resource.h>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using namespace Zel::System::Commons;
using Zel::Test::StandInEthernetInfo;

const std::string gatewayTrace = "IpStatusSocketAccess::GetCurrentDefaultGateway(): ";
const std::string missingTable = "/tmp/ipstatus-no-such-dir/route";

TEST(RouteTable, GivesTheGatewayOfTheLastDefaultRouteOfTheInterface)
{
    for (const auto& c : Zel::Test::Cases("routes.cases")) {
        SCOPED_TRACE(c.name);
        std::string table;
        for (const auto& line : c.Lines("route")) {
            table += fmt::format("{:<127}\n", line);
        }
        const Zel::Test::ScratchDirectory scratch("ipstatus-route");
        const IpStatusSocketAccess access{
            BasicString(scratch.Write("route", c.Has("route") ? table : c["unpadded route"]))};
        Zel::Test::LogCapture capture(8);
        for (const auto& query : c.Lines("queries")) {
            const std::size_t blank = query.rfind(' ');
            BasicString result("unchanged");
            EXPECT_EQ(access.GetCurrentDefaultGateway(1, 1, query.substr(0, blank), result), 0);
            EXPECT_EQ(result, query.substr(blank + 1));
        }
        EXPECT_EQ(capture.Text(), c["trace"]);
    }
}

TEST(RouteTable, AnUnreadableTableIsAFailureThatLeavesTheResult)
{
    Zel::Test::LogCapture capture(8);
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
// also when the ioctl fails. Without a free descriptor the socket cannot be
// opened at all.
TEST(IpStatusDescriptors, NoQueryLeavesADescriptorOpenAndNoFreeOneIsAFailure)
{
    const IpStatusSocketAccess access;
    BasicString result("unchanged");
    const Zel::Test::ScratchDirectory scratch("ipstatus-route");
    const IpStatusSocketAccess fromFile{BasicString(scratch.Write("route", "eth0\t00000000\t0100000A\n"))};
    const auto before = Zel::Test::OpenDescriptorCount();
    EXPECT_EQ(fromFile.GetCurrentDefaultGateway(1, 1, "eth0", result), 0);
    EXPECT_EQ(access.GetCurrentDefaultGateway(1, 1, "lo", result), 0);
    EXPECT_EQ(access.GetCurrentIpAdress(1, 1, "lo", result), 0);
    EXPECT_EQ(access.GetCurrentSubnetMask(1, 1, "zel-absent0", result), 1);
    EXPECT_EQ(Zel::Test::OpenDescriptorCount(), before);

    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit none = limit;
    none.rlim_cur = 0;
    Zel::Test::LogCapture capture(8);
    result = "unchanged";
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const int status = access.GetCurrentIpAdress(1, 1, "lo", result);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(result, "unchanged");
    EXPECT_TRUE(capture.Contains(3,
                                 "IpStatusSocketAccess::GetSettingFromSocket(): error during socket() for "
                                 "interfaceName lo"));
}

TEST(IpStatusModuleSetup, NeedsAnEthernetInfoModule)
{
    Zel::Test::LogCapture capture(8);
    IpStatusModule module;
    HardwareModuleProvider provider;
    Zel::Test::ExpectThrow<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), provider); },
                                                      "IpStatusModule::SetupSettings(): ethInfoModule is NULL!");
    EXPECT_TRUE(capture.Contains(7, "IpStatusModule::SetupSettings()"));
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_EQ(capture.Count(7, "IpStatusModule::Dispose()"), 1u);
    EXPECT_EQ(capture.Count(7, "IpStatusModule::IsEnabled()"), 1u);
}

// Device 2 is in the stand-in's table ("lo") but above the count of 1 taken
// at set-up, so the kernel access refuses it with status 1. Numbers outside
// the table fail in the Ethernet module: the name is asked for before any
// device check, so its std::out_of_range passes through.
TEST(IpStatusModuleQueries, StatusOneBecomesInvalidOperationNamingTheQuery)
{
    StandInEthernetInfo ethernet({"lo", "lo"}, StandInEthernetInfo::BadNumber::Throws);
    ethernet.deviceCount = 1;
    HardwareModuleProvider provider;
    provider.AddHardwareModule(ethernet);
    IpStatusModule module;
    module.SetupSettings(ModuleSettings(), provider);
    ethernet.deviceCount = 2;

    const struct {
        BasicString (IpStatusModule::*query)(unsigned int) const;
        const char* name;
        const char* failure;
        const char* deviceMessage;
    } cases[] = {
        {&IpStatusModule::GetIpAddress, "GetIpAddress", "GetCurrentIpAdress", "GetSettingFromSocket"},
        {&IpStatusModule::GetSubnetMask, "GetSubnetMask", "GetCurrentSubnetMask", "GetSettingFromSocket"},
        {&IpStatusModule::GetDefaultGateway, "GetDefaultGateway", "GetCurrentDefaultGateway",
         "GetCurrentDefaultGateway"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Zel::Test::LogCapture capture(8);
        Zel::Test::ExpectThrow<InvalidOperationException>([&] { (module.*c.query)(2); },
                                                          fmt::format("IpStatusModule::{}(): {}() returned 1", c.name,
                                                                      c.failure));
        EXPECT_TRUE(
            capture.Contains(3, fmt::format("IpStatusSocketAccess::{}(): Invalid device number 2", c.deviceMessage)));
        // The trace line before the query, none with a result after it.
        EXPECT_EQ(capture.Count(8, fmt::format("IpStatusModule::{}(): 2", c.name)), 1u);
        EXPECT_THROW((module.*c.query)(0), std::out_of_range);
        EXPECT_THROW((module.*c.query)(3), std::out_of_range);
    }
    EXPECT_THROW(module.GetDeviceIpAddress(3), std::out_of_range);
}

// GetDeviceIpAddress goes through the virtual slot of GetIpAddress.
TEST(IpStatusDeviceIpAddress, FollowsAnOverrideOfGetIpAddress)
{
    struct Relabelled : IpStatusModule {
        BasicString GetIpAddress(unsigned int device) const override { return "198.51.100." + std::to_string(device); }
    };
    EXPECT_EQ(Relabelled().GetDeviceIpAddress(7), "198.51.100.7");
}

} // namespace
