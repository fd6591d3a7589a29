// EthernetInfoModule parts that need no particular interfaces: the module
// frame, the table before set-up, and the text conversions of a table line.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;
using Zel::System::Commons::ArgumentException;

TEST(EthernetInfoFrame, RegistersUnderTheInterfaceNameAndNeverLogsDisposeOrEnable)
{
    Zel::Test::LogCapture capture(8);
    EthernetInfoModule module;
    EXPECT_EQ(module.GetModuleName(), "Zel.Hardware.Nim.Modules.IEthernetInfoModule");
    EXPECT_TRUE(module.IsEnabled());
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_TRUE(capture.Records().empty());
}

TEST(EthernetInfoFrame, WithoutDevicesEveryDeviceQueryIsOutOfRange)
{
    const EthernetInfoModule module;
    EXPECT_EQ(module.GetDeviceCount(), 0U);
    for (unsigned int device : {0U, 1U}) {
        EXPECT_THROW(module.GetPortCount(device), std::out_of_range);
        EXPECT_THROW(module.GetInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module.GetMacAddress(device), std::out_of_range);
        EXPECT_THROW(module.GetPublicInterfaceName(device), std::out_of_range);
        EXPECT_THROW(module.GetInterfaceType(device), std::out_of_range);
        EXPECT_THROW(module.GetPortLinkState(device, 1), std::out_of_range);
    }
}

TEST(EthernetInfoFrame, WithoutATableSetUpGivesNoDevicesWhateverIsMandatory)
{
    Zel::Test::LogCapture capture(8);
    ModuleSettings settings;
    settings.AddSetting("mandatoryInterfaces", "0x5");
    EthernetInfoModule module;
    module.SetupSettings(settings, HardwareModuleProvider());
    EXPECT_EQ(module.GetDeviceCount(), 0U);
    EXPECT_TRUE(capture.Contains(7, "Mandatory interfaces: 5"));
    // The interface list is read even without a table.
    EXPECT_TRUE(capture.Contains(7, "Found interface lo"));
}

TEST(EthernetInfoConversion, InterfaceTypeTextsAreTheFrameworkNames)
{
    const EthernetInfoModule module;
    const std::pair<const char*, NetworkInterfaceType> known[] = {
        {"Unknown", NetworkInterfaceType::Unknown},   {"Ethernet", NetworkInterfaceType::Ethernet},
        {"Fieldbus", NetworkInterfaceType::Fieldbus}, {"Service", NetworkInterfaceType::Service},
        {"Internal", NetworkInterfaceType::Internal}, {"Wireless", NetworkInterfaceType::Wireless},
    };
    for (const auto& [text, type] : known) {
        EXPECT_EQ(module.ConvertNetworkInterfaceType(text), type) << text;
    }
    for (const char* text : {"ethernet", "", "1", "Bogus"}) {
        try {
            module.ConvertNetworkInterfaceType(text);
            ADD_FAILURE() << "accepted '" << text << "'";
        } catch (const ArgumentException& e) {
            EXPECT_EQ(e.GetMessage(), ArgumentException::Create("NetworkInterfaceType", std::string(text),
                                                                "Unknown network interface type")
                                          .GetMessage());
        }
    }
}

TEST(EthernetInfoConversion, PortModesAreExactAndTheObjectCarriesItsPublicName)
{
    const EthernetInfoModule module;
    const ModuleSettings settings;
    const auto port = module.CreateEthPortInfo("unsupported", 1, 1, "eth0", settings, "X1");
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->publicName, "X1");
    EXPECT_EQ(port->GetPortLinkState(), LinkState::Unknown);
    EXPECT_EQ(port->GetPortLinkSpeed(), LinkSpeed::Unknown);
    EXPECT_EQ(port->GetPortLinkDuplex(), LinkDuplex::Unknown);

    for (const char* mode : {"SysFile", "unsupported ", ""}) {
        try {
            module.CreateEthPortInfo(mode, 1, 1, "eth0", settings, "");
            ADD_FAILURE() << "accepted '" << mode << "'";
        } catch (const ArgumentException& e) {
            EXPECT_EQ(e.GetMessage(), "Invalid argument 'mode' = '" + std::string(mode) + "': Unknown mode");
        }
    }
}

} // namespace
