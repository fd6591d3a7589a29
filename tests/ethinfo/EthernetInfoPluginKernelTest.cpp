// The built plug-in as the controller's framework uses it: load the shared
// library, create the Ethernet information module by its registration name,
// set it up from ModuleSettings on the sandbox's eth0, query, dispose, delete.
#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::IHardwareModule;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;

TEST(EthernetInfoPlugin, ModuleIsCreatedByNameAndSetUpThroughTheLoadedLibrary)
{
    ZEL_REQUIRE_SANDBOX();
    Zel::Test::LogCapture capture(8);
    const char* const name = "Zel.Hardware.Nim.Modules.IEthernetInfoModule";

    SharedModuleLibraryLoader loader(ZEL_NIM_PLUGIN_FILE, Zel::System::Commons::AppDomain::GetInstance());
    const auto names = loader.GetModuleNames();
    ASSERT_FALSE(names.empty());
    EXPECT_EQ(names.front(), name);

    std::unique_ptr<IHardwareModule> module = loader.CreateModule(name);
    auto* info = dynamic_cast<IEthernetInfoModule*>(module.get());
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->GetModuleName(), name);
    EXPECT_EQ(info->GetLibraryFileName(), loader.GetFileName());

    ModuleSettings settings;
    settings.AddSetting("mandatoryInterfaces", "1");
    settings.AddSetting("path.1.1.sysFile", "/sys/class/net/eth0/");
    SettingField table("interfaces");
    table.AddLine({"1", "X1", "eth0", "1", "sysFile", "P1", "Fieldbus"});
    settings.AddSettingField("interfaces", table);
    info->SetupSettings(settings, HardwareModuleProvider());

    EXPECT_EQ(info->GetDeviceCount(), 1U);
    EXPECT_EQ(info->GetInterfaceName(1), "eth0");
    EXPECT_EQ(info->GetMacAddress(1), "02:0A:1B:2C:3D:4E");
    EXPECT_EQ(info->GetInterfaceType(1), NetworkInterfaceType::Fieldbus);
    EXPECT_EQ(info->GetPortPublicName(1, 1), "P1");
    EXPECT_TRUE(Zel::Test::WaitUntil([&] { return info->GetPortLinkState(1, 1) == LinkState::Up; }, 5s));
    EXPECT_EQ(info->GetPortLinkDuplex(1, 1), LinkDuplex::Full);
    EXPECT_THROW(info->GetPortCount(2), std::out_of_range);
    // The plug-in logs through the host's log manager.
    EXPECT_TRUE(capture.Contains(8, "Ethernet Device 1: Public Name 'X1', Name 'eth0', MAC 02:0A:1B:2C:3D:4E, 1 Ports."));

    info->Dispose();
    EXPECT_TRUE(info->IsEnabled());
    module.reset(); // before the loader unloads the library
}

} // namespace
