// The settings-table rules of EthernetInfoModule::SetupSettings against a
// stand-in kernel that lists lo, eth0, eth1 and eth2, each with a known MAC;
// no root needed. What needs the real kernel is in EthernetInfoSetupKernelTest.cpp.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"
#include "Modules/Nim/Linux/Internal/EthPortInfoI210Drv.hpp"

#include "Checks.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Diagnostics/RuntimeTypeInfo.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <fmt/format.h>
#include <gtest/gtest.h>

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
            const auto words = Zel::Test::Words(line);
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

    Zel::Test::LogCapture capture{8};
    std::unique_ptr<EthernetInfoModule> module;
    StandInKernel* kernel = nullptr;
    bool failMac = false;
};

TEST_F(EthernetInfoSetup, EachLineBecomesADeviceAndASecondSetUpAppends)
{
    ASSERT_EQ(Setup({"1|X1|eth0|2|unsupported|P1; P2|Ethernet", "0x2|X2|eth1|1|i210Driver||Fieldbus",
                     "3|X3|eth2|0|unsupported||Service"}),
              "");
    EXPECT_EQ(Devices(),
              "X1, eth0, 02:0A:B1:C2:FE:30, 1, [P1|P2]\nX2, eth1, 02:0A:B1:C2:FE:31, 2, []\n"
              "X3, eth2, 02:0A:B1:C2:FE:32, 3, []\n");
    EXPECT_EQ(static_cast<int>(module->GetPortLinkState(1, 1)), 255) << "an unsupported port";

    EXPECT_TRUE(capture.Contains(7, "Found interface eth2"));
    EXPECT_TRUE(capture.Contains(7, "interfaces in config: 3:"));
    // The seven columns as written, the index column first.
    EXPECT_TRUE(capture.Contains(7, "Device 0x2: X2, eth1, 1, i210Driver, , Fieldbus"));
    EXPECT_TRUE(capture.Contains(7, "interfaces 1: port count = 2, mode = 'unsupported'"));
    EXPECT_TRUE(
        capture.Contains(8, "Ethernet Device 1: Public Name 'X1', Name 'eth0', MAC 02:0A:B1:C2:FE:30, 2 Ports."));
    // The interface type's value appears under the words "port count".
    EXPECT_TRUE(capture.Contains(7, "Ethernet Device 3: port count = 3"));
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.EthernetInfoModule") << record.text;
    }

    ModuleSettings again;
    Zel::Hardware::Commons::Modules::SettingField field("interfaces");
    field.AddLine({"1", "Y1", "eth1", "0", "unsupported", "", "Ethernet"});
    again.AddSettingField("interfaces", field);
    module->SetupSettings(again, HardwareModuleProvider());
    EXPECT_EQ(module->GetDeviceCount(), 4U);
    EXPECT_EQ(module->GetPublicInterfaceName(4), "Y1");
    EXPECT_EQ(kernel->listReads, 2) << "the interface list is read at each set-up";
}

// Read like the controller's 32-bit strtoul with base prefixes on every
// platform: a magnitude above 4294967295 gives 4294967295.
TEST_F(EthernetInfoSetup, NumbersTakeBasePrefixesAndSaturateAt32Bits)
{
    const std::string wrong = "InvalidConfigException: Wrong interface index ";
    const std::pair<const char*, std::string> cases[] = {
        {"1", ""},
        {"0x1", ""},
        {" +01", ""},
        {"-4294967295", ""},
        {"1x", ""},
        {"010", wrong + "8 found, expected 1"},
        {"4294967297", wrong + "4294967295 found, expected 1"},
        {"0x100000001", wrong + "4294967295 found, expected 1"},
        {"99999999999999999999999", wrong + "4294967295 found, expected 1"},
        {"-1", wrong + "4294967295 found, expected 1"},
        {"x1", wrong + "0 found, expected 1"},
        {"- 1", wrong + "0 found, expected 1"},
        {"--1", wrong + "0 found, expected 1"},
    };
    for (const auto& [index, outcome] : cases) {
        EXPECT_EQ(Setup({index + std::string("|X1|eth0|0|unsupported||Ethernet")}), outcome) << index;
    }
    for (const auto& [count, ports] : {std::pair{"010", 8U}, {"0x2", 2U}}) {
        Setup({"1|X1|eth0|" + std::string(count) + "|unsupported||Ethernet"}, "0x10");
        EXPECT_EQ(module->GetPortCount(1), ports) << count;
    }
    EXPECT_TRUE(capture.Contains(7, "Mandatory interfaces: 16"));
}

// eth3 is missing: the table ends there, and only a mandatory count reaching
// line 2 makes that an error. Line 3 is never examined (its mode is bad).
TEST_F(EthernetInfoSetup, AMissingInterfaceEndsTheTableAndFailsOnlyWhenMandatory)
{
    const std::vector<std::string> lines = {"1|X1|eth0|0|unsupported||Ethernet", "2|X2|eth3|0|unsupported||Ethernet",
                                            "3|X3|eth1|1|Bogus||Bogus"};
    const std::string missing = "InvalidOperationException: Could not find interface ";
    for (const auto& [mandatory, outcome] : {std::pair<const char*, std::string>{nullptr, ""},
                                             {"1", ""},
                                             {"2", missing + "eth3"},
                                             {"0x2", missing + "eth3"},
                                             {"3", missing + "eth3"}}) {
        EXPECT_EQ(Setup(lines, mandatory), outcome) << (mandatory == nullptr ? "absent" : mandatory);
        EXPECT_EQ(Devices(), "X1, eth0, 02:0A:B1:C2:FE:30, 1, []\n");
    }
    // Names are compared whole and exactly.
    for (const char* name : {"eth", "eth00", "ETH0"}) {
        EXPECT_EQ(Setup({"1|X1|" + std::string(name) + "|0|unsupported||Ethernet"}, "1"), missing + name);
    }
    // A table that runs to its end, or no table, is never held against the count.
    EXPECT_EQ(Setup({lines[0]}, "9"), "");
    EXPECT_EQ(Setup({}, "5", false), "");
    EXPECT_EQ(Devices(), "");
    EXPECT_EQ(kernel->listReads, 1) << "the interface list is read even without a table";
}

TEST_F(EthernetInfoSetup, PortNamesAreSplitAtSemicolonsAndTrimmed)
{
    for (const auto& [names, count, ports] : {std::tuple{"a; b", "2", "[a|b]"},
                                              {"a;b;", "2", "[a|b]"},
                                              {";a", "2", "[|a]"},
                                              {" \t", "1", "[]"},
                                              {"", "2", "[|]"},
                                              {"", "0", "[]"},
                                              {"a", "2", "no"}}) {
        const std::string outcome = Setup({fmt::format("1|X1|eth0|{}|unsupported|{}|Ethernet", count, names)});
        EXPECT_EQ(outcome.empty() ? Devices() : outcome,
                  std::string(ports) == "no"
                      ? "InvalidConfigException: Number of port names 1 does not match port count! 2"
                      : "X1, eth0, 02:0A:B1:C2:FE:30, 1, " + std::string(ports) + "\n")
            << names;
    }
}

// Within a line: index, interface, MAC, port names, port objects, type. A
// failing line leaves no entry, while the lines before it stay.
TEST_F(EthernetInfoSetup, ChecksOfALineRunInOrderAndAFailingLineLeavesNoEntry)
{
    const std::pair<const char*, const char*> cases[] = {
        {"3|X2|eth3|0|Bogus||Bogus", "InvalidConfigException: Wrong interface index 3 found, expected 2"},
        {"2|X2|eth2|2|Bogus|X1|Bogus", "InvalidOperationException: Could not read mac info from 'eth2': errno 19"},
        {"2|X2|eth1|2|Bogus|X1|Bogus", "InvalidConfigException: Number of port names 1 does not match port count! 2"},
        {"2|X2|eth1|1|SysFile||Bogus", "ArgumentException: Invalid argument 'mode' = 'SysFile': Unknown mode"},
        {"2|X2|eth1|1|unsupported ||Bogus",
         "ArgumentException: Invalid argument 'mode' = 'unsupported ': Unknown mode"},
        {"2|X2|eth1|1|sysFile||Bogus", "InvalidConfigException: Setting 'path.2.1.sysFile' is not configured"},
        {"2|X2|eth1|1|unsupported||ethernet",
         "ArgumentException: Invalid argument 'NetworkInterfaceType' = 'ethernet': Unknown network interface type"},
        {"2|X2|eth1|1|unsupported||1",
         "ArgumentException: Invalid argument 'NetworkInterfaceType' = '1': Unknown network interface type"},
    };
    failMac = true;
    for (const auto& [line, outcome] : cases) {
        EXPECT_EQ(Setup({"1|X1|eth0|0|unsupported||Ethernet", line}), outcome);
        EXPECT_EQ(module->GetDeviceCount(), 1U);
    }
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
    using Zel::Test::ExpectThrow;
    const Zel::Hardware::Modules::Nim::Linux::Internal::NetworkInterfaceAccess kernel;
    const long before = Zel::Test::OpenDescriptorCount();
    ExpectThrow<InvalidOperationException>([&] { kernel.ReadHardwareAddress("zel-absent0"); },
                                           "Could not read mac info from 'zel-absent0': errno 19");
    EXPECT_EQ(Zel::Test::OpenDescriptorCount(), before + 1);

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
