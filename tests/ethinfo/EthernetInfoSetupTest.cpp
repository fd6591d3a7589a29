// The settings-table rules of EthernetInfoModule::SetupSettings against a
// stand-in kernel that lists eth0, eth1 and eth2 (and lo) and gives each a
// known MAC; no root needed. What needs the real kernel is in
// EthernetInfoSetupKernelTest.cpp.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::Hardware::Modules::Nim::Linux::Internal::NetworkInterfaceAccess;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::Exception;
using Zel::System::Commons::InvalidConfigException;
using Zel::System::Commons::InvalidOperationException;
using Line = std::vector<BasicString>;

class StandInKernel : public NetworkInterfaceAccess {
public:
    std::vector<BasicString> ReadLinkInterfaceNames() const override
    {
        ++listReads;
        return {"lo", "eth0", "eth1", "eth2"};
    }
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

// An "interfaces" table: index, public name, interface, port count, mode,
// port names, interface type.
ModuleSettings Settings(const std::vector<Line>& lines, const char* mandatory = nullptr)
{
    ModuleSettings settings;
    if (mandatory != nullptr) {
        settings.AddSetting("mandatoryInterfaces", mandatory);
    }
    SettingField table("interfaces");
    for (const Line& line : lines) {
        table.AddLine(line);
    }
    settings.AddSettingField("interfaces", table);
    return settings;
}

class EthernetInfoSetup : public ::testing::Test {
protected:
    // Set-up of a fresh module; the exception's type and text, or "" when it succeeded.
    std::string Setup(const ModuleSettings& settings)
    {
        auto owned = std::make_unique<StandInKernel>();
        kernel = owned.get();
        kernel->failMac = failMac;
        module = std::make_unique<EthernetInfoModule>(std::move(owned));
        try {
            module->SetupSettings(settings, HardwareModuleProvider());
        } catch (const Exception& e) {
            return std::string(typeid(e) == typeid(InvalidConfigException)      ? "config: "
                               : typeid(e) == typeid(InvalidOperationException) ? "operation: "
                               : typeid(e) == typeid(ArgumentException)         ? "argument: "
                                                                                 : "other: ") +
                   e.GetMessage();
        }
        return "";
    }

    Zel::Test::LogCapture capture{8};
    std::unique_ptr<EthernetInfoModule> module;
    StandInKernel* kernel = nullptr;
    bool failMac = false;
};

TEST_F(EthernetInfoSetup, EachLineBecomesADeviceWithItsMacAndPortObjects)
{
    ASSERT_EQ(Setup(Settings({{"1", "X1", "eth0", "2", "unsupported", "P1; P2", "Ethernet"},
                              {"0x2", "X2", "eth1", "1", "i210Driver", "", "Fieldbus"},
                              {"3", "X3", "eth2", "0", "unsupported", "", "Service"}})),
              "");
    ASSERT_EQ(module->GetDeviceCount(), 3U);
    EXPECT_EQ(module->GetInterfaceName(1), "eth0");
    EXPECT_EQ(module->GetPublicInterfaceName(2), "X2");
    EXPECT_EQ(module->GetMacAddress(1), "02:0A:B1:C2:FE:30");
    EXPECT_EQ(module->GetMacAddress(2), "02:0A:B1:C2:FE:31");
    EXPECT_EQ(module->GetInterfaceType(2), NetworkInterfaceType::Fieldbus);
    EXPECT_EQ(module->GetPortCount(1), 2U);
    EXPECT_EQ(module->GetPortCount(3), 0U);
    EXPECT_EQ(module->GetPortPublicName(1, 2), "P2");
    EXPECT_EQ(module->GetPortPublicName(2, 1), "");
    EXPECT_EQ(module->GetPortLinkState(1, 1), LinkState::Unknown);

    EXPECT_TRUE(capture.Contains(7, "Found interface eth2"));
    EXPECT_TRUE(capture.Contains(7, "interfaces in config: 3:"));
    // The seven columns as written, the index column first.
    EXPECT_TRUE(capture.Contains(7, "Device 0x2: X2, eth1, 1, i210Driver, , Fieldbus"));
    EXPECT_TRUE(capture.Contains(7, "interfaces 1: port count = 2, mode = 'unsupported'"));
    EXPECT_TRUE(capture.Contains(8, "Ethernet Device 1: Public Name 'X1', Name 'eth0', MAC 02:0A:B1:C2:FE:30, 2 Ports."));
    // The interface type's value appears under the words "port count".
    EXPECT_TRUE(capture.Contains(7, "Ethernet Device 1: port count = 1"));
    EXPECT_TRUE(capture.Contains(7, "Ethernet Device 3: port count = 3"));
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.EthernetInfoModule") << record.text;
    }

    // A second set-up appends to the table; the interface list is read each time.
    module->SetupSettings(Settings({{"1", "Y1", "eth1", "0", "unsupported", "", "Ethernet"}}), HardwareModuleProvider());
    EXPECT_EQ(module->GetDeviceCount(), 4U);
    EXPECT_EQ(module->GetPublicInterfaceName(4), "Y1");
    EXPECT_EQ(kernel->listReads, 2);
}

// Numbers read like the controller's 32-bit strtoul with base prefixes,
// on every platform: a magnitude above 4294967295 gives 4294967295.
TEST_F(EthernetInfoSetup, NumbersTakeBasePrefixesAndSaturateAt32Bits)
{
    const struct {
        const char* index;
        const char* portCount;
        std::string outcome;
    } cases[] = {
        {"1", "010", ""},
        {"0x1", "0x2", ""},
        {" +01", "2", ""},
        {"-4294967295", "0", ""},
        {"1x", "0", ""},
        {"010", "0", "config: Wrong interface index 8 found, expected 1"},
        {"4294967297", "0", "config: Wrong interface index 4294967295 found, expected 1"},
        {"0x100000001", "0", "config: Wrong interface index 4294967295 found, expected 1"},
        {"99999999999999999999999", "0", "config: Wrong interface index 4294967295 found, expected 1"},
        {"-1", "0", "config: Wrong interface index 4294967295 found, expected 1"},
        {"x1", "0", "config: Wrong interface index 0 found, expected 1"},
        {"- 1", "0", "config: Wrong interface index 0 found, expected 1"},
        {"--1", "0", "config: Wrong interface index 0 found, expected 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.index);
        EXPECT_EQ(Setup(Settings({{c.index, "X1", "eth0", c.portCount, "unsupported", "", "Ethernet"}})), c.outcome);
    }
    Setup(Settings({{"1", "X1", "eth0", "010", "unsupported", "", "Ethernet"}}));
    EXPECT_EQ(module->GetPortCount(1), 8U);
    Setup(Settings({{"1", "X1", "eth0", "0", "unsupported", "", "Ethernet"}}, "0x10"));
    EXPECT_TRUE(capture.Contains(7, "Mandatory interfaces: 16"));
}

// eth3 is missing: the table ends there, and only a mandatory count reaching
// line 2 makes that an error. Line 3 is never examined (its mode is bad).
TEST_F(EthernetInfoSetup, AMissingInterfaceEndsTheTableAndFailsOnlyWhenMandatory)
{
    const std::vector<Line> lines = {{"1", "X1", "eth0", "0", "unsupported", "", "Ethernet"},
                                     {"2", "X2", "eth3", "0", "unsupported", "", "Ethernet"},
                                     {"3", "X3", "eth1", "1", "Bogus", "", "Bogus"}};
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, ""}, {"1", ""}, {"2", "operation: Could not find interface eth3"},
        {"0x2", "operation: Could not find interface eth3"}, {"3", "operation: Could not find interface eth3"}};
    for (const auto& [mandatory, outcome] : cases) {
        EXPECT_EQ(Setup(Settings(lines, mandatory)), outcome) << (mandatory == nullptr ? "absent" : mandatory);
        EXPECT_EQ(module->GetDeviceCount(), 1U);
    }
    // Names are compared whole: neither a prefix nor a longer name matches.
    for (const char* name : {"eth", "eth00", "ETH0"}) {
        EXPECT_EQ(Setup(Settings({{"1", "X1", name, "0", "unsupported", "", "Ethernet"}}, "1")),
                  std::string("operation: Could not find interface ") + name);
    }

    // A table that runs to its end, or no table, is never held against the count.
    EXPECT_EQ(Setup(Settings({lines[0]}, "9")), "");
    EXPECT_EQ(module->GetDeviceCount(), 1U);
    ModuleSettings noTable;
    noTable.AddSetting("mandatoryInterfaces", "5");
    EXPECT_EQ(Setup(noTable), "");
    EXPECT_EQ(module->GetDeviceCount(), 0U);
    EXPECT_EQ(kernel->listReads, 1) << "the interface list is read even without a table";
}

TEST_F(EthernetInfoSetup, PortNamesAreSplitAtSemicolonsAndTrimmed)
{
    const struct {
        const char* names;
        const char* portCount;
        std::vector<BasicString> expected;
    } cases[] = {
        {"a; b", "2", {"a", "b"}}, {"a;b;", "2", {"a", "b"}}, {";a", "2", {"", "a"}}, {" \t", "1", {""}},
        {"", "2", {"", ""}},       {"", "0", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.names);
        ASSERT_EQ(Setup(Settings({{"1", "X1", "eth0", c.portCount, "unsupported", c.names, "Ethernet"}})), "");
        ASSERT_EQ(module->GetPortCount(1), c.expected.size());
        for (unsigned int port = 1; port <= c.expected.size(); ++port) {
            EXPECT_EQ(module->GetPortPublicName(1, port), c.expected[port - 1]);
        }
    }
}

// Within a line: index, interface, MAC, port names, port objects, type. A
// failing line leaves no entry, while the lines before it stay.
TEST_F(EthernetInfoSetup, ChecksOfALineRunInOrderAndAFailingLineLeavesNoEntry)
{
    const Line good = {"1", "X1", "eth0", "0", "unsupported", "", "Ethernet"};
    const struct {
        Line line;
        bool failMac;
        const char* outcome;
    } cases[] = {
        {{"3", "X2", "eth3", "0", "unsupported", "", "Ethernet"}, false,
         "config: Wrong interface index 3 found, expected 2"},
        {{"2", "X2", "eth2", "2", "Bogus", "X1", "Bogus"}, true, "operation: Could not read mac info from 'eth2': errno 19"},
        {{"2", "X2", "eth1", "2", "SysFile", "X1", "Bogus"}, false,
         "config: Number of port names 1 does not match port count! 2"},
        {{"2", "X2", "eth1", "1", "SysFile", "", "Bogus"}, false, "argument: Invalid argument 'mode' = 'SysFile': Unknown mode"},
        {{"2", "X2", "eth1", "1", "unsupported ", "", "Bogus"}, false,
         "argument: Invalid argument 'mode' = 'unsupported ': Unknown mode"},
        {{"2", "X2", "eth1", "1", "sysFile", "", "Bogus"}, false, "config: Setting 'path.2.1.sysFile' is not configured"},
        {{"2", "X2", "eth1", "1", "unsupported", "", "ethernet"}, false,
         "argument: Invalid argument 'NetworkInterfaceType' = 'ethernet': Unknown network interface type"},
        {{"2", "X2", "eth1", "1", "unsupported", "", "1"}, false,
         "argument: Invalid argument 'NetworkInterfaceType' = '1': Unknown network interface type"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.outcome);
        failMac = c.failMac;
        EXPECT_EQ(Setup(Settings({good, c.line})), c.outcome);
        EXPECT_EQ(module->GetDeviceCount(), 1U);
    }
}

TEST_F(EthernetInfoSetup, BadDeviceAndPortNumbersThrowTheVectorsOutOfRange)
{
    ASSERT_EQ(Setup(Settings({{"1", "X1", "eth0", "1", "unsupported", "", "Ethernet"},
                              {"2", "X2", "eth1", "0", "unsupported", "", "Ethernet"}})),
              "");
    for (unsigned int device : {0U, 3U}) {
        EXPECT_THROW(module->GetInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module->GetMacAddress(device), std::out_of_range);
        EXPECT_THROW(module->GetPublicInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module->GetPortCount(device), std::out_of_range);
        EXPECT_THROW(module->GetInterfaceType(device), std::out_of_range);
    }
    try {
        module->GetInterfaceName(3);
        ADD_FAILURE() << "device 3 accepted";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "vector::_M_range_check: __n (which is 2) >= this->size() (which is 2)");
    }
    // Device 1 has one port, device 2 none; device 3 does not exist.
    for (auto [device, port] : {std::pair{1U, 0U}, {1U, 2U}, {2U, 1U}, {3U, 1U}}) {
        EXPECT_THROW(module->GetPortLinkState(device, port), std::out_of_range);
        EXPECT_THROW(module->GetPortLinkSpeed(device, port), std::out_of_range);
        EXPECT_THROW(module->GetPortLinkDuplex(device, port), std::out_of_range);
        EXPECT_THROW(module->GetPortPublicName(device, port), std::out_of_range);
    }
}

} // namespace
