// The built plug-in loaded the way the framework loads it: through
// SharedModuleLibraryLoader and dlopen. Type information of the module
// interfaces has to be shared across that boundary for the framework's
// dynamic_cast from IHardwareModule to work.
#include "Modules/Nim/Linux/ModuleLibrary.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpConfigModule.hpp>
#include <Zel/Hardware/Nim/Modules/IIpStatusModule.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Nim::Modules;
using namespace Zel::System::Commons;
using namespace ::testing;

const BasicString pluginFile = ZEL_PLUGIN_FILE;

TEST(LoadedPlugin, CreatesTheFourModulesByNameInOrderEachOfItsInterfaceAcrossTheBoundary)
{
    const BasicString registered[] = {"Zel.Hardware.Nim.Modules.IEthernetInfoModule",
                                      "Zel.Hardware.Nim.Modules.IIpConfigModule",
                                      "Zel.Hardware.Nim.Modules.IIpStatusModule",
                                      "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule"};
    SharedModuleLibraryLoader loader(pluginFile, AppDomain::GetInstance());
    EXPECT_EQ(loader.GetFileName(), pluginFile);
    // The library object is the plug-in's own, not the copy linked into this
    // test (that every load gets the same one is the entry point's test).
    EXPECT_NE(&loader.GetLibrary(), CreateHardwareModuleLibrary(AppDomain::GetInstance()));
    EXPECT_THAT(loader.GetModuleNames(), ElementsAreArray(registered));

    std::vector<std::unique_ptr<IHardwareModule>> modules; // released before the loader unloads the plug-in
    HardwareModuleProvider provider;
    for (const BasicString& name : registered) {
        SCOPED_TRACE(name);
        modules.push_back(loader.CreateModule(name));
        EXPECT_EQ(modules.back()->GetModuleName(), name);
        EXPECT_EQ(modules.back()->GetLibraryFileName(), pluginFile);
        EXPECT_EQ(modules.back()->GetExtendedData().GetLibraryPointer(), &loader.GetLibrary());
        provider.AddHardwareModule(*modules.back());
    }
    // The provider finds each module by the interface's name and casts it to
    // the interface; the cast needs the type information shared.
    EXPECT_NE(provider.GetHardwareModule<IEthernetInfoModule>(), nullptr);
    EXPECT_NE(provider.GetHardwareModule<IIpConfigModule>(), nullptr);
    EXPECT_NE(provider.GetHardwareModule<IIpStatusModule>(), nullptr);
    auto* registry = provider.GetHardwareModule<INetworkComponentRegistrationModule>();
    ASSERT_NE(registry, nullptr);
    registry->RegisterNetworkComponent("plc", 1); // usable without set-up
    EXPECT_EQ(registry->GetNetworkInterface("plc"), 1U);

    for (const auto& module : modules) {
        EXPECT_TRUE(module->IsEnabled()) << module->GetModuleName();
        module->Dispose();
        EXPECT_TRUE(module->IsEnabled()) << module->GetModuleName();
    }
}

} // namespace
