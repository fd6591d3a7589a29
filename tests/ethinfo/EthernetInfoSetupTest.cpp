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

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using namespace Zel::Hardware::Modules::Nim::Linux::Internal;
using namespace Zel::System::Commons;
using Zel::System::Commons::Diagnostics::RuntimeTypeInfo;
using namespace Zel::Test;

class StandInKernel : public NetworkInterfaceAccess {
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
    // Set-up of a fresh module as the case says, then of the same module
    // with the case's "again" lines: "" or the exception as "class: message".
    std::string Setup(const Case& c)
    {
        auto owned = std::make_unique<StandInKernel>();
        kernel = owned.get();
        kernel->failMac = c.Has("MAC of eth2 fails");
        module = std::make_unique<EthernetInfoModule>(std::move(owned));
        try {
            module->SetupSettings(Settings(c, "interfaces"), HardwareModuleProvider());
            if (c.Has("again")) {
                module->SetupSettings(Settings(c, "again"), HardwareModuleProvider());
            }
        } catch (const Zel::System::Commons::Exception& e) {
            const std::string type = RuntimeTypeInfo::DemangleSymbol(typeid(e).name());
            return type.substr(type.rfind(':') + 1) + ": " + e.GetMessage() + "\n";
        }
        return "";
    }
    // The case's mandatory count and its `table` lines, split at '|'.
    static ModuleSettings Settings(const Case& c, const std::string& table)
    {
        ModuleSettings settings;
        if (c.Has("mandatory")) {
            settings.AddSetting("mandatoryInterfaces", c.Line("mandatory"));
        }
        SettingField field("interfaces");
        for (const auto& line : c.Lines(table)) {
            const auto words = Words(Unescape(line));
            field.AddLine({words.begin(), words.end()});
        }
        if (!c.Has("no table")) {
            settings.AddSettingField("interfaces", field);
        }
        return settings;
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
};

TEST_F(EthernetInfoSetup, TableRulesAsTheCasesSay)
{
    for (const auto& c : Cases("setups.cases")) {
        SCOPED_TRACE(c.name);
        capture.Sink().Clear();
        EXPECT_EQ(Setup(c), c.Has("error") ? c["error"] : "");
        EXPECT_EQ(Devices(), c["devices"]);
        // The interface list is read at each set-up, also without a table.
        EXPECT_EQ(kernel->listReads, c.Has("again") ? 2 : 1);
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

// Device 1 has one port, device 2 none; 0 and 3 are no devices.
TEST_F(EthernetInfoSetup, BadDeviceAndPortNumbersThrowTheVectorsOutOfRange)
{
    ASSERT_EQ(Setup({"", {{"interfaces", "1|X1|eth0|1|unsupported||Ethernet\n2|X2|eth1|0|unsupported||Ethernet\n"}}}),
              "");
    EXPECT_EQ(static_cast<int>(module->GetPortLinkState(1, 1)), 255) << "an unsupported port";
    for (unsigned int device : {0U, 3U}) {
        EXPECT_THROW(module->GetMacAddress(device), std::out_of_range);
        EXPECT_THROW(module->GetPublicInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module->GetPortCount(device), std::out_of_range);
        EXPECT_THROW(module->GetInterfaceType(device), std::out_of_range);
        EXPECT_THROW(module->GetInterfaceName(device), std::out_of_range);
    }
    for (auto [device, port] : {std::pair{0U, 1U}, {3U, 1U}, {1U, 0U}, {1U, 2U}, {2U, 1U}}) {
        EXPECT_THROW(module->GetPortLinkState(device, port), std::out_of_range);
        EXPECT_THROW(module->GetPortLinkSpeed(device, port), std::out_of_range);
        EXPECT_THROW(module->GetPortLinkDuplex(device, port), std::out_of_range);
        EXPECT_THROW(module->GetPortPublicName(device, port), std::out_of_range);
    }
}

// The kernel's own access fails with the errno of its system call; a failed
// MAC ioctl keeps its socket open, as the controller's runtime always did.
TEST(NetworkInterfaceAccess, SystemCallFailuresAreExceptionsWithTheirErrno)
{
    const NetworkInterfaceAccess kernel;
    const long before = OpenDescriptorCount();
    EXPECT_EQ(kernel.ReadHardwareAddress("lo"), NetworkInterfaceAccess::HardwareAddress{});
    EXPECT_EQ(OpenDescriptorCount(), before) << "closed once the MAC is read";
    ExpectThrow<InvalidOperationException>([&] { kernel.ReadHardwareAddress("zel-absent0"); },
                                           "Could not read mac info from 'zel-absent0': errno 19");
    EXPECT_EQ(OpenDescriptorCount(), before + 1);

    WithoutFreeDescriptors([&] {
        ExpectThrow<InvalidOperationException>([&] { kernel.ReadLinkInterfaceNames(); },
                                               "Could not read current interface list:  errno 24");
        ExpectThrow<InvalidOperationException>([&] { kernel.ReadHardwareAddress("lo"); },
                                               "Could not open socket for read mac info from 'lo': errno 24");
        ExpectThrow<InvalidOperationException>([] { EthPortInfoI210Drv(1, 1, "lo"); },
                                               "Could not open socket for read Ethernet port info");
    });
}

} // namespace
