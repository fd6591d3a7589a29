// Processes without the test main's AppDomain, which map no library of the
// framework but the system commons. CreateHardwareModuleLibrary of the built
// plug-in builds the library object once, from the application domain of the
// first call (however many threads make it at once), and returns that object
// to every later call; the object goes with the plug-in when it is unloaded.
// The loader lets a library without the entry point go again. Before a host
// completes its domain, the first log call of a class fails with the
// framework's message and the channel stays uncreated, so it works once the
// domain is complete.
#include "Checks.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/Hardware/Commons/Modules/SharedModuleLibraryLoader.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Exception.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>
#include <Zel/System/Commons/Logging/LogSink.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <memory>
#include <string>
#include <vector>

namespace Zel::Test::DomainSubjects {
class Channel {};
} // namespace Zel::Test::DomainSubjects

namespace {

using namespace Zel::Hardware::Commons::Modules;
using namespace Zel::System::Commons;
using namespace Zel::System::Commons::Logging;
using namespace ::testing;

bool Mapped(const char* file = ZEL_PLUGIN_FILE)
{
    void* loaded = ::dlopen(file, RTLD_NOW | RTLD_NOLOAD);
    if (loaded != nullptr) {
        ::dlclose(loaded);
    }
    return loaded != nullptr;
}

CreateHardwareModuleLibraryFunction Load(void*& handle)
{
    handle = ::dlopen(ZEL_PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(handle, nullptr) << ::dlerror();
    void* symbol = handle != nullptr ? ::dlsym(handle, "CreateHardwareModuleLibrary") : nullptr;
    EXPECT_NE(symbol, nullptr);
    return reinterpret_cast<CreateHardwareModuleLibraryFunction>(symbol);
}

// A file that cannot be loaded at all is nimhost's case (NimhostCliTest.cpp).
TEST(SharedModuleLibraryLoader, RefusesAndUnloadsALibraryWithoutTheEntryPoint)
{
    const BasicString file = ZEL_NO_ENTRY_POINT_FILE;
    ASSERT_FALSE(Mapped(file.c_str())) << "the library is mapped already; its unloading cannot be seen";
    AppDomain domain;
    EXPECT_THAT([&] { SharedModuleLibraryLoader loader(file, domain); },
                ThrowsMessage<InvalidOperationException>(
                    StrEq("Library '" + file + "' has no entry point 'CreateHardwareModuleLibrary'")));
    EXPECT_FALSE(Mapped(file.c_str()));
}

TEST(LoadedEntryPoint, ConcurrentFirstCallsShareOneObjectThatGoesWithThePlugin)
{
    ASSERT_FALSE(Mapped()) << "the plug-in is already mapped; its first call is gone";
    void* handle = nullptr;
    const CreateHardwareModuleLibraryFunction create = Load(handle);
    ASSERT_NE(create, nullptr);

    constexpr std::size_t threadCount = 4;
    AppDomain domains[threadCount];
    std::vector<HardwareModuleLibraryBase*> results(threadCount, nullptr);
    Zel::Test::RunTogether(threadCount, [&](std::size_t i) { results[i] = create(domains[i]); });
    ASSERT_NE(results[0], nullptr);
    bool builtFromOne = false;
    for (std::size_t i = 0; i < threadCount; ++i) {
        EXPECT_EQ(results[i], results[0]);
        builtFromOne = builtFromOne || &results[0]->GetAppDomain() == &domains[i];
    }
    EXPECT_TRUE(builtFromOne);

    // Unloading destroys the object; loading again builds a new one from the
    // domain of the new first call.
    ::dlclose(handle);
    if (Mapped()) {
        GTEST_SKIP() << "the plug-in stays mapped after dlclose; reloading cannot be observed";
    }
    AppDomain later;
    EXPECT_EQ(&Load(handle)(later)->GetAppDomain(), &later);
    ::dlclose(handle);
}

class Collect : public ILogSink {
public:
    void Write(int, std::string_view, std::string_view text) override { texts.emplace_back(text); }
    std::vector<std::string> texts;
};

TEST(AppDomain, TheFirstLogCallFailsNamingTheMissingDomainOrManagerAndCreatesNothing)
{
    using Log = Loggable<Zel::Test::DomainSubjects::Channel>;
    ASSERT_FALSE(AppDomain::HasInstance());
    const auto noDomain = StrEq("Singleton instance of type 'Zel::System::Commons::AppDomain' was not created yet!");
    EXPECT_THAT([] { (void)AppDomain::GetInstance(); }, ThrowsMessage<InvalidOperationException>(noDomain));
    EXPECT_THAT([] { Log::log(3, "never {0}", 1); }, ThrowsMessage<InvalidOperationException>(noDomain));

    AppDomain domain;
    EXPECT_THAT([] { Log::log(3, "never"); },
                ThrowsMessage<InvalidOperationException>(
                    StrEq("AppDomain Singleton instance of type 'Zel::System::Commons::Logging::LogManager' was not "
                          "created yet!")));

    auto manager = std::make_shared<LogManager>(8);
    auto sink = std::make_shared<Collect>();
    manager->SetSink(sink);
    domain.AddSingleton(manager);
    Log::log(3, "now {0}", "written");
    EXPECT_THAT(sink->texts, ElementsAre("now written"));
}

} // namespace
