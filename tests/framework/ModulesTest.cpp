// The module frame of the framework: the factory table every module library
// registers its modules in (three checks in their order, names compared byte
// for byte, a table that a failed registration leaves as it was), the typed
// lookup of the provider that answers null and never throws, and settings
// whose missing key or cell is a configuration error naming it.
#include <Zel/Hardware/Commons/Modules/HardwareModuleBase.hpp>
#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/Modules/INetworkComponentRegistrationModule.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Extensibility/ModuleFactory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::Hardware::Nim::Modules;
using namespace Zel::System::Commons;
using Zel::System::Commons::Extensibility::ModuleFactory;
using namespace ::testing;

const BasicString ethernetInfoName = "Zel.Hardware.Nim.Modules.IEthernetInfoModule";

// A module of one interface that tells which factory made it.
class RegistryStandIn : public HardwareModuleBase<INetworkComponentRegistrationModule, RegistryStandIn> {
public:
    explicit RegistryStandIn(int tag = 0) : tag(tag) {}
    void SetupSettings(const ModuleSettings&, const HardwareModuleProvider&) override {}
    void Dispose() override {}
    bool IsEnabled() const override { return true; }
    void RegisterNetworkComponent(const BasicString&, unsigned int) override {}
    void UnregisterNetworkComponent(const BasicString&) override {}
    unsigned int GetNetworkInterface(const BasicString&) const override { return 0; }
    std::vector<BasicString> GetNetworkComponents(unsigned int) const override { return {}; }
    const int tag;
};

std::unique_ptr<IHardwareModule> MakeFirst()
{
    return std::make_unique<RegistryStandIn>(1);
}
std::unique_ptr<IHardwareModule> MakeSecond()
{
    return std::make_unique<RegistryStandIn>(2);
}

int TagOf(const std::unique_ptr<IHardwareModule>& module)
{
    return dynamic_cast<const RegistryStandIn&>(*module).tag;
}

using Function = std::unique_ptr<IHardwareModule> (*)();

TEST(FactoryTable, RefusesInOrderEmptyNameEmptyFunctionDuplicateAndStaysUnchanged)
{
    const char* const emptyName = "Invalid argument 'moduleName' = '': Invalid module name";
    const char* const emptyFunction = "Invalid argument 'function' = '0x0': Invalid factory function.";
    const struct {
        BasicString name;
        Function function;
        const char* message;
    } refused[] = {
        {"", nullptr, emptyName}, // the name is checked first
        {"", MakeSecond, emptyName},
        {"Third", nullptr, emptyFunction},
        {"A", nullptr, emptyFunction}, // the function before the duplicate
        {"A", MakeSecond, "Invalid argument 'moduleName' = 'A': Duplicate module name"},
        {"B", MakeFirst, "Invalid argument 'moduleName' = 'B': Duplicate module name"},
    };
    ModuleFactory<IHardwareModule> factory;
    factory.AddFactoryFunction("A", MakeFirst);
    factory.AddFactoryFunction("B", MakeSecond);
    const auto storage = factory.GetFactoryTable().data();

    for (const auto& row : refused) {
        SCOPED_TRACE(row.message);
        EXPECT_THAT([&] { factory.AddFactoryFunction(row.name, row.function); },
                    ThrowsMessage<ArgumentException>(StrEq(row.message)));
        EXPECT_THAT(factory.GetModuleNames(), ElementsAre("A", "B"));
        EXPECT_EQ(factory.GetFactoryTable().data(), storage);
        EXPECT_EQ(TagOf(factory.CreateModule("A")), 1);
        EXPECT_EQ(TagOf(factory.CreateModule("B")), 2);
    }
    factory.AddFactoryFunction("Third", MakeFirst);
    EXPECT_THAT(factory.GetModuleNames(), ElementsAre("A", "B", "Third"));
    EXPECT_THAT([&] { (void)factory.CreateModule("a"); },
                ThrowsMessage<ArgumentException>(StrEq("Invalid argument 'moduleName' = 'a': Unknown module name")));
}

TEST(FactoryTable, NamesAreComparedByteForByte)
{
    // Each pair differs in case, length or a byte that a text comparison
    // might fold or stop at; both members of every pair are separate modules.
    const std::vector<std::pair<BasicString, BasicString>> distinct = {
        {"module", "Module"},         {"Zel.A", "zel.a"}, {"A", "A "},
        {"A", BasicString("A\0", 2)}, {"Ab", "A"},        {"\xC3\xA4", "\xC3\x84"},
    };
    for (const auto& [one, other] : distinct) {
        SCOPED_TRACE(::testing::Message() << "'" << one << "' / '" << other << "'");
        ModuleFactory<IHardwareModule> table;
        table.AddFactoryFunction(one, MakeFirst);
        EXPECT_NO_THROW(table.AddFactoryFunction(other, MakeSecond));
        EXPECT_THAT(table.GetModuleNames(), ElementsAre(one, other));
        EXPECT_EQ(TagOf(table.CreateModule(one)), 1);
        EXPECT_EQ(TagOf(table.CreateModule(other)), 2);
    }
}

TEST(HardwareModuleProvider, AnswersNullWithoutThrowingForAMissingModuleOrOneOfAnotherType)
{
    RegistryStandIn registry;
    // The registration name comes from the interface, not the implementation.
    EXPECT_EQ(registry.GetModuleName(), "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule");
    EXPECT_EQ(registry.GetLibraryFileName(), "");

    HardwareModuleProvider missing;
    missing.AddHardwareModule(registry);
    IEthernetInfoModule* found = nullptr;
    EXPECT_NO_THROW(found = missing.GetHardwareModule<IEthernetInfoModule>());
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(missing.GetHardwareModuleByName(ethernetInfoName), nullptr);
    EXPECT_EQ(missing.GetHardwareModule<INetworkComponentRegistrationModule>(), &registry);

    HardwareModuleProvider impostor;
    impostor.AddHardwareModule(ethernetInfoName, registry);
    EXPECT_NO_THROW(found = impostor.GetHardwareModule<IEthernetInfoModule>());
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(impostor.GetHardwareModuleByName(ethernetInfoName), &registry);
}

TEST(Settings, KeysAndCellsAreFoundExactlyAndAMissingOneIsAConfigurationErrorNamingIt)
{
    ModuleSettings settings;
    settings.AddSetting("mandatoryInterfaces", "eth0");
    settings.AddSetting("path.1.1.sysFile", "");
    SettingField table("interfaces");
    table.AddLine({"eth0", "X1", "Ethernet"});
    table.AddLine({"eth1"});
    settings.AddSettingField("interfaces", table);

    EXPECT_EQ(settings.GetSetting("path.1.1.sysFile") + settings.GetSetting("mandatoryInterfaces"), "eth0");
    EXPECT_FALSE(settings.HasSetting("MandatoryInterfaces") || settings.HasSettingField("Interfaces"));
    EXPECT_THAT([&] { (void)settings.GetSetting("MandatoryInterfaces"); },
                ThrowsMessage<InvalidConfigException>(StrEq("Setting 'MandatoryInterfaces' is not configured")));
    EXPECT_THAT([&] { (void)settings.GetSettingField("ports"); },
                ThrowsMessage<InvalidConfigException>(StrEq("Setting field 'ports' is not configured")));

    const SettingField& interfaces = settings.GetSettingField("interfaces");
    EXPECT_EQ(fmt::format("{} {} {} {} {}", interfaces.GetLineCount(), interfaces.GetColumnCount(1),
                          interfaces.GetSetting(1, 1), interfaces.GetSetting(1, 3), interfaces.GetSetting(2, 1)),
              "2 3 eth0 Ethernet eth1");
    const std::pair<unsigned int, unsigned int> missing[] = {{0, 1}, {1, 0}, {1, 4}, {2, 2}, {3, 1}, {0xFFFFFFFFU, 1}};
    for (const auto& [line, column] : missing) {
        EXPECT_THAT([&] { (void)interfaces.GetSetting(line, column); },
                    ThrowsMessage<InvalidConfigException>(StrEq("Setting field 'interfaces' has no line " +
                                                                std::to_string(line) + " column " +
                                                                std::to_string(column))));
    }
}

} // namespace
