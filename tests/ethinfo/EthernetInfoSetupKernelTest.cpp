// EthernetInfoModule against the real kernel: ethinfo.scenario gives the
// sandbox eth0, eth1 and eth2 (veth pairs with known MACs). Set-up finds them
// with getifaddrs, reads their MACs with SIOCGIFHWADDR and builds real port
// objects on their sysfs and flags, through the built plug-in as the
// framework would. The table rules are in EthernetInfoSetupTest.cpp.
#include "Modules/Nim/Linux/EthernetInfoModule.hpp"

#include "MemoryLogSink.hpp"
#include "Sandbox.hpp"

#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace std::chrono_literals;
using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Nim;
using namespace Zel::Test;
using Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule;

class EthernetInfoSetup : public ::testing::Test {
protected:
    void SetUp() override { ZEL_REQUIRE_SANDBOX(); }

    LogCapture capture{8};
};

TEST_F(EthernetInfoSetup, ThePluginBuildsDevicesFromTheKernelsInterfacesAndPorts)
{
    using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
    SharedModuleLibraryLoader loader(ZEL_NIM_PLUGIN_FILE, Zel::System::Commons::AppDomain::GetInstance());
    auto created = loader.CreateModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule");
    auto* info = dynamic_cast<IEthernetInfoModule*>(created.get());
    ASSERT_NE(info, nullptr);
    ModuleSettings settings;
    settings.AddSetting("mandatoryInterfaces", "3");
    SettingField table("interfaces");
    table.AddLine({"1", "X1", "eth0", "1", "sysFile", "P1", "Fieldbus"});
    table.AddLine({"2", "X2", "eth1", "1", "i210Driver", "", "Ethernet"});
    table.AddLine({"3", "X3", "eth2", "1", "i210Driver", "", "Ethernet"});
    settings.AddSettingField("interfaces", table);
    settings.AddSetting("path.1.1.sysFile", "/sys/class/net/eth0/");
    info->SetupSettings(settings, HardwareModuleProvider());

    ASSERT_EQ(info->GetDeviceCount(), 3U);
    // Device 1's MAC is in its log line below; 0xA0 is read as unsigned.
    EXPECT_EQ(info->GetMacAddress(2), "00:A0:45:1B:2C:3D");
    auto stateIs = [&](unsigned int device, LinkState state) {
        return WaitUntil([&] { return info->GetPortLinkState(device, 1) == state; }, 5s);
    };
    EXPECT_TRUE(stateIs(1, LinkState::Up));
    EXPECT_TRUE(stateIs(3, LinkState::Up));
    // A peer going down is a pulled cable: the I210 port judges the running
    // flag (down) although the interface is up. The sysfs port's "unknown"
    // for it and "down" for a downed interface are pinned by nimhost's watch
    // tests, which read the same port through the plug-in.
    NetSandbox().SetLinkDown("eth2p");
    EXPECT_TRUE(stateIs(3, LinkState::Down));
    EXPECT_NE(RunOutput("ip -o link show dev eth2").find(",UP"), std::string::npos);

    // The plug-in logs through the host's log manager.
    EXPECT_TRUE(
        capture.Contains(8, "Ethernet Device 1: Public Name 'X1', Name 'eth0', MAC 02:0A:1B:2C:3D:4E, 1 Ports."));
    info->Dispose();
    created.reset(); // before the loader unloads the library
}

// The list is read afresh at each call, in the kernel's order of the links.
TEST_F(EthernetInfoSetup, TheInterfaceListIsTheKernelsCurrentOne)
{
    const EthernetInfoModule module;
    NetSandbox().Veth("eth9", "eth9p").Up();
    EXPECT_EQ(fmt::format("{}", fmt::join(module.GetListOfInterfaceNames(), " ")),
              "lo eth0p eth0 eth1p eth1 eth2p eth2 eth9p eth9");
    NetSandbox().Ip("link del dev eth9");
    EXPECT_EQ(fmt::format("{}", fmt::join(module.GetListOfInterfaceNames(), " ")),
              "lo eth0p eth0 eth1p eth1 eth2p eth2");
}

} // namespace
