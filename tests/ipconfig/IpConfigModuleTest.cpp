// The IP configuration module where no interfaces file is involved: set-up,
// device numbers the module rejects itself (22, behind a stand-in that names
// any number) and assignment modes without a name. Reading and writing the
// file runs in the network sandbox (IpConfigModuleKernelTest.cpp).
#include "Checks.hpp"
#include "MemoryLogSink.hpp"
#include "StandInEthernetInfo.hpp"

#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Nim;
using namespace Zel::System::Commons;
using namespace Zel::Test;
using Zel::Hardware::Modules::Nim::Linux::IpConfigModule;

TEST(IpConfigModuleSetup, NeedsAnEthernetInfoModule)
{
    LogCapture capture(8);
    IpConfigModule module;
    HardwareModuleProvider provider;
    IpConfigModule impostor; // another type under the Ethernet module's name is no Ethernet module
    for (const bool withImpostor : {false, true}) {
        if (withImpostor) {
            provider.AddHardwareModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule", impostor);
        }
        ExpectThrow<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), provider); },
                                               "IpConfigModule::SetupSettings(): ethInfoModule is NULL!");
    }
    EXPECT_EQ(2u, capture.Count(7, "IpConfigModule::SetupSettings()"));
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::Dispose()"));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::IsEnabled()"));
}

// A module set up on a stand-in that names eth0 and eth1.
class IpConfigModuleDevices : public ::testing::Test {
protected:
    void Build(StandInEthernetInfo::BadNumber badNumber)
    {
        ethernet = std::make_unique<StandInEthernetInfo>(std::vector<BasicString>{"eth0", "eth1"}, badNumber);
        provider.AddHardwareModule(*ethernet);
        module.SetupSettings(ModuleSettings(), provider);
        ethernet->deviceCount = 3; // the count is taken once, at set-up
    }

    std::unique_ptr<StandInEthernetInfo> ethernet;
    HardwareModuleProvider provider;
    IpConfigModule module;
};

const std::pair<const char*, std::function<void(IpConfigModule&, unsigned int)>> getters[] = {
    {"GetDeviceIpAddress", [](IpConfigModule& m, unsigned int d) { m.GetIpAddress(d); }},
    {"GetDeviceIpAddress", [](IpConfigModule& m, unsigned int d) { m.GetDeviceIpAddress(d); }},
    {"GetSubnetMask", [](IpConfigModule& m, unsigned int d) { m.GetSubnetMask(d); }},
    {"GetDefaultGateway", [](IpConfigModule& m, unsigned int d) { m.GetDefaultGateway(d); }},
    {"GetDnsNameservers", [](IpConfigModule& m, unsigned int d) { m.GetDnsNameservers(d); }},
    {"GetIpAssignMode", [](IpConfigModule& m, unsigned int d) { m.GetIpAssignMode(d); }},
};

const std::pair<const char*, std::function<AccessErrorCode(IpConfigModule&, unsigned int)>> setters[] = {
    {"SetDeviceIpAddress", [](IpConfigModule& m, unsigned int d) { return m.SetDeviceIpAddress(d, "10.0.0.1"); }},
    {"SetSubnetMask", [](IpConfigModule& m, unsigned int d) { return m.SetSubnetMask(d, "255.0.0.0"); }},
    {"SetDefaultGateway", [](IpConfigModule& m, unsigned int d) { return m.SetDefaultGateway(d, "10.0.0.254"); }},
    {"SetDnsNameservers", [](IpConfigModule& m, unsigned int d) { return m.SetDnsNameservers(d, "10.0.0.53"); }},
    {"SetIpAssignMode", [](IpConfigModule& m, unsigned int d) { return m.SetIpAssignMode(d, IpAssignMode::Dhcp); }},
};

// The name is asked for first; then the module's own range test answers 22,
// which the getters put into their exception and the setters reduce to 1.
TEST_F(IpConfigModuleDevices, OwnRangeTestGives22ToGettersAnd1ToSetters)
{
    Build(StandInEthernetInfo::BadNumber::AnswersName);
    for (const unsigned int device : {0u, 3u}) {
        const std::string number = std::to_string(device);
        for (const auto& [name, call] : getters) {
            LogCapture capture(8);
            ExpectThrow<InvalidOperationException>([&] { call(module, device); },
                                                   std::string("IpConfigModule::") + name +
                                                       "(): ReadValueFromInterface() returned 22");
            EXPECT_TRUE(capture.Contains(8,
                                         "IpConfigModule::ReadValueFromInterface(): device " + number +
                                             " interfaceName eth" + number));
        }
        for (const auto& [name, call] : setters) {
            LogCapture capture(8);
            EXPECT_EQ(AccessErrorCode::Failed, call(module, device)) << name;
            EXPECT_EQ(
                1u,
                capture.Count(7, std::string("IpConfigModule::") + name + "(): WriteValueToInterface() returned 22"));
        }
        LogCapture capture(8);
        EXPECT_EQ(AccessErrorCode::Failed, module.SetIpAddress(device, "10.0.0.1"));
        EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetDeviceIpAddress(): WriteValueToInterface() returned 22"));
        EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetIpAddress(): SetIpAddress() returned 1"));
    }
}

// The Ethernet information module of the system throws for a bad number:
// that passes through everything except SetIpAssignMode, which answers 7.
TEST_F(IpConfigModuleDevices, OutOfRangeFromEthernetModulePassesExceptForAssignMode)
{
    Build(StandInEthernetInfo::BadNumber::Throws);
    for (const unsigned int device : {0u, 3u}) {
        for (const auto& [name, call] : getters) {
            EXPECT_THROW(call(module, device), std::out_of_range) << name;
        }
        for (const auto& [name, call] : setters) {
            if (std::string(name) != "SetIpAssignMode") {
                EXPECT_THROW(call(module, device), std::out_of_range) << name;
            }
        }
        EXPECT_THROW(module.SetIpAddress(device, "10.0.0.1"), std::out_of_range);
        LogCapture capture(8);
        EXPECT_EQ(AccessErrorCode::OutOfRange, module.SetIpAssignMode(device, IpAssignMode::Static));
        EXPECT_EQ(1u, capture.Count(7, "IpConfigModule::SetIpAssignMode(): Value out of range"));
    }
}

// The mode is turned into text before the device is looked at.
TEST_F(IpConfigModuleDevices, UnnamedAssignModeThrowsBeforeTheDeviceIsChecked)
{
    Build(StandInEthernetInfo::BadNumber::Throws);
    for (const unsigned int device : {1u, 0u}) {
        for (const int value : {6, 42, 255}) {
            LogCapture capture(8);
            ExpectThrow<Exception>([&] { module.SetIpAssignMode(device, static_cast<IpAssignMode>(value)); },
                                   "Invalid value for Enum 'Zel::Hardware::Nim::IpAssignMode' occurs: " +
                                       std::to_string(value));
            EXPECT_TRUE(capture.Contains(8,
                                         "IpConfigModule::SetIpAssignMode(): " + std::to_string(device) + ", " +
                                             std::to_string(value)));
        }
    }
    EXPECT_EQ(0u, ethernet->nameQueries);
}

} // namespace
