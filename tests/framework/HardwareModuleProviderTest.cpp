// How one module finds another: lookup by registration name, and the typed
// lookup that answers null (and never throws) when the module is missing or
// is not of the interface asked for.
#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleBase;
using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Nim::LinkDuplex;
using Zel::Hardware::Nim::LinkSpeed;
using Zel::Hardware::Nim::LinkState;
using Zel::Hardware::Nim::NetworkInterfaceType;
using Zel::Hardware::Nim::Modules::IEthernetInfoModule;
using Zel::Hardware::Nim::Modules::INetworkComponentRegistrationModule;
using Zel::System::Commons::BasicString;

const BasicString ethernetInfoName = "Zel.Hardware.Nim.Modules.IEthernetInfoModule";

// Stand-ins for modules of two interfaces; the provider only sees their types.
class EthernetInfoStandIn : public HardwareModuleBase<IEthernetInfoModule, EthernetInfoStandIn> {
public:
    void SetupSettings(const ModuleSettings&, const HardwareModuleProvider&) override {}
    void Dispose() override {}
    bool IsEnabled() const override { return true; }
    unsigned int GetDeviceCount() const override { return 0; }
    unsigned int GetPortCount(unsigned int) const override { throw std::out_of_range("device"); }
    BasicString GetInterfaceName(unsigned int) const override { throw std::out_of_range("device"); }
    BasicString GetMacAddress(unsigned int) const override { throw std::out_of_range("device"); }
    LinkState GetPortLinkState(unsigned int, unsigned int) const override { return LinkState::Unknown; }
    LinkSpeed GetPortLinkSpeed(unsigned int, unsigned int) const override { return LinkSpeed::Unknown; }
    LinkDuplex GetPortLinkDuplex(unsigned int, unsigned int) const override { return LinkDuplex::Unknown; }
    BasicString GetPublicInterfaceName(unsigned int) const override { throw std::out_of_range("device"); }
    BasicString GetPortPublicName(unsigned int, unsigned int) const override { throw std::out_of_range("device"); }
    NetworkInterfaceType GetInterfaceType(unsigned int) const override { return NetworkInterfaceType::Unknown; }
    std::vector<BasicString> GetListOfInterfaceNames() const override { return {}; }
};

class RegistryStandIn : public HardwareModuleBase<INetworkComponentRegistrationModule, RegistryStandIn> {
public:
    void SetupSettings(const ModuleSettings&, const HardwareModuleProvider&) override {}
    void Dispose() override {}
    bool IsEnabled() const override { return true; }
    void RegisterNetworkComponent(const BasicString&, unsigned int) override {}
    void UnregisterNetworkComponent(const BasicString&) override {}
    unsigned int GetNetworkInterface(const BasicString&) const override { return 0; }
    std::vector<BasicString> GetNetworkComponents(unsigned int) const override { return {}; }
};

TEST(HardwareModuleProvider, AnswersNullWithoutThrowingWhenNoModuleHasTheName)
{
    HardwareModuleProvider provider;
    RegistryStandIn registry;
    provider.AddHardwareModule(registry);

    EthernetInfoStandIn notAdded;
    IEthernetInfoModule* found = &notAdded;
    EXPECT_NO_THROW(found = provider.GetHardwareModule<IEthernetInfoModule>());
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(provider.GetHardwareModuleByName(ethernetInfoName), nullptr);
    EXPECT_EQ(provider.GetHardwareModuleByName(""), nullptr);
}

TEST(HardwareModuleProvider, AnswersNullWhenTheModuleOfThatNameHasAnotherType)
{
    HardwareModuleProvider provider;
    RegistryStandIn impostor;
    provider.AddHardwareModule(ethernetInfoName, impostor);

    IEthernetInfoModule* found = nullptr;
    EXPECT_NO_THROW(found = provider.GetHardwareModule<IEthernetInfoModule>());
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(provider.GetHardwareModuleByName(ethernetInfoName), &impostor);
}

TEST(HardwareModuleProvider, FindsAModuleByTheNameOfItsInterface)
{
    HardwareModuleProvider provider;
    EthernetInfoStandIn ethernetInfo;
    RegistryStandIn registry;
    provider.AddHardwareModule(ethernetInfo);
    provider.AddHardwareModule(registry);

    EXPECT_EQ(provider.GetHardwareModule<IEthernetInfoModule>(), &ethernetInfo);
    EXPECT_EQ(provider.GetHardwareModule<INetworkComponentRegistrationModule>(), &registry);
    EXPECT_EQ(provider.GetHardwareModuleByName(ethernetInfoName), &ethernetInfo);
}

TEST(HardwareModuleBase, TheRegistrationNameComesFromTheInterfaceNotTheImplementation)
{
    EthernetInfoStandIn module;
    EXPECT_EQ(module.GetModuleName(), ethernetInfoName);
    // One static string per module class, handed out by reference.
    using Base = HardwareModuleBase<IEthernetInfoModule, EthernetInfoStandIn>;
    EXPECT_EQ(&module.GetModuleName(), &Base::moduleName);
    EXPECT_EQ(RegistryStandIn().GetModuleName(), "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule");
}

TEST(HardwareModuleBase, AModuleNotCreatedThroughALibraryHasNoLibraryFileName)
{
    EthernetInfoStandIn module;
    EXPECT_EQ(module.GetExtendedData().GetLibraryPointer(), nullptr);
    EXPECT_EQ(module.GetLibraryFileName(), "");
}

} // namespace
