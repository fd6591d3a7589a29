// The IP configuration module on the real /etc/network/interfaces, inside
// the network sandbox (a private tmpfs over /etc/network). Device 1 is eth0
// and device 2 eth1 by a stand-in Ethernet information module; the plug-in's
// own one serves the module in the stress test.
#include "CaseFile.hpp"
#include "Checks.hpp"
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"
#include "StandInEthernetInfo.hpp"

#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include <sys/stat.h>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Nim;
using namespace Zel::Test;
using Zel::System::Commons::InvalidOperationException;

const std::string interfacesFile = "/etc/network/interfaces";
const std::string temporaryFile = "/etc/network/interfaces.tmp";

const Case files = Cases("module.cases").at(0);
const std::string& controllerFile = files["file"];

class IpConfigModuleSandbox : public ::testing::Test {
protected:
    void SetUp() override
    {
        ZEL_REQUIRE_SANDBOX();
        std::remove(interfacesFile.c_str());
        std::remove(temporaryFile.c_str());
        provider.AddHardwareModule(ethernet);
        ipConfig.SetupSettings(ModuleSettings(), provider);
    }

    StandInEthernetInfo ethernet{{"eth0", "eth1"}, StandInEthernetInfo::BadNumber::Throws};
    HardwareModuleProvider provider;
    Zel::Hardware::Modules::Nim::Linux::IpConfigModule ipConfig;
};

TEST_F(IpConfigModuleSandbox, GettersReadTheValuesOfTheDevicesInterface)
{
    WriteFile(interfacesFile, controllerFile);
    EXPECT_EQ("255.255.255.0|192.168.10.1|192.168.10.1 8.8.8.8|0|1",
              fmt::format("{}|{}|{}|{}|{}", ipConfig.GetSubnetMask(1), ipConfig.GetDefaultGateway(1),
                          ipConfig.GetDnsNameservers(1), static_cast<int>(ipConfig.GetIpAssignMode(1)),
                          static_cast<int>(ipConfig.GetIpAssignMode(2))));

    LogCapture capture(8);
    EXPECT_EQ("192.168.10.5", ipConfig.GetIpAddress(1));
    std::string texts;
    for (const auto& record : capture.Records()) {
        if (record.channel == "Zel.Hardware.Modules.Nim.Linux.IpConfigModule" && record.level == 8) {
            texts += record.text + "\n";
        }
    }
    EXPECT_EQ(files["trace of GetIpAddress(1)"], texts);
    EXPECT_EQ(controllerFile, ReadFile(interfacesFile)) << "reading changes nothing";
}

// Mode 0 is written as "static", the others as the framework's word; reading
// takes empty text and "static" as 0, any word the framework cannot read too.
TEST_F(IpConfigModuleSandbox, AssignModeIsWrittenAndReadAsTheFrameworksWord)
{
    WriteFile(interfacesFile, controllerFile);
    for (const IpAssignMode mode : {IpAssignMode::Manual, IpAssignMode::Bootp, IpAssignMode::Loopback,
                                    IpAssignMode::Ppp, IpAssignMode::Dhcp, IpAssignMode::Static}) {
        LogCapture capture(8);
        EXPECT_EQ(AccessErrorCode::Success, ipConfig.SetIpAssignMode(2, mode));
        EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetIpAssignMode(): OK..."));
        EXPECT_EQ(mode, ipConfig.GetIpAssignMode(2));
        EXPECT_TRUE(capture.Contains(8,
                                     "IpConfigModule::GetIpAssignMode(): returnValue = " +
                                         std::to_string(static_cast<int>(mode))));
    }
    EXPECT_EQ(files["after every assignment mode, static last"], ReadFile(interfacesFile));

    for (const char* header : {"iface eth0 inet tunnel", "iface eth0 inet6 auto", "iface eth0 inet DHCP"}) {
        WriteFile(interfacesFile, std::string(header) + "\n    address 10.0.0.1\n");
        EXPECT_EQ(IpAssignMode::Static, ipConfig.GetIpAssignMode(1)) << header;
    }
}

TEST_F(IpConfigModuleSandbox, ValueSettersMakeTheInterfaceStatic)
{
    WriteFile(interfacesFile, controllerFile);
    LogCapture capture(8);
    EXPECT_EQ(AccessErrorCode::Success, ipConfig.SetIpAddress(2, "10.0.0.5"));
    EXPECT_EQ(AccessErrorCode::Success, ipConfig.SetSubnetMask(2, "255.0.0.0"));
    EXPECT_EQ(AccessErrorCode::Success, ipConfig.SetDefaultGateway(2, "10.0.0.1"));
    EXPECT_EQ(AccessErrorCode::Success, ipConfig.SetDnsNameservers(2, "10.0.0.53 9.9.9.9"));
    EXPECT_EQ(files["after the value setters"], ReadFile(interfacesFile));
    EXPECT_FALSE(std::filesystem::exists(temporaryFile));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetSubnetMask(): 2, 255.0.0.0"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::WriteValueToInterface(): Write 255.0.0.0 to netmask"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::WriteValueToInterface(): device 2 interfaceName eth1"));
    EXPECT_TRUE(capture.Contains(8, "IpConfigModule::SetSubnetMask(): OK..."));
}

// The file access's result 1 reaches the caller: in the getter's exception
// and, through the setter's own message, as a plain failure.
TEST_F(IpConfigModuleSandbox, MissingFileOrValuesFailGettersAndSetters)
{
    LogCapture capture(8);
    ExpectThrow<InvalidOperationException>([&] { ipConfig.GetSubnetMask(1); },
                                           "IpConfigModule::GetSubnetMask(): ReadValueFromInterface() returned 1");
    EXPECT_TRUE(capture.Contains(3, "Error open file /etc/network/interfaces"));
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig.SetIpAssignMode(1, IpAssignMode::Dhcp));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetIpAssignMode(): WriteValueToInterface() returned 1"));
    EXPECT_EQ("", ReadFile(temporaryFile)) << "a missing file leaves the temporary file behind";
    struct stat info {};
    EXPECT_EQ(0600u, ::stat(temporaryFile.c_str(), &info) == 0 ? info.st_mode & 07777 : 0u) << "readable by root alone";

    const std::string content = "iface eth0 inet static\n    address 10.0.0.1\n    gateway   \niface eth1 inet dhcp";
    WriteFile(interfacesFile, content);
    EXPECT_THROW(ipConfig.GetDefaultGateway(1), std::out_of_range); // the key ends its line
    // eth1's block is the last line of the file: no room for a parameter.
    EXPECT_EQ(AccessErrorCode::Failed, ipConfig.SetDnsNameservers(2, "10.0.0.53"));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::SetDnsNameservers(): WriteValueToInterface() returned 1"));
    EXPECT_EQ(content, ReadFile(interfacesFile));
}

} // namespace
