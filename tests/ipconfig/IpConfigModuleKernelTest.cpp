// The IP configuration module on the real /etc/network/interfaces, inside
// the network sandbox (a private tmpfs over /etc/network; eth0 and eth1 from
// ipconfig.scenario). Both modules come from the plug-in's factories and
// the Ethernet information module maps device numbers to the sandbox's
// interfaces, as on a controller.
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "TestFiles.hpp"

#include "Modules/Nim/Linux/ModuleLibrary.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::IHardwareModule;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Nim::AccessErrorCode;
using Zel::Hardware::Nim::IpAssignMode;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
using Zel::Hardware::Nim::Modules::IIpConfigModule;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::LogCapture;
using Zel::Test::IpConfig::Exists;
using Zel::Test::IpConfig::ReadFile;
using Zel::Test::IpConfig::WriteFile;

const std::string interfacesFile = "/etc/network/interfaces";
const std::string temporaryFile = "/etc/network/interfaces.tmp";

const std::string controllerFile = "# Controller ports\n"
                                   "auto lo\n"
                                   "iface lo inet loopback\n"
                                   "\n"
                                   "allow-hotplug eth0\n"
                                   "iface eth0 inet static\n"
                                   "    address 192.168.10.5\n"
                                   "    netmask 255.255.255.0\n"
                                   "    gateway 192.168.10.1\n"
                                   "    dns-nameservers 192.168.10.1 8.8.8.8\n"
                                   "\n"
                                   "iface eth0 inet6 static\n"
                                   "    address fd00::5\n"
                                   "    netmask 64\n"
                                   "\n"
                                   "allow-hotplug eth1\n"
                                   "iface eth1 inet dhcp\n"
                                   "\n";

std::string ExceptionText(const std::function<void()>& call)
{
    try {
        call();
    } catch (const InvalidOperationException& e) {
        return e.what();
    }
    return "<nothing thrown>";
}

class IpConfigModuleSandbox : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        std::remove(interfacesFile.c_str());
        std::remove(temporaryFile.c_str());

        auto& library = *CreateHardwareModuleLibrary(AppDomain::GetInstance());
        ethernetModule = library.CreateHardwareModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule");
        ipConfigModule = library.CreateHardwareModule("Zel.Hardware.Nim.Modules.IIpConfigModule");

        ModuleSettings ethernetSettings;
        ethernetSettings.AddSetting("mandatoryInterfaces", "2");
        SettingField table("interfaces");
        table.AddLine({"1", "X1", "eth0", "1", "unsupported", "X1 P1", "Ethernet"});
        table.AddLine({"2", "X2", "eth1", "1", "unsupported", "X2 P1", "Service"});
        ethernetSettings.AddSettingField("interfaces", table);
        ethernetModule->SetupSettings(ethernetSettings, provider);
        provider.AddHardwareModule(*ethernetModule);

        ipConfigModule->SetupSettings(ModuleSettings(), provider);
        ipConfig = dynamic_cast<IIpConfigModule*>(ipConfigModule.get());
        ASSERT_NE(nullptr, ipConfig);
        ASSERT_EQ(2u, dynamic_cast<IEthernetInfoModule&>(*ethernetModule).GetDeviceCount());
    }

    HardwareModuleProvider provider;
    std::unique_ptr<IHardwareModule> ethernetModule;
    std::unique_ptr<IHardwareModule> ipConfigModule;
    IIpConfigModule* ipConfig = nullptr;
};

TEST_F(IpConfigModuleSandbox, WorkedExampleInsertsTheMaskBeforeTheGateway)
{
    WriteFile(interfacesFile, "auto eth0\n"
                              "iface eth0 inet dhcp\n"
                              "    address 192.168.1.10\n"
                              "    gateway 192.168.1.1\n"
                              "\n");
    LogCapture capture(8);
    EXPECT_EQ(AccessErrorCode::Success, ipConfig->SetSubnetMask(1, "255.255.255.0"));
    EXPECT_EQ("auto eth0\n"
              "iface eth0 inet static\n"
              "    address 192.168.1.10\n"
              "    netmask 255.255.255.0\n"
              "    gateway 192.168.1.1\n"
              "\n",
              ReadFile(interfacesFile));
    EXPECT_FALSE(Exists(temporaryFile));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetSubnetMask(): 1, 255.255.255.0"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::WriteValueToInterface(): Write 255.255.255.0 to netmask"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::WriteValueToInterface(): device 1 interfaceName eth0"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigFileAccess::WriteIpPara(): Write 255.255.255.0 to netmask"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetSubnetMask(): OK..."));
    EXPECT_EQ("255.255.255.0", ipConfig->GetSubnetMask(1));
}

TEST_F(IpConfigModuleSandbox, GettersReadTheValuesOfTheDevicesInterface)
{
    WriteFile(interfacesFile, controllerFile);
    EXPECT_EQ("192.168.10.5", ipConfig->GetDeviceIpAddress(1));
    EXPECT_EQ("255.255.255.0", ipConfig->GetSubnetMask(1));
    EXPECT_EQ("192.168.10.1", ipConfig->GetDefaultGateway(1));
    EXPECT_EQ("192.168.10.1 8.8.8.8", ipConfig->GetDnsNameservers(1));
    EXPECT_EQ(IpAssignMode::Static, ipConfig->GetIpAssignMode(1));
    EXPECT_EQ(IpAssignMode::Dhcp, ipConfig->GetIpAssignMode(2));
    EXPECT_EQ(controllerFile, ReadFile(interfacesFile)) << "reading changes nothing";

    LogCapture capture(8);
    EXPECT_EQ("192.168.10.5", ipConfig->GetIpAddress(1));
    std::vector<std::string> texts;
    for (const auto& record : capture.Records()) {
        if (record.channel == "Zel.Hardware.Modules.Nim.Linux.IpConfigModule") {
            EXPECT_EQ(8, record.level);
            texts.push_back(record.text);
        }
    }
    EXPECT_EQ((std::vector<std::string>{"IpConfigModule::GetIpAddress(): 1", "IpConfigModule::GetDeviceIpAddress(): 1",
                                        "IpConfigModule::ReadValueFromInterface(): Read address",
                                        "IpConfigModule::ReadValueFromInterface(): device 1 interfaceName eth0",
                                        "IpConfigModule::ReadValueFromInterface(): address = 192.168.10.5",
                                        "IpConfigModule::GetDeviceIpAddress(): 192.168.10.5",
                                        "IpConfigModule::GetIpAddress(): 192.168.10.5"}),
              texts);
}

// Numbers count from 1; the last device is valid. A bad number is the Ethernet
// information module's std::out_of_range, which SetIpAssignMode alone turns
// into 7.
TEST_F(IpConfigModuleSandbox, DeviceNumbersOutsideOneToCountAreOutOfRange)
{
    WriteFile(interfacesFile, controllerFile);
    EXPECT_EQ(IpAssignMode::Dhcp, ipConfig->GetIpAssignMode(2));
    for (unsigned int device : {0u, 3u}) {
        EXPECT_THROW(ipConfig->GetIpAddress(device), std::out_of_range);
        EXPECT_THROW(ipConfig->GetSubnetMask(device), std::out_of_range);
        EXPECT_THROW(ipConfig->GetIpAssignMode(device), std::out_of_range);
        EXPECT_THROW(ipConfig->SetDefaultGateway(device, "10.0.0.1"), std::out_of_range);
        EXPECT_THROW(ipConfig->SetIpAddress(device, "10.0.0.1"), std::out_of_range);
        LogCapture capture(8);
        EXPECT_EQ(AccessErrorCode::OutOfRange, ipConfig->SetIpAssignMode(device, IpAssignMode::Dhcp));
        EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetIpAssignMode(): Value out of range"));
    }
    EXPECT_EQ(controllerFile, ReadFile(interfacesFile));
}

struct MethodWord {
    const char* header;
    IpAssignMode mode;
};

TEST_F(IpConfigModuleSandbox, AssignModeIsReadFromTheMethodWord)
{
    const MethodWord words[] = {
        {"iface eth0 inet static", IpAssignMode::Static},   {"iface eth0 inet dhcp", IpAssignMode::Dhcp},
        {"iface eth0 inet manual", IpAssignMode::Manual},   {"iface eth0 inet loopback", IpAssignMode::Loopback},
        {"iface eth0 inet ppp", IpAssignMode::Ppp},         {"iface eth0 inet bootp", IpAssignMode::Bootp},
        {"iface eth0 inet tunnel", IpAssignMode::Static},   {"iface eth0 inet6 auto", IpAssignMode::Static},
        {"iface eth0 inet DHCP", IpAssignMode::Static},
    };
    for (const MethodWord& word : words) {
        WriteFile(interfacesFile, std::string(word.header) + "\n    address 10.0.0.1\n");
        LogCapture capture(8);
        EXPECT_EQ(word.mode, ipConfig->GetIpAssignMode(1)) << word.header;
        EXPECT_TRUE(capture.Contains(8, "IpConfigModule::GetIpAssignMode(): returnValue = " +
                                            std::to_string(static_cast<int>(word.mode))))
            << word.header;
    }
}

TEST_F(IpConfigModuleSandbox, AssignModeIsWrittenAsTheFrameworksWord)
{
    WriteFile(interfacesFile, controllerFile);
    for (IpAssignMode mode : {IpAssignMode::Manual, IpAssignMode::Bootp, IpAssignMode::Loopback, IpAssignMode::Ppp,
                              IpAssignMode::Dhcp, IpAssignMode::Static}) {
        LogCapture capture(8);
        EXPECT_EQ(AccessErrorCode::Success, ipConfig->SetIpAssignMode(2, mode));
        EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetIpAssignMode(): OK..."));
        EXPECT_EQ(mode, ipConfig->GetIpAssignMode(2));
    }
    // Back at "static": only the header of eth1 changed, and no parameter
    // was added.
    std::string expected = controllerFile;
    expected.replace(expected.find("iface eth1 inet dhcp"), 20, "iface eth1 inet static");
    EXPECT_EQ(expected, ReadFile(interfacesFile));
}

TEST_F(IpConfigModuleSandbox, ValueSettersMakeTheInterfaceStatic)
{
    WriteFile(interfacesFile, controllerFile);
    EXPECT_EQ(AccessErrorCode::Success, ipConfig->SetIpAddress(2, "10.0.0.5"));
    EXPECT_EQ(AccessErrorCode::Success, ipConfig->SetSubnetMask(2, "255.0.0.0"));
    EXPECT_EQ(AccessErrorCode::Success, ipConfig->SetDefaultGateway(2, "10.0.0.1"));
    EXPECT_EQ(AccessErrorCode::Success, ipConfig->SetDnsNameservers(2, "10.0.0.53 9.9.9.9"));
    const std::string eth1Block = "allow-hotplug eth1\n"
                                  "iface eth1 inet static\n"
                                  "    address 10.0.0.5\n"
                                  "    netmask 255.0.0.0\n"
                                  "    gateway 10.0.0.1\n"
                                  "    dns-nameservers 10.0.0.53 9.9.9.9\n"
                                  "\n";
    const std::string content = ReadFile(interfacesFile);
    EXPECT_EQ(controllerFile.substr(0, controllerFile.find("allow-hotplug eth1")) + eth1Block, content);
    EXPECT_EQ(IpAssignMode::Static, ipConfig->GetIpAssignMode(2));
    EXPECT_EQ("10.0.0.53 9.9.9.9", ipConfig->GetDnsNameservers(2));
}

TEST_F(IpConfigModuleSandbox, MissingValuesThrowFromGettersAndGive1FromSetters)
{
    WriteFile(interfacesFile, "iface eth0 inet static\n    address 192.168.1.10\niface eth1 inet dhcp");
    EXPECT_EQ("IpConfigModule::GetDefaultGateway(): ReadValueFromInterface() returned 1",
              ExceptionText([&] { ipConfig->GetDefaultGateway(1); }));
    EXPECT_EQ("IpConfigModule::GetDeviceIpAddress(): ReadValueFromInterface() returned 1",
              ExceptionText([&] { ipConfig->GetIpAddress(2); }));

    // eth1's block is the last line of the file: no room for a parameter.
    LogCapture capture(8);
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig->SetDnsNameservers(2, "10.0.0.53"));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetDnsNameservers(): WriteValueToInterface() returned 1"));
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig->SetIpAddress(2, "10.0.0.5"));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetIpAddress(): SetIpAddress() returned 1"));
    EXPECT_EQ("iface eth0 inet static\n    address 192.168.1.10\niface eth1 inet dhcp", ReadFile(interfacesFile));
}

TEST_F(IpConfigModuleSandbox, MissingFileFailsEveryCallAndLeavesTheTemporaryFile)
{
    LogCapture capture(8);
    EXPECT_EQ("IpConfigModule::GetSubnetMask(): ReadValueFromInterface() returned 1",
              ExceptionText([&] { ipConfig->GetSubnetMask(1); }));
    EXPECT_TRUE(capture.Contains(3, "Error open file /etc/network/interfaces"));
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig->SetSubnetMask(1, "255.0.0.0"));
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig->SetIpAssignMode(1, IpAssignMode::Dhcp));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetIpAssignMode(): WriteValueToInterface() returned 1"));
    EXPECT_FALSE(Exists(interfacesFile));
    EXPECT_TRUE(Exists(temporaryFile));
    EXPECT_EQ("", ReadFile(temporaryFile));
}

TEST_F(IpConfigModuleSandbox, KeyEndingItsLinePassesOutOfRangeThroughGetters)
{
    WriteFile(interfacesFile, "iface eth0 inet static\n    address 10.0.0.1\n    gateway   \n");
    EXPECT_THROW(ipConfig->GetDefaultGateway(1), std::out_of_range);
    EXPECT_EQ("10.0.0.1", ipConfig->GetIpAddress(1));
}

TEST_F(IpConfigModuleSandbox, ValueWithLineBreakIsRefusedAndTheFileKept)
{
    WriteFile(interfacesFile, controllerFile);
    LogCapture capture(8);
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig->SetDnsNameservers(1, "10.0.0.53\n    up reboot"));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetDnsNameservers(): WriteValueToInterface() returned 1"));
    EXPECT_TRUE(capture.Contains(3, "IpConfigFileAccess::WriteIpPara(): Refused value for dns-nameservers: it "
                                    "contains a line feed, carriage return or NUL character"));
    EXPECT_EQ(controllerFile, ReadFile(interfacesFile));
    EXPECT_FALSE(Exists(temporaryFile));
}

} // namespace
