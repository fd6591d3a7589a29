// The IP configuration module where no interfaces file is involved: set-up,
// the common module slots, device numbers the module rejects itself (22) or
// that the Ethernet information module rejects (std::out_of_range), and
// assignment modes without a name. Reading and writing the file itself runs
// in the network sandbox (IpConfigModuleKernelTest.cpp).
#include "MemoryLogSink.hpp"
#include "StandInEthernetInfo.hpp"

#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::IpConfigModule;
using Zel::Hardware::Nim::AccessErrorCode;
using Zel::Hardware::Nim::IpAssignMode;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::Exception;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::LogCapture;
using Zel::Test::IpConfig::StandInEthernetInfo;
using BadNumber = StandInEthernetInfo::BadNumber;

template <typename ExceptionType>
std::string MessageOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const ExceptionType& e) {
        return e.what();
    }
    return "<nothing thrown>";
}

TEST(IpConfigModuleFrame, IsEnabledAtEveryPointOfItsLife)
{
    LogCapture capture(8);
    IpConfigModule module;
    EXPECT_TRUE(module.IsEnabled());
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_EQ(2u, capture.Count(7, "IpConfigModule::IsEnabled()"));
    EXPECT_EQ(1u, capture.Count(7, "IpConfigModule::Dispose()"));
    EXPECT_EQ(3u, capture.Records().size());
}

TEST(IpConfigModuleFrame, SetupWithoutEthernetInfoModuleThrows)
{
    LogCapture capture(8);
    IpConfigModule module;
    const HardwareModuleProvider empty;
    EXPECT_EQ("IpConfigModule::SetupSettings(): ethInfoModule is NULL!",
              MessageOf<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), empty); }));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetupSettings()"));

    // A module of another type under the Ethernet module's name is no
    // Ethernet module.
    IpConfigModule impostor;
    HardwareModuleProvider wrongType;
    wrongType.AddHardwareModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule", impostor);
    EXPECT_EQ("IpConfigModule::SetupSettings(): ethInfoModule is NULL!",
              MessageOf<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), wrongType); }));
}

// A module set up on a stand-in that reports devices eth0 and eth1.
class IpConfigModuleDevices : public ::testing::Test {
protected:
    void Build(BadNumber badNumber, unsigned int reportedCount = 2)
    {
        ethernet = std::make_unique<StandInEthernetInfo>(std::vector<BasicString>{"eth0", "eth1"}, badNumber);
        ethernet->SetDeviceCount(reportedCount);
        provider.AddHardwareModule(*ethernet);
        module.SetupSettings(ModuleSettings(), provider);
    }

    std::unique_ptr<StandInEthernetInfo> ethernet;
    HardwareModuleProvider provider;
    IpConfigModule module;
};

struct GetterCase {
    const char* name;
    std::function<void(IpConfigModule&, unsigned int)> call;
    const char* failure; // with {0} for the result code
};

const GetterCase getters[] = {
    {"GetIpAddress", [](IpConfigModule& m, unsigned int d) { m.GetIpAddress(d); },
     "IpConfigModule::GetDeviceIpAddress(): ReadValueFromInterface() returned 22"},
    {"GetDeviceIpAddress", [](IpConfigModule& m, unsigned int d) { m.GetDeviceIpAddress(d); },
     "IpConfigModule::GetDeviceIpAddress(): ReadValueFromInterface() returned 22"},
    {"GetSubnetMask", [](IpConfigModule& m, unsigned int d) { m.GetSubnetMask(d); },
     "IpConfigModule::GetSubnetMask(): ReadValueFromInterface() returned 22"},
    {"GetDefaultGateway", [](IpConfigModule& m, unsigned int d) { m.GetDefaultGateway(d); },
     "IpConfigModule::GetDefaultGateway(): ReadValueFromInterface() returned 22"},
    {"GetDnsNameservers", [](IpConfigModule& m, unsigned int d) { m.GetDnsNameservers(d); },
     "IpConfigModule::GetDnsNameservers(): ReadValueFromInterface() returned 22"},
    {"GetIpAssignMode", [](IpConfigModule& m, unsigned int d) { m.GetIpAssignMode(d); },
     "IpConfigModule::GetIpAssignMode(): ReadValueFromInterface() returned 22"},
};

struct SetterCase {
    const char* name;
    std::function<AccessErrorCode(IpConfigModule&, unsigned int)> call;
    const char* failure; // the level-7 message
};

const SetterCase setters[] = {
    {"SetDeviceIpAddress", [](IpConfigModule& m, unsigned int d) { return m.SetDeviceIpAddress(d, "10.0.0.1"); },
     "IpConfigModule::SetDeviceIpAddress(): WriteValueToInterface() returned 22"},
    {"SetSubnetMask", [](IpConfigModule& m, unsigned int d) { return m.SetSubnetMask(d, "255.0.0.0"); },
     "IpConfigModule::SetSubnetMask(): WriteValueToInterface() returned 22"},
    {"SetDefaultGateway", [](IpConfigModule& m, unsigned int d) { return m.SetDefaultGateway(d, "10.0.0.254"); },
     "IpConfigModule::SetDefaultGateway(): WriteValueToInterface() returned 22"},
    {"SetDnsNameservers", [](IpConfigModule& m, unsigned int d) { return m.SetDnsNameservers(d, "10.0.0.53"); },
     "IpConfigModule::SetDnsNameservers(): WriteValueToInterface() returned 22"},
    {"SetIpAssignMode", [](IpConfigModule& m, unsigned int d) { return m.SetIpAssignMode(d, IpAssignMode::Dhcp); },
     "IpConfigModule::SetIpAssignMode(): WriteValueToInterface() returned 22"},
};

// Behind an Ethernet module that names any number, the module's own range
// test answers: 22 in the getters' exception, 1 from every setter.
TEST_F(IpConfigModuleDevices, OwnRangeTestGives22ToGettersAnd1ToSetters)
{
    Build(BadNumber::AnswersName);
    for (unsigned int device : {0u, 3u}) {
        for (const GetterCase& getter : getters) {
            LogCapture capture(8);
            EXPECT_EQ(getter.failure, MessageOf<InvalidOperationException>([&] { getter.call(module, device); }))
                << getter.name << " " << device;
            EXPECT_TRUE(capture.Contains(8, "IpConfigModule::ReadValueFromInterface(): device " +
                                                std::to_string(device) + " interfaceName eth" +
                                                std::to_string(device)))
                << "the name is asked for before the range test";
        }
        for (const SetterCase& setter : setters) {
            LogCapture capture(8);
            EXPECT_EQ(AccessErrorCode::Failed, setter.call(module, device)) << setter.name << " " << device;
            EXPECT_EQ(1u, capture.Count(7, setter.failure)) << setter.name;
        }
        LogCapture capture(8);
        EXPECT_EQ(AccessErrorCode::Failed, module.SetIpAddress(device, "10.0.0.1"));
        EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetDeviceIpAddress(): WriteValueToInterface() returned 22"));
        EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetIpAddress(): SetIpAddress() returned 1"));
    }
}

TEST_F(IpConfigModuleDevices, DeviceCountIsReadOnceAtSetup)
{
    Build(BadNumber::AnswersName, 1);
    ethernet->SetDeviceCount(2);
    EXPECT_EQ("IpConfigModule::GetSubnetMask(): ReadValueFromInterface() returned 22",
              MessageOf<InvalidOperationException>([&] { module.GetSubnetMask(2); }));
}

TEST_F(IpConfigModuleDevices, TracesTheReadOfARejectedDevice)
{
    Build(BadNumber::AnswersName);
    LogCapture capture(8);
    EXPECT_THROW(module.GetDefaultGateway(7), InvalidOperationException);
    std::vector<std::string> texts;
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(8, record.level) << record.text;
        EXPECT_EQ("Zel.Hardware.Modules.Nim.Linux.IpConfigModule", record.channel);
        texts.push_back(record.text);
    }
    EXPECT_EQ((std::vector<std::string>{"IpConfigModule::GetDefaultGateway(): 7",
                                        "IpConfigModule::ReadValueFromInterface(): Read gateway",
                                        "IpConfigModule::ReadValueFromInterface(): device 7 interfaceName eth7",
                                        "IpConfigModule::ReadValueFromInterface(): gateway = "}),
              texts);
}

// The Ethernet information module of the system throws for a bad number:
// that passes through everything except SetIpAssignMode, which answers 7.
TEST_F(IpConfigModuleDevices, OutOfRangeFromEthernetModulePassesExceptForAssignMode)
{
    Build(BadNumber::Throws);
    for (unsigned int device : {0u, 3u}) {
        for (const GetterCase& getter : getters) {
            EXPECT_THROW(getter.call(module, device), std::out_of_range) << getter.name;
        }
        for (const SetterCase& setter : setters) {
            if (std::string(setter.name) != "SetIpAssignMode") {
                EXPECT_THROW(setter.call(module, device), std::out_of_range) << setter.name;
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
    Build(BadNumber::Throws);
    for (unsigned int device : {1u, 0u}) {
        for (int value : {6, 42, 255}) {
            LogCapture capture(8);
            EXPECT_EQ("Invalid value for Enum 'Zel::Hardware::Nim::IpAssignMode' occurs: " + std::to_string(value),
                      MessageOf<Exception>(
                          [&] { module.SetIpAssignMode(device, static_cast<IpAssignMode>(value)); }));
            EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetIpAssignMode(): " + std::to_string(device) + ", " +
                                                std::to_string(value)));
            EXPECT_EQ(0u, ethernet->NameQueries());
        }
    }
}

} // namespace
