// Module settings as a board configuration hands them to a module: a missing
// key or table cell is a configuration error that names what is missing; an
// empty value is a value.
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/Hardware/Commons/Modules/SettingField.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Commons::Modules::SettingField;
using Zel::System::Commons::InvalidConfigException;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

class Settings : public ::testing::Test {
protected:
    void SetUp() override
    {
        settings.AddSetting("mandatoryInterfaces", "eth0");
        settings.AddSetting("path.1.1.sysFile", "");
        SettingField interfaces("interfaces");
        interfaces.AddLine({"eth0", "X1", "Ethernet"});
        interfaces.AddLine({"eth1"});
        settings.AddSettingField("interfaces", interfaces);
    }

    ModuleSettings settings;
};

TEST_F(Settings, AMissingKeyIsAConfigurationErrorNamingTheKey)
{
    EXPECT_FALSE(settings.HasSetting("path.1.spi"));
    EXPECT_THAT([&] { (void)settings.GetSetting("path.1.spi"); },
                ThrowsMessage<InvalidConfigException>(StrEq("Setting 'path.1.spi' is not configured")));
    EXPECT_THAT([&] { (void)settings.GetSettingField("ports"); },
                ThrowsMessage<InvalidConfigException>(StrEq("Setting field 'ports' is not configured")));
}

TEST_F(Settings, AConfiguredEmptyValueIsReturnedAsItIs)
{
    EXPECT_TRUE(settings.HasSetting("path.1.1.sysFile"));
    EXPECT_EQ(settings.GetSetting("path.1.1.sysFile"), "");
    EXPECT_EQ(settings.GetSetting("mandatoryInterfaces"), "eth0");
}

TEST_F(Settings, KeysAreCaseSensitive)
{
    EXPECT_FALSE(settings.HasSetting("MandatoryInterfaces"));
    EXPECT_FALSE(settings.HasSettingField("Interfaces"));
    EXPECT_THROW((void)settings.GetSetting("MandatoryInterfaces"), InvalidConfigException);
}

TEST_F(Settings, TableCellsAreCountedFromOne)
{
    const SettingField& interfaces = settings.GetSettingField("interfaces");
    EXPECT_EQ(interfaces.GetLineCount(), 2U);
    EXPECT_EQ(interfaces.GetColumnCount(1), 3U);
    EXPECT_EQ(interfaces.GetColumnCount(2), 1U);
    EXPECT_EQ(interfaces.GetSetting(1, 1), "eth0");
    EXPECT_EQ(interfaces.GetSetting(1, 3), "Ethernet");
    EXPECT_EQ(interfaces.GetSetting(2, 1), "eth1");
}

TEST_F(Settings, AMissingCellIsAConfigurationErrorNamingFieldLineAndColumn)
{
    const SettingField& interfaces = settings.GetSettingField("interfaces");
    const struct {
        unsigned int line;
        unsigned int column;
    } missing[] = {{0, 1}, {1, 0}, {1, 4}, {2, 2}, {3, 1}, {0xFFFFFFFFU, 1}};
    for (const auto& cell : missing) {
        const std::string expected = "Setting field 'interfaces' has no line " + std::to_string(cell.line) +
                                     " column " + std::to_string(cell.column);
        EXPECT_THAT([&] { (void)interfaces.GetSetting(cell.line, cell.column); },
                    ThrowsMessage<InvalidConfigException>(StrEq(expected)));
    }
}

} // namespace
