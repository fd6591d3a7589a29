// The IP configuration module's set-up, where no interfaces file is
// involved. Its calls, with device numbers it rejects itself or that the
// Ethernet module rejects, run in the network sandbox
// (IpConfigModuleKernelTest.cpp, cases/calls.cases).
#include "Checks.hpp"
#include "MemoryLogSink.hpp"

#include "Modules/Nim/Linux/IpConfigModule.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleProvider.hpp>
#include <Zel/Hardware/Commons/Modules/ModuleSettings.hpp>
#include <Zel/System/Commons/Exception.hpp>

#include <gtest/gtest.h>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::System::Commons;
using namespace Zel::Test;
using Zel::Hardware::Modules::Nim::Linux::IpConfigModule;

TEST(IpConfigModuleSetup, NeedsAnEthernetInfoModule)
{
    LogCapture capture(8);
    IpConfigModule module;
    HardwareModuleProvider provider;
    IpConfigModule impostor; // another type under the Ethernet module's name is no Ethernet module
    for (const bool withImpostor : {false, true}) {
        if (withImpostor) {
            provider.AddHardwareModule("Zel.Hardware.Nim.Modules.IEthernetInfoModule", impostor);
        }
        ExpectThrow<InvalidOperationException>([&] { module.SetupSettings(ModuleSettings(), provider); },
                                               "IpConfigModule::SetupSettings(): ethInfoModule is NULL!");
    }
    EXPECT_EQ(2u, capture.Count(7, "IpConfigModule::SetupSettings()"));
    module.Dispose();
    EXPECT_TRUE(module.IsEnabled());
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::Dispose()"));
    EXPECT_TRUE(capture.Contains(7, "IpConfigModule::IsEnabled()"));
}

} // namespace
