// The module frame of the framework: the factory table every module library
// registers its modules in (three checks in their order, names compared byte
// for byte, a table that a failed registration leaves as it was) and settings
// whose missing key or cell is a configuration error naming it. The typed
// lookup of the provider, null for a missing module or one of another type,
// is pinned through the IP configuration module's set-up (IpStatusTest).
#include "StandInEthernetInfo.hpp"

#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
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

using Zel::Test::StandInEthernetInfo;

// Modules that tell which factory made them by their device count.
template <unsigned int Tag>
std::unique_ptr<IHardwareModule> Make()
{
    return std::make_unique<StandInEthernetInfo>(std::vector<BasicString>(Tag, "a"),
                                                 StandInEthernetInfo::BadNumber::Throws);
}

unsigned int TagOf(const std::unique_ptr<IHardwareModule>& module)
{
    return dynamic_cast<const IEthernetInfoModule&>(*module).GetDeviceCount();
}

TEST(FactoryTable, RefusesInOrderEmptyNameEmptyFunctionDuplicateAndStaysUnchanged)
{
    const char* const emptyName = "Invalid argument 'moduleName' = '': Invalid module name";
    const char* const emptyFunction = "Invalid argument 'function' = '0x0': Invalid factory function.";
    const struct {
        BasicString name;
        ModuleFactory<IHardwareModule>::FactoryFunction function;
        const char* message;
    } refused[] = {
        {"", nullptr, emptyName}, // the name is checked first
        {"", Make<2>, emptyName},
        {"Third", nullptr, emptyFunction},
        {"A", nullptr, emptyFunction}, // the function before the duplicate
        {"A", Make<2>, "Invalid argument 'moduleName' = 'A': Duplicate module name"},
        {"B", Make<1>, "Invalid argument 'moduleName' = 'B': Duplicate module name"},
    };
    ModuleFactory<IHardwareModule> factory;
    factory.AddFactoryFunction("A", Make<1>);
    factory.AddFactoryFunction("B", Make<2>);
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
    factory.AddFactoryFunction("Third", Make<1>);
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
        table.AddFactoryFunction(one, Make<1>);
        EXPECT_NO_THROW(table.AddFactoryFunction(other, Make<2>));
        EXPECT_THAT(table.GetModuleNames(), ElementsAre(one, other));
        EXPECT_EQ(TagOf(table.CreateModule(one)), 1);
        EXPECT_EQ(TagOf(table.CreateModule(other)), 2);
    }
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
    // A missing key's message is pinned through the Ethernet module's set-up
    // (ethinfo's setups.cases).
    EXPECT_FALSE(settings.HasSetting("MandatoryInterfaces") || settings.HasSettingField("Interfaces"));
    EXPECT_THAT([&] { (void)settings.GetSettingField("ports"); },
                ThrowsMessage<InvalidConfigException>(StrEq("Setting field 'ports' is not configured")));

    const SettingField& interfaces = settings.GetSettingField("interfaces");
    EXPECT_EQ(fmt::format("{} {} {} {} {} {} {}", interfaces.GetLineCount(), interfaces.GetColumnCount(0),
                          interfaces.GetColumnCount(1), interfaces.GetColumnCount(3), interfaces.GetSetting(1, 1),
                          interfaces.GetSetting(1, 3), interfaces.GetSetting(2, 1)),
              "2 0 3 0 eth0 Ethernet eth1");
    const std::pair<unsigned int, unsigned int> missing[] = {{0, 1}, {1, 0}, {1, 4}, {2, 2}, {3, 1}, {0xFFFFFFFFU, 1}};
    for (const auto& [line, column] : missing) {
        EXPECT_THAT([&] { (void)interfaces.GetSetting(line, column); },
                    ThrowsMessage<InvalidConfigException>(StrEq("Setting field 'interfaces' has no line " +
                                                                std::to_string(line) + " column " +
                                                                std::to_string(column))));
    }
}

} // namespace
