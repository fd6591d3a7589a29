// The main of every test executable: the process's AppDomain with a log
// manager at trace level writing into the in-memory sink, as a host would set
// them up before loading a plug-in.
#include "MemoryLogSink.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <gtest/gtest.h>

#include <memory>

namespace Zel::Test {

namespace {
std::shared_ptr<MemoryLogSink> sink = std::make_shared<MemoryLogSink>();
}

MemoryLogSink& TestLog()
{
    return *sink;
}

} // namespace Zel::Test

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    Zel::System::Commons::AppDomain appDomain;
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>(8);
    logManager->SetSink(Zel::Test::sink);
    appDomain.AddSingleton(logManager);
    return RUN_ALL_TESTS();
}
