// The settings-table rules of EthernetInfoModule::SetupSettings against a
// stand-in kernel that lists lo, eth0, eth1 and eth2, each with a known MAC;
// no root needed. What needs the real kernel is in EthernetInfoSetupKernelTest.cpp.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoI210Drv.hpp"

#include "CaseFile.hpp"
#include "Checks.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <typeinfo>

#include <sys/resource.h>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::InvalidOperationException;
using Zel::System::Commons::Diagnostics::RuntimeTypeInfo;
using Line = std::vector<BasicString>;
using namespace Zel::Test;

class StandInKernel : public Zel::Hardware::Modules::Nim::Linux::Internal::NetworkInterfaceAccess {
public:
    std::vector<BasicString> ReadLinkInterfaceNames() const override
    {
        ++listReads;
        return {"lo", "eth0", "eth1", "eth2"};
    }
    // 02:0A:B1:C2:FE and the name's last character.
    HardwareAddress ReadHardwareAddress(const BasicString& name) const override
    {
        if (name == "eth2" && failMac) {
            throw InvalidOperationException(BasicString("Could not read mac info from 'eth2': errno 19"));
        }
        return {0x02, 0x0a, 0xb1, 0xc2, 0xfe, static_cast<unsigned char>(name.back())};
    }
    mutable int listReads = 0;
    bool failMac = false;
};

class EthernetInfoSetup : public ::testing::Test {
protected:
    // Set-up of a fresh module with the "interfaces" lines ("index|public
    // name|interface|port count|mode|port names|type"): "" or the exception.
    std::string Setup(const std::vector<std::string>& lines, const char* mandatory = nullptr, bool table = true)
    {
        ModuleSettings settings;
        if (mandatory != nullptr) {
            settings.AddSetting("mandatoryInterfaces", mandatory);
        }
        Zel::Hardware::Commons::Modules::SettingField field("interfaces");
        for (const std::string& line : lines) {
            const auto words = Words(line);
            field.AddLine(Line(words.begin(), words.end()));
        }
        if (table) {
            settings.AddSettingField("interfaces", field);
        }
        auto owned = std::make_unique<StandInKernel>();
        kernel = owned.get();
        kernel->failMac = failMac;
        module = std::make_unique<EthernetInfoModule>(std::move(owned));
        try {
            module->SetupSettings(settings, HardwareModuleProvider());
        } catch (const Zel::System::Commons::Exception& e) {
            const std::string type = RuntimeTypeInfo::DemangleSymbol(typeid(e).name());
            return type.substr(type.rfind(':') + 1) + ": " + e.GetMessage();
        }
        return "";
    }
    // Every device as "public name, interface, MAC, type, [port names]".
    std::string Devices() const
    {
        std::string text;
        for (unsigned int device = 1; device <= module->GetDeviceCount(); ++device) {
            text += module->GetPublicInterfaceName(device) + ", " + module->GetInterfaceName(device) + ", " +
                module->GetMacAddress(device) + ", " +
                std::to_string(static_cast<int>(module->GetInterfaceType(device))) + ", [";
            for (unsigned int port = 1; port <= module->GetPortCount(device); ++port) {
                text += (port > 1 ? "|" : "") + module->GetPortPublicName(device, port);
            }
            text += "]\n";
        }
        return text;
    }

    LogCapture capture{8};
    std::unique_ptr<EthernetInfoModule> module;
    StandInKernel* kernel = nullptr;
    bool failMac = false;
};

TEST_F(EthernetInfoSetup, TableRulesAsTheCasesSay)
{
    for (const auto& c : ReadCases(std::string(ZEL_TEST_CASES) + "/setups.cases")) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> lines;
        std::istringstream table(c.Has("interfaces") ? c["interfaces"] : "");
        for (std::string line; std::getline(table, line);) {
            lines.push_back(Unescape(line));
        }
        failMac = c.Has("MAC of eth2 fails");
        capture.Sink().Clear();
        const std::string mandatory = c.Has("mandatory") ? c.Line("mandatory") : "";
        const std::string error = Setup(lines, c.Has("mandatory") ? mandatory.c_str() : nullptr, !c.Has("no table"));
        EXPECT_EQ(error.empty() ? error : error + "\n", c.Has("error") ? c["error"] : "");
        EXPECT_EQ(Devices(), c["devices"]);
        EXPECT_EQ(kernel->listReads, 1) << "the interface list is read at each set-up, also without a table";
        std::string log;
        for (const auto& record : capture.Records()) {
            EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.EthernetInfoModule") << record.text;
            log += std::to_string(record.level) + " " + record.text + "\n";
        }
        if (c.Has("log")) {
            EXPECT_EQ(log, c["log"]);
        }
    }
}

TEST_F(EthernetInfoSetup, ASecondSetUpAppendsAndReadsTheInterfaceListAgain)
{
    ASSERT_EQ(Setup({"1|X1|eth0|2|unsupported|P1; P2|Ethernet"}), "");
    EXPECT_EQ(static_cast<int>(module->GetPortLinkState(1, 1)), 255) << "an unsupported port";
    ModuleSettings again;
    Zel::Hardware::Commons::Modules::SettingField field("interfaces");
    field.AddLine({"1", "Y1", "eth1", "0", "unsupported", "", "Ethernet"});
    again.AddSettingField("interfaces", field);
    module->SetupSettings(again, HardwareModuleProvider());
    EXPECT_EQ(Devices(), "X1, eth0, 02:0A:B1:C2:FE:30, 1, [P1|P2]\nY1, eth1, 02:0A:B1:C2:FE:31, 1, []\n");
    EXPECT_EQ(kernel->listReads, 2);
}

// Device 1 has one port, device 2 none; 0 and 3 are no devices.
TEST_F(EthernetInfoSetup, BadDeviceAndPortNumbersThrowTheVectorsOutOfRange)
{
    ASSERT_EQ(Setup({"1|X1|eth0|1|unsupported||Ethernet", "2|X2|eth1|0|unsupported||Ethernet"}), "");
    const EthernetInfoModule& m = *module;
    for (unsigned int device : {0U, 3U}) {
        EXPECT_THROW(m.GetMacAddress(device), std::out_of_range);
        EXPECT_THROW(m.GetPublicInterfaceName(device), std::out_of_range);
        EXPECT_THROW(m.GetPortCount(device), std::out_of_range);
        EXPECT_THROW(m.GetInterfaceType(device), std::out_of_range);
        EXPECT_THROW(m.GetInterfaceName(device), std::out_of_range);
    }
    for (auto [device, port] : {std::pair{0U, 1U}, {3U, 1U}, {1U, 0U}, {1U, 2U}, {2U, 1U}}) {
        EXPECT_THROW(m.GetPortLinkState(device, port), std::out_of_range);
        EXPECT_THROW(m.GetPortLinkSpeed(device, port), std::out_of_range);
        EXPECT_THROW(m.GetPortLinkDuplex(device, port), std::out_of_range);
        EXPECT_THROW(m.GetPortPublicName(device, port), std::out_of_range);
    }
}

// The kernel's own access fails with the errno of its system call; a failed
// MAC ioctl keeps its socket open, as the controller's runtime always did.
TEST(NetworkInterfaceAccess, SystemCallFailuresAreExceptionsWithTheirErrno)
{
    const Zel::Hardware::Modules::Nim::Linux::Internal::NetworkInterfaceAccess kernel;
    const long before = OpenDescriptorCount();
    ExpectThrow<InvalidOperationException>([&] { kernel.ReadHardwareAddress("zel-absent0"); },
                                           "Could not read mac info from 'zel-absent0': errno 19");
    EXPECT_EQ(OpenDescriptorCount(), before + 1);

    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    ExpectThrow<InvalidOperationException>([&] { kernel.ReadLinkInterfaceNames(); },
                                           "Could not read current interface list:  errno 24");
    ExpectThrow<InvalidOperationException>([&] { kernel.ReadHardwareAddress("lo"); },
                                           "Could not open socket for read mac info from 'lo': errno 24");
    ExpectThrow<InvalidOperationException>(
        [] { Zel::Hardware::Modules::Nim::Linux::Internal::EthPortInfoI210Drv(1, 1, "lo"); },
        "Could not open socket for read Ethernet port info");
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

} // namespace
