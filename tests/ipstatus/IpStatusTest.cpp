// IP status without kernel set-up: the route-table reading on the tables of
// cases/routes.cases, descriptors, and the set-up of both IP modules. The kernel
// reads, the device checks and the module's queries are in
// IpStatusKernelTest.cpp.
#include "Modules/Commons/Linux/IpStatusSocketAccess.hpp"
#include "Modules/Nim/Linux/IpConfigModule.hpp"
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "CaseFile.hpp"
#include "Checks.hpp"
#include "MemoryLogSink.hpp"
#include "ScratchDirectory.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using Zel::Hardware::Modules::Commons::Linux::IpStatusSocketAccess;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using namespace Zel::System::Commons;

TEST(RouteTable, GivesTheGatewayOfTheLastDefaultRouteOfTheInterface)
{
    for (const auto& c : Zel::Test::Cases("routes.cases")) {
        SCOPED_TRACE(c.name);
        std::string table;
        for (const auto& line : c.Lines("route")) {
            table += fmt::format("{:<127}\n", line);
        }
        const Zel::Test::ScratchDirectory scratch("ipstatus-route");
        const bool missing = c.Has("missing table");
        const IpStatusSocketAccess access{BasicString(
            missing ? c.Line("missing table") : scratch.Write("route", c.Has("route") ? table : c["unpadded route"]))};
        Zel::Test::LogCapture capture(8);
        for (const auto& query : c.Lines("queries")) {
            const std::size_t blank = query.rfind(' ');
            BasicString result("unchanged");
            EXPECT_EQ(access.GetCurrentDefaultGateway(1, 1, query.substr(0, blank), result), missing ? 1 : 0);
            EXPECT_EQ(result, query.substr(blank + 1));
        }
        EXPECT_EQ(capture.Text(), c["trace"]);
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

    Zel::Test::LogCapture capture(8);
    result = "unchanged";
    int status = 0;
    Zel::Test::WithoutFreeDescriptors([&] { status = access.GetCurrentIpAdress(1, 1, "lo", result); });
    EXPECT_EQ(status, 1);
    EXPECT_EQ(result, "unchanged");
    EXPECT_TRUE(capture.Contains(3,
                                 "IpStatusSocketAccess::GetSettingFromSocket(): error during socket() for "
                                 "interfaceName lo"));
}

// Both IP modules refuse a provider without an Ethernet module, also one
// holding another type under its name, and log each call at level 7.
template <typename Module>
void ExpectSetUpNeedsAnEthernetInfoModule(const std::string& name)
{
    Zel::Test::LogCapture capture(8);
    Module module, impostor;
    HardwareModuleProvider provider;
    for (const bool withImpostor : {false, true}) {
        if (withImpostor) {
            provider.AddHardwareModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule", impostor);
        }
        Zel::Test::ExpectThrow<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), provider); },
                                                          name + "::SetupSettings(): ethInfoModule is NULL!");
    }
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_EQ(capture.Text(),
              fmt::format("7 {0}::SetupSettings()\n7 {0}::SetupSettings()\n7 {0}::Dispose()\n"
                          "7 {0}::IsEnabled()\n",
                          name));
}

TEST(IpModulesSetup, NeedAnEthernetInfoModule)
{
    ExpectSetUpNeedsAnEthernetInfoModule<IpStatusModule>("IpStatusModule");
    ExpectSetUpNeedsAnEthernetInfoModule<Zel::Hardware::Modules::Nim::Linux::IpConfigModule>("IpConfigModule");
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
