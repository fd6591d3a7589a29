// NetworkComponentRegistrationModule: an in-memory registry, so no kernel.
// Its order is byte-wise by name; its silent cases (a second registration,
// unknown names) change nothing and say so only at trace level.
#include "Modules/Nim/Linux/NetworkComponentRegistrationModule.hpp"

#include "MemoryLogSink.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace ::testing;
using Zel::Hardware::Modules::Nim::Linux::NetworkComponentRegistrationModule;
using namespace Zel::System::Commons;
using Zel::Test::LogRecord;

using Names = std::vector<BasicString>;

TEST(NetworkComponentRegistry, ComponentsComeBackPerInterfaceInByteOrder)
{
    NetworkComponentRegistrationModule registry;
    for (const char* name : {"b", "a", "ab", "B", "a\xff", "a b", ""}) {
        registry.RegisterNetworkComponent(name, 3);
    }
    registry.RegisterNetworkComponent("other", 4);

    // Byte-wise: the empty name first, upper case before lower case, a prefix
    // before its extensions, a byte above 0x7f after everything ASCII.
    EXPECT_EQ(registry.GetNetworkComponents(3), (Names{"", "B", "a", "a b", "ab", "a\xff", "b"}));
    EXPECT_EQ(registry.GetNetworkComponents(4), (Names{"other"}));
    EXPECT_TRUE(registry.GetNetworkComponents(5).empty());
    EXPECT_EQ(registry.GetNetworkInterface(""), 3U);
}

TEST(NetworkComponentRegistry, SilentCasesAndLifecycleCallsChangeNothingAndAreTracedOnlyInterfaceZeroIsRefused)
{
    NetworkComponentRegistrationModule registry;
    Zel::Test::LogCapture capture(8);
    registry.RegisterNetworkComponent("a", 1);
    registry.RegisterNetworkComponent("a", 2); // ignored, without a word
    for (const char* name : {"a", "new"}) { // refused without a word
        EXPECT_THAT([&] { registry.RegisterNetworkComponent(name, 0); },
                    ThrowsMessage<ArgumentException>(
                        StrEq("Invalid argument 'interfaceId' = '0': 0 is not a valid interface id.")));
    }
    EXPECT_TRUE(registry.GetNetworkComponents(0).empty());
    EXPECT_EQ(registry.GetNetworkInterface("a"), 1U);
    EXPECT_TRUE(registry.GetNetworkComponents(2).empty());
    EXPECT_EQ(registry.GetNetworkInterface("new"), 0U);
    registry.UnregisterNetworkComponent("new");
    registry.UnregisterNetworkComponent("a");
    EXPECT_EQ(registry.GetNetworkInterface("a"), 0U);
    EXPECT_TRUE(registry.GetNetworkComponents(1).empty());
    registry.RegisterNetworkComponent("a", 2); // moving takes an unregistration first
    // Set-up and Dispose keep the registrations; the module is always enabled.
    registry.SetupSettings({}, {});
    EXPECT_TRUE(registry.IsEnabled());
    registry.Dispose();
    EXPECT_TRUE(registry.IsEnabled());
    EXPECT_EQ(registry.GetNetworkComponents(2), (Names{"a"}));

    // GetNetworkComponents logs nothing.
    std::vector<std::string> texts;
    for (const LogRecord& record : capture.Records()) {
        EXPECT_EQ(record.level, 8) << record.text;
        EXPECT_EQ(record.channel, "Zel.Hardware.Modules.Nim.Linux.NetworkComponentRegistrationModule");
        texts.push_back(record.text);
    }
    EXPECT_THAT(texts,
                ElementsAre("Registering 'a' on interface 1", "Registering 'a' on interface 2",
                            "GetNetworkInterface: 'a' is on interface 1", "GetNetworkInterface: 'new' not found!",
                            "Unregistering 'new'", "Unregistering 'a'", "GetNetworkInterface: 'a' not found!",
                            "Registering 'a' on interface 2", "NetworkComponentRegistrationModule::SetupSettings()",
                            "NetworkComponentRegistrationModule::IsEnabled()",
                            "NetworkComponentRegistrationModule::Dispose()",
                            "NetworkComponentRegistrationModule::IsEnabled()"));
}

} // namespace
