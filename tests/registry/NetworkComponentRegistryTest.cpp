// NetworkComponentRegistrationModule: an in-memory registry, so no kernel.
#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::HardwareModuleProvider;
using Zel::Hardware::Commons::Modules::ModuleSettings;
using Zel::Hardware::Modules::Nim::Linux::NetworkComponentRegistrationModule;
using Zel::System::Commons::ArgumentException;
using Zel::System::Commons::BasicString;

using Names = std::vector<BasicString>;

class NetworkComponentRegistry : public ::testing::Test {
protected:
    NetworkComponentRegistrationModule registry;
};

TEST_F(NetworkComponentRegistry, ComponentsComeBackPerInterfaceInByteOrder)
{
    for (const char* name : {"b", "a", "ab", "B", "a\xff", "a b"}) {
        registry.RegisterNetworkComponent(name, 3);
    }
    registry.RegisterNetworkComponent("other", 4);

    // Byte-wise: upper case before lower case, a prefix before its
    // extensions, a byte above 0x7f after everything ASCII.
    EXPECT_EQ(registry.GetNetworkComponents(3), (Names{"B", "a", "a b", "ab", "a\xff", "b"}));
    EXPECT_EQ(registry.GetNetworkComponents(4), (Names{"other"}));
    EXPECT_TRUE(registry.GetNetworkComponents(5).empty());
    EXPECT_TRUE(registry.GetNetworkComponents(0).empty());
}

TEST_F(NetworkComponentRegistry, SecondRegistrationOfANameIsIgnored)
{
    Zel::Test::LogCapture capture(8);
    registry.RegisterNetworkComponent("a", 1);
    registry.RegisterNetworkComponent("a", 2);

    EXPECT_EQ(registry.GetNetworkInterface("a"), 1u);
    EXPECT_TRUE(registry.GetNetworkComponents(2).empty());
    EXPECT_TRUE(capture.Contains(8, "GetNetworkInterface: 'a' is on interface 1"));
    // Both attempts are traced; nothing says the second one was dropped.
    EXPECT_TRUE(capture.Contains(8, "Registering 'a' on interface 1"));
    EXPECT_TRUE(capture.Contains(8, "Registering 'a' on interface 2"));
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.level, 8) << record.text;
    }

    // Moving a component takes an unregistration first.
    registry.UnregisterNetworkComponent("a");
    registry.RegisterNetworkComponent("a", 2);
    EXPECT_EQ(registry.GetNetworkInterface("a"), 2u);
}

TEST_F(NetworkComponentRegistry, InterfaceZeroIsRefusedWithoutChange)
{
    registry.RegisterNetworkComponent("a", 1);
    Zel::Test::LogCapture capture(8);

    for (const char* name : {"a", "new"}) {
        try {
            registry.RegisterNetworkComponent(name, 0);
            FAIL() << "no exception for " << name;
        } catch (const ArgumentException& e) {
            EXPECT_EQ(e.GetMessage(), "Invalid argument 'interfaceId' = '0': 0 is not a valid interface id.");
        }
    }
    EXPECT_TRUE(capture.Records().empty());
    EXPECT_EQ(registry.GetNetworkInterface("a"), 1u);
    EXPECT_EQ(registry.GetNetworkInterface("new"), 0u);
}

TEST_F(NetworkComponentRegistry, UnknownNamesAnswerZeroAndUnregisterQuietly)
{
    Zel::Test::LogCapture capture(8);
    EXPECT_EQ(registry.GetNetworkInterface("never"), 0u);
    EXPECT_NO_THROW(registry.UnregisterNetworkComponent("never"));

    registry.RegisterNetworkComponent("gone", 7);
    registry.UnregisterNetworkComponent("gone");
    EXPECT_EQ(registry.GetNetworkInterface("gone"), 0u);
    EXPECT_TRUE(registry.GetNetworkComponents(7).empty());

    const std::vector<std::string> expected = {
        "GetNetworkInterface: 'never' not found!",
        "Unregistering 'never'",
        "Registering 'gone' on interface 7",
        "Unregistering 'gone'",
        "GetNetworkInterface: 'gone' not found!",
    };
    std::vector<std::string> texts;
    for (const auto& record : capture.Records()) {
        EXPECT_EQ(record.level, 8) << record.text;
        EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.NetworkComponentRegistrationModule");
        texts.push_back(record.text);
    }
    // GetNetworkComponents logs nothing.
    EXPECT_EQ(texts, expected);
}

TEST_F(NetworkComponentRegistry, EmptyStringIsAnOrdinaryName)
{
    registry.RegisterNetworkComponent("", 9);
    registry.RegisterNetworkComponent("x", 9);
    EXPECT_EQ(registry.GetNetworkInterface(""), 9u);
    EXPECT_EQ(registry.GetNetworkComponents(9), (Names{"", "x"}));
    registry.UnregisterNetworkComponent("");
    EXPECT_EQ(registry.GetNetworkInterface(""), 0u);
    EXPECT_EQ(registry.GetNetworkComponents(9), (Names{"x"}));
}

TEST_F(NetworkComponentRegistry, LifecycleCallsKeepTheRegistrations)
{
    registry.RegisterNetworkComponent("a", 1);
    Zel::Test::LogCapture capture(8);

    registry.SetupSettings(ModuleSettings(), HardwareModuleProvider());
    EXPECT_TRUE(registry.IsEnabled());
    registry.Dispose();
    EXPECT_TRUE(registry.IsEnabled());

    EXPECT_EQ(registry.GetNetworkInterface("a"), 1u);
    EXPECT_TRUE(capture.Contains(8, "NetworkComponentRegistrationModule::SetupSettings()"));
    EXPECT_TRUE(capture.Contains(8, "NetworkComponentRegistrationModule::Dispose()"));
    EXPECT_EQ(capture.Count(8, "NetworkComponentRegistrationModule::IsEnabled()"), 2u);
    EXPECT_EQ(registry.GetModuleName(), "Zel.Hardware.Nim.Modules.INetworkComponentRegistrationModule");
}

} // namespace
