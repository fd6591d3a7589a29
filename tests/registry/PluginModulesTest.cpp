// The four modules created by name through the plug-in as the host loads it
// (dlopen and its one exported entry point).
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::IHardwareModule;
using Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::BasicString;
namespace Nim = Zel::Hardware::Nim::Modules;

const std::vector<BasicString> registrationOrder = {
    "Zel.Hardware.Nim.Modules.IEthernetInfoModule",
    "Zel.Hardware.Nim.Modules.IIpConfigModule",
    "Zel.Hardware.Nim.Modules.IIpStatusModule",
    "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule",
};

TEST(PluginModules, FourFactoriesInRegistrationOrder)
{
    SharedModuleLibraryLoader loader(ZEL_NIM_PLUGIN_FILE, AppDomain::GetInstance());
    EXPECT_EQ(loader.GetModuleNames(), registrationOrder);
}

TEST(PluginModules, EachModuleIsCreatedByNameWithItsInterface)
{
    SharedModuleLibraryLoader loader(ZEL_NIM_PLUGIN_FILE, AppDomain::GetInstance());
    // Modules go before the loader, which unloads the plug-in.
    std::vector<std::unique_ptr<IHardwareModule>> modules;
    for (const auto& name : registrationOrder) {
        SCOPED_TRACE(name);
        modules.push_back(loader.CreateModule(name));
        ASSERT_NE(modules.back(), nullptr);
        EXPECT_EQ(modules.back()->GetModuleName(), name);
        EXPECT_EQ(modules.back()->GetLibraryFileName(), loader.GetFileName());
    }
    EXPECT_NE(dynamic_cast<Nim::IEthernetInfoModule*>(modules[0].get()), nullptr);
    EXPECT_NE(dynamic_cast<Nim::IIpConfigModule*>(modules[1].get()), nullptr);
    EXPECT_NE(dynamic_cast<Nim::IIpStatusModule*>(modules[2].get()), nullptr);
    auto* registry = dynamic_cast<Nim::INetworkComponentRegistrationModule*>(modules[3].get());
    ASSERT_NE(registry, nullptr);

    // The registry stands alone: usable across the boundary without set-up.
    registry->RegisterNetworkComponent("plc", 1);
    EXPECT_EQ(registry->GetNetworkInterface("plc"), 1u);
    EXPECT_TRUE(modules[2]->IsEnabled());
    EXPECT_TRUE(modules[3]->IsEnabled());
}

} // namespace
