// IpStatusModule's own paths: set-up, and how a failed query becomes an
// exception. The Ethernet information module is a stand-in whose device count
// and device table disagree; device numbers outside the real module's table
// and the kernel reads themselves are in IpStatusKernelTest.cpp.
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "../ipconfig/TestFiles.hpp"
#include "MemoryLogSink.hpp"
#include "StandInEthernetInfo.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <fmt/format.h>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::StandInEthernetInfo;
using Zel::Test::IpConfig::MessageOf;

TEST(IpStatusModuleSetup, NeedsAnEthernetInfoModule)
{
    Zel::Test::LogCapture capture(8);
    IpStatusModule module;
    HardwareModuleProvider provider;
    EXPECT_EQ(MessageOf<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), provider); }),
              "IpStatusModule::SetupSettings(): ethInfoModule is NULL!");
    EXPECT_TRUE(capture.Contains(7, "IpStatusModule::SetupSettings()"));
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_EQ(capture.Count(7, "IpStatusModule::Dispose()"), 1u);
    EXPECT_EQ(capture.Count(7, "IpStatusModule::IsEnabled()"), 1u);
}

// Device 2 is in the stand-in's table ("lo") but above the count of 1 taken
// at set-up, so the kernel access refuses it with status 1.
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
        EXPECT_EQ(MessageOf<InvalidOperationException>([&] { (module.*c.query)(2); }),
                  fmt::format("IpStatusModule::{}(): {}() returned 1", c.name, c.failure));
        EXPECT_TRUE(
            capture.Contains(3, fmt::format("IpStatusSocketAccess::{}(): Invalid device number 2", c.deviceMessage)));
        // The trace line before the query, none with a result after it.
        EXPECT_EQ(capture.Count(8, fmt::format("IpStatusModule::{}(): 2", c.name)), 1u);
    }
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
