// The built plug-in loaded the way the framework loads it: through
// SharedModuleLibraryLoader and dlopen. Type information of the module
// interfaces has to be shared across that boundary for the framework's
// dynamic_cast from IHardwareModule to work.
#include "ModuleInterfaces.hpp"

#include "Modules/Nim/Linux/ModuleLibrary.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::IHardwareModule;
using Zel::Hardware::Commons::Modules::SharedModuleLibraryLoader;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::BasicString;
using Zel::System::Commons::InvalidOperationException;
using Zel::Test::moduleInterfaces;
using ::testing::StartsWith;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

const BasicString pluginFile = ZEL_PLUGIN_FILE;

class LoadedPlugin : public ::testing::Test {
protected:
    std::vector<BasicString> Names() const { return loader.GetModuleNames(); }

    SharedModuleLibraryLoader loader{pluginFile, AppDomain::GetInstance()};
};

TEST_F(LoadedPlugin, OffersTheSameModulesAsTheLibraryItWasBuiltFrom)
{
    EXPECT_EQ(loader.GetFileName(), pluginFile);
    EXPECT_EQ(Names(), CreateHardwareModuleLibrary(AppDomain::GetInstance())->GetModuleNames());
    // A separate copy: the loaded plug-in keeps its own library object.
    EXPECT_NE(&loader.GetLibrary(), CreateHardwareModuleLibrary(AppDomain::GetInstance()));
}

TEST_F(LoadedPlugin, ASecondLoaderOfTheSameFileGetsTheSameLibraryObject)
{
    SharedModuleLibraryLoader second(pluginFile, AppDomain::GetInstance());
    EXPECT_EQ(&second.GetLibrary(), &loader.GetLibrary());
}

TEST_F(LoadedPlugin, ModulesCastToTheirInterfaceAcrossThePluginBoundary)
{
    const auto names = Names();
    if (names.empty()) {
        GTEST_SKIP() << "the plug-in registers no module yet";
    }
    for (const BasicString& name : names) {
        SCOPED_TRACE(name);
        const std::unique_ptr<IHardwareModule> module = loader.CreateModule(name);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(module->GetModuleName(), name);
        EXPECT_EQ(module->GetLibraryFileName(), pluginFile);
        EXPECT_TRUE(module->IsEnabled());
        for (const auto& interface : moduleInterfaces) {
            EXPECT_EQ(interface.implementedBy(*module), name == interface.name) << interface.name;
        }
    }
}

TEST_F(LoadedPlugin, TheProviderFindsTheLoadedEthernetInfoModuleByType)
{
    std::vector<std::unique_ptr<IHardwareModule>> modules;
    HardwareModuleProvider provider;
    IHardwareModule* ethernetInfo = nullptr;
    for (const BasicString& name : Names()) {
        modules.push_back(loader.CreateModule(name));
        provider.AddHardwareModule(*modules.back());
        if (name == moduleInterfaces[0].name) {
            ethernetInfo = modules.back().get();
        }
    }
    if (ethernetInfo == nullptr) {
        GTEST_SKIP() << "the plug-in registers no EthernetInfoModule yet";
    }

    IEthernetInfoModule* found = provider.GetHardwareModule<IEthernetInfoModule>();
    EXPECT_NE(found, nullptr);
    EXPECT_EQ(found, dynamic_cast<IEthernetInfoModule*>(ethernetInfo));
}

TEST_F(LoadedPlugin, AnUnknownModuleNameIsAnArgumentError)
{
    EXPECT_THAT([&] { (void)loader.CreateModule("Zel.Hardware.Nim.Modules.IUnknownModule"); },
                ThrowsMessage<ArgumentException>(StrEq(
                    "Invalid argument 'moduleName' = 'Zel.Hardware.Nim.Modules.IUnknownModule': Unknown module name")));
}

TEST(SharedModuleLibraryLoader, AFileThatCannotBeLoadedIsReported)
{
    EXPECT_THAT([] { SharedModuleLibraryLoader loader("/nonexistent/libZel.None.so", AppDomain::GetInstance()); },
                ThrowsMessage<InvalidOperationException>(StartsWith("Could not load library '/nonexistent/libZel.None.so': ")));
}

TEST(SharedModuleLibraryLoader, ALibraryWithoutTheEntryPointIsReported)
{
    const BasicString file = ZEL_NO_ENTRY_POINT_FILE;
    EXPECT_THAT([&] { SharedModuleLibraryLoader loader(file, AppDomain::GetInstance()); },
                ThrowsMessage<InvalidOperationException>(
                    StrEq("Library '" + file + "' has no entry point 'CreateHardwareModuleLibrary'")));
}

} // namespace
