// EthernetInfoModule against the real kernel: ethinfo.scenario gives the
// sandbox eth0, eth1 and eth2 (veth pairs with known MACs); eth3 does not
// exist. Set-up finds them with getifaddrs, reads their MACs with
// SIOCGIFHWADDR and builds real port objects on their sysfs and flags; the
// last test does the same through the built plug-in, as the framework would.
// The text conversions of a table line come first.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"

#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"

#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <typeinfo>

namespace {

using namespace std::chrono_literals;
using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::Exception;
using Zel::System::Commons::InvalidConfigException;
using Zel::System::Commons::InvalidOperationException;
using Line = std::vector<BasicString>;

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
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }
    void Setup(const ModuleSettings& settings) { module.SetupSettings(settings, HardwareModuleProvider()); }

    Zel::Test::LogCapture capture{8};
    EthernetInfoModule module;
};

TEST_F(EthernetInfoSetup, InterfaceTypeTextsAreTheFrameworkNames)
{
    const std::pair<const char*, NetworkInterfaceType> known[] = {
        {"Unknown", NetworkInterfaceType::Unknown},   {"Ethernet", NetworkInterfaceType::Ethernet},
        {"Fieldbus", NetworkInterfaceType::Fieldbus}, {"Service", NetworkInterfaceType::Service},
        {"Internal", NetworkInterfaceType::Internal}, {"Wireless", NetworkInterfaceType::Wireless},
    };
    for (const auto& [text, type] : known) {
        EXPECT_EQ(module.ConvertNetworkInterfaceType(text), type) << text;
    }
    EXPECT_THROW(module.ConvertNetworkInterfaceType("1"), ArgumentException) << "texts only, no numbers";
}

TEST_F(EthernetInfoSetup, PortModesAreExactAndTheObjectCarriesItsPublicName)
{
    const auto port = module.CreateEthPortInfo("unsupported", 1, 1, "eth0", ModuleSettings(), "X1");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->publicName, "X1");
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(static_cast<int>(port->GetPortLinkSpeed()), 0) << "unknown speed is 0, unknown state 255";
    EXPECT_THROW(module.CreateEthPortInfo("unsupported ", 1, 1, "eth0", ModuleSettings(), ""), ArgumentException);
}

TEST_F(EthernetInfoSetup, EachLineBecomesADeviceWithKernelMacAndPortObjects)
{
    ModuleSettings settings = Settings({{"1", "X1", "eth0", "2", "sysFile", "P1; P2", "Ethernet"},
                                        {"0x2", "X2", "eth1", "1", "i210Driver", "", "Fieldbus"},
                                        {"3", "X3", "eth2", "0", "unsupported", "", "Service"}});
    settings.AddSetting("path.1.1.sysFile", "/sys/class/net/eth0/");
    settings.AddSetting("path.1.2.sysFile", "/sys/class/net/eth0/");
    Setup(settings);

    ASSERT_EQ(module.GetDeviceCount(), 3U);
    EXPECT_EQ(module.GetInterfaceName(1), "eth0");
    EXPECT_EQ(module.GetPublicInterfaceName(2), "X2");
    EXPECT_EQ(module.GetMacAddress(1), "02:0A:1B:2C:3D:4E");
    EXPECT_EQ(module.GetMacAddress(2), "00:A0:45:1B:2C:3D");
    EXPECT_EQ(module.GetInterfaceType(2), NetworkInterfaceType::Fieldbus);
    EXPECT_EQ(module.GetPortCount(1), 2U);
    EXPECT_EQ(module.GetPortCount(3), 0U);
    EXPECT_EQ(module.GetPortPublicName(1, 2), "P2");
    EXPECT_EQ(module.GetPortPublicName(2, 1), "");

    EXPECT_TRUE(capture.Contains(7, "Found interface eth2"));
    EXPECT_TRUE(capture.Contains(7, "interfaces in config: 3:"));
    // The seven columns as written, the index column first.
    EXPECT_TRUE(capture.Contains(7, "Device 0x2: X2, eth1, 1, i210Driver, , Fieldbus"));
    EXPECT_TRUE(capture.Contains(7, "interfaces 1: port count = 2, mode = 'sysFile'"));
    EXPECT_TRUE(capture.Contains(8, "Ethernet Device 1: Public Name 'X1', Name 'eth0', MAC 02:0A:1B:2C:3D:4E, 2 Ports."));
    // The interface type's value appears under the words "port count".
    EXPECT_TRUE(capture.Contains(7, "Ethernet Device 1: port count = 1"));
    EXPECT_TRUE(capture.Contains(7, "Ethernet Device 3: port count = 3"));
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.EthernetInfoModule") << record.text;
    }
}

TEST_F(EthernetInfoSetup, BadDeviceAndPortNumbersThrowTheVectorsOutOfRange)
{
    Setup(Settings({{"1", "X1", "eth0", "1", "unsupported", "", "Ethernet"},
                    {"2", "X2", "eth1", "0", "unsupported", "", "Ethernet"}}));
    EXPECT_EQ(module.GetInterfaceName(2), "eth1");
    for (unsigned int device : {0U, 3U}) {
        EXPECT_THROW(module.GetInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module.GetMacAddress(device), std::out_of_range);
        EXPECT_THROW(module.GetPublicInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module.GetPortCount(device), std::out_of_range);
        EXPECT_THROW(module.GetInterfaceType(device), std::out_of_range);
    }
    try {
        module.GetInterfaceName(3);
        ADD_FAILURE() << "device 3 accepted";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "vector::_M_range_check: __n (which is 2) >= this->size() (which is 2)");
    }
    // Device 1 has one port, device 2 none; device 3 does not exist.
    for (auto [device, port] : {std::pair{1U, 0U}, {1U, 2U}, {2U, 1U}, {3U, 1U}}) {
        EXPECT_THROW(module.GetPortLinkState(device, port), std::out_of_range);
        EXPECT_THROW(module.GetPortLinkSpeed(device, port), std::out_of_range);
        EXPECT_THROW(module.GetPortLinkDuplex(device, port), std::out_of_range);
        EXPECT_THROW(module.GetPortPublicName(device, port), std::out_of_range);
    }
}

// eth3 is missing: the table ends there, and only a mandatory count reaching
// line 2 makes that an error. Line 3 is never examined (its mode is bad).
TEST_F(EthernetInfoSetup, AMissingInterfaceEndsTheTableAndFailsOnlyWhenMandatory)
{
    const std::vector<Line> lines = {{"1", "X1", "eth0", "0", "unsupported", "", "Ethernet"},
                                     {"2", "X2", "eth3", "0", "unsupported", "", "Ethernet"},
                                     {"3", "X3", "eth1", "1", "Bogus", "", "Bogus"}};
    const struct {
        const char* mandatory;
        bool fails;
    } cases[] = {{nullptr, false}, {"1", false}, {"2", true}, {"0x2", true}, {"3", true}};
    for (const auto& c : cases) {
        EthernetInfoModule fresh;
        SCOPED_TRACE(c.mandatory == nullptr ? "absent" : c.mandatory);
        try {
            fresh.SetupSettings(Settings(lines, c.mandatory), HardwareModuleProvider());
            EXPECT_FALSE(c.fails);
        } catch (const InvalidOperationException& e) {
            EXPECT_TRUE(c.fails);
            EXPECT_EQ(e.GetMessage(), "Could not find interface eth3");
        }
        EXPECT_EQ(fresh.GetDeviceCount(), 1U);
    }

    // A table that runs to its end, or no table, is never held against the count.
    Setup(Settings({lines[0]}, "9"));
    EXPECT_EQ(module.GetDeviceCount(), 1U);
    ModuleSettings noTable;
    noTable.AddSetting("mandatoryInterfaces", "0x5");
    EthernetInfoModule fresh;
    capture.Sink().Clear();
    fresh.SetupSettings(noTable, HardwareModuleProvider());
    EXPECT_EQ(fresh.GetDeviceCount(), 0U);
    EXPECT_TRUE(capture.Contains(7, "Mandatory interfaces: 5"));
    EXPECT_TRUE(capture.Contains(7, "Found interface lo")) << "the interface list is read even without a table";
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
        EthernetInfoModule fresh;
        fresh.SetupSettings(Settings({{"1", "X1", "eth0", c.portCount, "unsupported", c.names, "Ethernet"}}),
                            HardwareModuleProvider());
        ASSERT_EQ(fresh.GetPortCount(1), c.expected.size());
        for (unsigned int port = 1; port <= c.expected.size(); ++port) {
            EXPECT_EQ(fresh.GetPortPublicName(1, port), c.expected[port - 1]);
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
        const std::type_info& type;
        const char* message;
    } cases[] = {
        {{"3", "X2", "eth3", "0", "unsupported", "", "Ethernet"}, typeid(InvalidConfigException),
         "Wrong interface index 3 found, expected 2"},
        {{"2", "X2", "eth1", "2", "SysFile", "X1", "Bogus"}, typeid(InvalidConfigException),
         "Number of port names 1 does not match port count! 2"},
        {{"2", "X2", "eth1", "1", "SysFile", "", "Bogus"}, typeid(ArgumentException),
         "Invalid argument 'mode' = 'SysFile': Unknown mode"},
        {{"2", "X2", "eth1", "1", "sysFile", "", "Bogus"}, typeid(InvalidConfigException),
         "Setting 'path.2.1.sysFile' is not configured"},
        {{"2", "X2", "eth1", "1", "unsupported", "", "ethernet"}, typeid(ArgumentException),
         "Invalid argument 'NetworkInterfaceType' = 'ethernet': Unknown network interface type"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        EthernetInfoModule fresh;
        try {
            fresh.SetupSettings(Settings({good, c.line}), HardwareModuleProvider());
            ADD_FAILURE() << "set-up succeeded";
        } catch (const Exception& e) {
            EXPECT_EQ(typeid(e), c.type);
            EXPECT_EQ(e.GetMessage(), c.message);
        }
        EXPECT_EQ(fresh.GetDeviceCount(), 1U);
    }
}

TEST_F(EthernetInfoSetup, InterfaceListIsTheKernelsCurrentOne)
{
    Zel::Test::NetSandbox().Veth("eth9", "eth9p").Up();
    Setup(Settings({{"1", "X9", "eth9", "0", "unsupported", "", "Ethernet"}}));

    const auto has = [this](const char* name) {
        const std::vector<BasicString> names = module.GetListOfInterfaceNames();
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    EXPECT_EQ(module.GetListOfInterfaceNames().front(), "lo");
    EXPECT_TRUE(has("eth2")) << "not configured";
    EXPECT_TRUE(has("eth9"));
    Zel::Test::NetSandbox().Delete("eth9");
    EXPECT_FALSE(has("eth9"));
    EXPECT_TRUE(has("lo"));
    EXPECT_EQ(module.GetInterfaceName(1), "eth9") << "the table is not re-read";
}

TEST_F(EthernetInfoSetup, PortLinkStateFollowsTheCable)
{
    ModuleSettings settings = Settings({{"1", "X1", "eth0", "1", "sysFile", "", "Ethernet"},
                                        {"2", "X2", "eth2", "1", "i210Driver", "", "Ethernet"}});
    settings.AddSetting("path.1.1.sysFile", "/sys/class/net/eth0/");
    Setup(settings);

    auto stateIs = [this](unsigned int device, LinkState state) {
        return Zel::Test::WaitUntil([&] { return module.GetPortLinkState(device, 1) == state; }, 5s);
    };
    EXPECT_TRUE(stateIs(1, LinkState::Up));
    EXPECT_TRUE(stateIs(2, LinkState::Up));
    // veth reports 10000 Mbit/s, which is none of the three known speeds.
    EXPECT_EQ(module.GetPortLinkSpeed(1, 1), LinkSpeed::Unknown);
    EXPECT_EQ(module.GetPortLinkDuplex(1, 1), LinkDuplex::Full);

    Zel::Test::NetSandbox().SetLinkDown("eth2p");
    EXPECT_TRUE(stateIs(2, LinkState::Down));
}

TEST_F(EthernetInfoSetup, I210EthtoolSpeedAndDuplexPassThrough)
{
    Setup(Settings({{"1", "X1", "eth1", "1", "i210Driver", "", "Ethernet"}}));
    EXPECT_EQ(module.GetPortLinkSpeed(1, 1), LinkSpeed::Unknown);
    EXPECT_EQ(module.GetPortLinkDuplex(1, 1), LinkDuplex::Full);
}

TEST_F(EthernetInfoSetup, ThePluginCreatesTheModuleByNameAndSetsItUpFromModuleSettings)
{
    using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
    Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader loader(
        ZEL_NIM_PLUGIN_FILE, Zel::System::Commons::AppDomain::GetInstance());
    auto created = loader.CreateModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule");
    auto* info = dynamic_cast<IEthernetInfoModule*>(created.get());
    ASSERT_NE(info, nullptr);
    ModuleSettings settings = Settings({{"1", "X1", "eth0", "1", "sysFile", "P1", "Fieldbus"}}, "1");
    settings.AddSetting("path.1.1.sysFile", "/sys/class/net/eth0/");
    info->SetupSettings(settings, HardwareModuleProvider());

    EXPECT_EQ(info->GetDeviceCount(), 1U);
    EXPECT_EQ(info->GetMacAddress(1), "02:0A:1B:2C:3D:4E");
    EXPECT_EQ(info->GetInterfaceType(1), NetworkInterfaceType::Fieldbus);
    EXPECT_EQ(info->GetPortPublicName(1, 1), "P1");
    EXPECT_TRUE(Zel::Test::WaitUntil([&] { return info->GetPortLinkState(1, 1) == LinkState::Up; }, 5s));
    // The plug-in logs through the host's log manager.
    EXPECT_TRUE(capture.Contains(8, "Ethernet Device 1: Public Name 'X1', Name 'eth0', MAC 02:0A:1B:2C:3D:4E, 1 Ports."));
    info->Dispose();
    created.reset(); // before the loader unloads the library
}

} // namespace
