// The plug-in's library object as its entry point hands it out: the module
// names computed from the interfaces, the factories in registration order,
// and modules that are what their name says.
#include "ModuleInterfaces.hpp"

#include "Modules/Nim/Linux/ModuleLibrary.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleName.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using Zel::Hardware::Commons::Modules::GetModuleNameOf;
using Zel::Hardware::Commons::Modules::HardwareModuleLibraryBase;
using Zel::Hardware::Commons::Modules::IHardwareModule;
using Zel::Hardware::Modules::Nim::Linux::ModuleLibrary;
using Zel::System::Commons::AppDomain;
using Zel::System::Commons::BasicString;
using Zel::Test::moduleInterfaces;
using ::testing::ElementsAre;

HardwareModuleLibraryBase& Library()
{
    return *CreateHardwareModuleLibrary(AppDomain::GetInstance());
}

TEST(ModuleNames, AreTheDottedNamesOfTheModuleInterfaces)
{
    using namespace Zel::Hardware::Nim::Modules;
    EXPECT_EQ(GetModuleNameOf<IEthernetInfoModule>(), "Zel.Hardware.Nim.Modules.IEthernetInfoModule");
    EXPECT_EQ(GetModuleNameOf<IIpConfigModule>(), "Zel.Hardware.Nim.Modules.IIpConfigModule");
    EXPECT_EQ(GetModuleNameOf<IIpStatusModule>(), "Zel.Hardware.Nim.Modules.IIpStatusModule");
    EXPECT_EQ(GetModuleNameOf<INetworkComponentRegistrationModule>(),
              "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule");
}

TEST(ModuleLibrary, IsTheLibraryObjectTheEntryPointReturns)
{
    HardwareModuleLibraryBase* library = CreateHardwareModuleLibrary(AppDomain::GetInstance());
    ASSERT_NE(library, nullptr);
    EXPECT_NE(dynamic_cast<ModuleLibrary*>(library), nullptr);
    EXPECT_EQ(CreateHardwareModuleLibrary(AppDomain::GetInstance()), library);
}

TEST(ModuleLibrary, RegistersTheFourModulesInOrder)
{
    EXPECT_THAT(Library().GetModuleNames(),
                ElementsAre(moduleInterfaces[0].name, moduleInterfaces[1].name, moduleInterfaces[2].name,
                            moduleInterfaces[3].name));
}

TEST(ModuleLibrary, EveryFactoryIsAPlainFunction)
{
    using PlainFactory = std::unique_ptr<IHardwareModule> (*)();
    for (const auto& [name, factory] : Library().GetFactoryTable()) {
        EXPECT_NE(factory.target<PlainFactory>(), nullptr) << name;
    }
}

TEST(ModuleLibrary, EachModuleIsOfTheInterfaceItIsRegisteredUnder)
{
    for (const BasicString& name : Library().GetModuleNames()) {
        SCOPED_TRACE(name);
        const std::unique_ptr<IHardwareModule> module = Library().CreateHardwareModule(name);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(module->GetModuleName(), name);
        EXPECT_EQ(module->GetExtendedData().GetLibraryPointer(), &Library());
        for (const auto& interface : moduleInterfaces) {
            EXPECT_EQ(interface.implementedBy(*module), name == interface.name) << interface.name;
        }
    }
}

TEST(ModuleLibrary, EveryModuleStaysEnabledAfterDispose)
{
    for (const BasicString& name : Library().GetModuleNames()) {
        SCOPED_TRACE(name);
        const std::unique_ptr<IHardwareModule> module = Library().CreateHardwareModule(name);
        EXPECT_TRUE(module->IsEnabled());
        module->Dispose();
        EXPECT_TRUE(module->IsEnabled());
    }
}

} // namespace
