// IpStatusModule's own paths: set-up, the lifecycle calls, and how it
// passes on or turns failures into exceptions. The Ethernet information
// module it depends on is a stand-in here, so that its device count and its
// device table can disagree; the kernel reads themselves are in
// IpStatusKernelTest.cpp.
#include "Modules/Nim/Linux/IpStatusModule.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleBase;
using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::IpStatusModule;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::InvalidOperationException;

// Interface names by device number with a device count that may differ from
// the table's length; GetInterfaceName throws std::out_of_range outside the
// table, as the real module does.
class StandInEthernetInfo : public HardwareModuleBase<IEthernetInfoModule, StandInEthernetInfo> {
public:
    StandInEthernetInfo(std::vector<BasicString> names, unsigned int count) : names(std::move(names)), count(count) {}

    void SetupSettings(const ModuleSettings&, const HardwareModuleProvider&) override {}
    void Dispose() override {}
    bool IsEnabled() const override { return true; }

    unsigned int GetDeviceCount() const override { return count; }
    BasicString GetInterfaceName(unsigned int device) const override
    {
        if (device == 0) {
            throw std::out_of_range("device 0");
        }
        return names.at(device - 1);
    }

    unsigned int GetPortCount(unsigned int) const override { return 0; }
    BasicString GetMacAddress(unsigned int) const override { return {}; }
    LinkState GetPortLinkState(unsigned int, unsigned int) const override { return LinkState::Unknown; }
    LinkSpeed GetPortLinkSpeed(unsigned int, unsigned int) const override { return LinkSpeed::Unknown; }
    LinkDuplex GetPortLinkDuplex(unsigned int, unsigned int) const override { return LinkDuplex::Unknown; }
    BasicString GetPublicInterfaceName(unsigned int) const override { return {}; }
    BasicString GetPortPublicName(unsigned int, unsigned int) const override { return {}; }
    NetworkInterfaceType GetInterfaceType(unsigned int) const override { return NetworkInterfaceType::Unknown; }
    std::vector<BasicString> GetListOfInterfaceNames() const override { return names; }

    std::vector<BasicString> names;
    unsigned int count;
};

class IpStatusModuleSetup : public ::testing::Test {
protected:
    ModuleSettings settings;
    HardwareModuleProvider provider;
};

TEST_F(IpStatusModuleSetup, WithoutEthernetModuleFails)
{
    Zel::Test::LogCapture capture(8);
    IpStatusModule module;

    try {
        module.SetupSettings(settings, provider);
        FAIL() << "no exception";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "IpStatusModule::SetupSettings(): ethInfoModule is NULL!");
    }
    EXPECT_TRUE(capture.Contains(7, "IpStatusModule::SetupSettings()"));
}

TEST_F(IpStatusModuleSetup, IsEnabledAndDisposeOnlyLog)
{
    Zel::Test::LogCapture capture(8);
    StandInEthernetInfo ethernet({"lo"}, 1);
    provider.AddHardwareModule(ethernet);
    IpStatusModule module;

    EXPECT_TRUE(module.IsEnabled());
    module.SetupSettings(settings, provider);
    EXPECT_TRUE(module.IsEnabled());
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_EQ(capture.Count(7, "IpStatusModule::IsEnabled()"), 3u);
    EXPECT_EQ(capture.Count(7, "IpStatusModule::Dispose()"), 1u);
    EXPECT_EQ(module.GetModuleName(), "Zel.Hardware.Nim.Modules.IIpStatusModule");
    // Dispose keeps the module usable.
    EXPECT_NO_THROW(module.GetIpAddress(1));
}

// A module set up with a stand-in Ethernet module whose count says one
// device while its table names three, all the loopback interface.
class IpStatusModuleQueries : public ::testing::Test {
protected:
    void SetUp() override
    {
        provider.AddHardwareModule(ethernet);
        module.SetupSettings(settings, provider);
    }

    ModuleSettings settings;
    HardwareModuleProvider provider;
    StandInEthernetInfo ethernet{{"lo", "lo", "nosuchif0"}, 1};
    IpStatusModule module;
};

struct QueryCase {
    const char* name;
    BasicString (IpStatusModule::*query)(unsigned int) const;
    const char* trace;
    const char* failure;
    const char* deviceMessage;
};

const QueryCase queryCases[] = {
    {"GetIpAddress", &IpStatusModule::GetIpAddress, "IpStatusModule::GetIpAddress(): ",
     "IpStatusModule::GetIpAddress(): GetCurrentIpAdress() returned 1",
     "IpStatusSocketAccess::GetSettingFromSocket(): Invalid device number 2"},
    {"GetSubnetMask", &IpStatusModule::GetSubnetMask, "IpStatusModule::GetSubnetMask(): ",
     "IpStatusModule::GetSubnetMask(): GetCurrentSubnetMask() returned 1",
     "IpStatusSocketAccess::GetSettingFromSocket(): Invalid device number 2"},
    {"GetDefaultGateway", &IpStatusModule::GetDefaultGateway, "IpStatusModule::GetDefaultGateway(): ",
     "IpStatusModule::GetDefaultGateway(): GetCurrentDefaultGateway() returned 1",
     "IpStatusSocketAccess::GetCurrentDefaultGateway(): Invalid device number 2"},
};

TEST_F(IpStatusModuleQueries, UnknownDeviceNumbersPassTheEthernetModulesOutOfRangeOn)
{
    for (const auto& c : queryCases) {
        SCOPED_TRACE(c.name);
        for (unsigned int device : {0u, 4u}) {
            Zel::Test::LogCapture capture(8);
            EXPECT_THROW((module.*c.query)(device), std::out_of_range);
            // Only the first trace line: nothing reached the kernel reads.
            ASSERT_EQ(capture.Records().size(), 1u);
            EXPECT_EQ(capture.Records()[0].text, c.trace + std::to_string(device));
        }
    }
    EXPECT_THROW(module.GetDeviceIpAddress(0), std::out_of_range);
}

TEST_F(IpStatusModuleQueries, DeviceCountAndTableDisagreeingBecomesInvalidOperation)
{
    for (const auto& c : queryCases) {
        SCOPED_TRACE(c.name);
        Zel::Test::LogCapture capture(8);
        try {
            (module.*c.query)(2);
            FAIL() << "no exception";
        } catch (const InvalidOperationException& e) {
            EXPECT_EQ(e.GetMessage(), c.failure);
        }
        EXPECT_TRUE(capture.Contains(3, c.deviceMessage));
        // No trace line with a result after a failure.
        EXPECT_EQ(capture.Count(8, c.trace + std::string("2")), 1u);
    }
}

TEST_F(IpStatusModuleQueries, DeviceCountIsTakenOnceAtSetup)
{
    ethernet.count = 3;
    EXPECT_THROW(module.GetIpAddress(2), InvalidOperationException);
}

TEST_F(IpStatusModuleQueries, KernelReadFailureBecomesInvalidOperation)
{
    ethernet.count = 3;
    IpStatusModule threeDevices;
    threeDevices.SetupSettings(settings, provider);
    Zel::Test::LogCapture capture(8);

    try {
        threeDevices.GetIpAddress(3);
        FAIL() << "no exception";
    } catch (const InvalidOperationException& e) {
        EXPECT_EQ(e.GetMessage(), "IpStatusModule::GetIpAddress(): GetCurrentIpAdress() returned 1");
    }
    EXPECT_TRUE(capture.Contains(3, "IpStatusSocketAccess::GetSettingFromSocket(): error " + std::to_string(ENODEV) +
                                        " during ioctl() for interfaceName nosuchif0"));
    // A missing default route is no failure, even for an unknown interface.
    EXPECT_EQ(threeDevices.GetDefaultGateway(3), "0.0.0.0");
}

TEST_F(IpStatusModuleQueries, ResultIsTracedAfterTheQuery)
{
    Zel::Test::LogCapture capture(8);
    // Whatever loopback holds in this namespace (127.0.0.1 once it is up).
    const BasicString address = module.GetIpAddress(1);

    EXPECT_EQ(capture.Records().front().text, "IpStatusModule::GetIpAddress(): 1");
    EXPECT_EQ(capture.Records().back().text, "IpStatusModule::GetIpAddress(): " + address);
}

// GetDeviceIpAddress goes through the virtual slot of GetIpAddress.
class RelabelledIpStatus : public IpStatusModule {
public:
    BasicString GetIpAddress(unsigned int device) const override
    {
        return BasicString("198.51.100.") + std::to_string(device);
    }
};

TEST(IpStatusDeviceIpAddress, FollowsAnOverrideOfGetIpAddress)
{
    RelabelledIpStatus module;
    EXPECT_EQ(module.GetDeviceIpAddress(7), "198.51.100.7");
}

} // namespace
