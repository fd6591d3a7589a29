// CreateHardwareModuleLibrary of the built plug-in builds the library object
// once, from the application domain of the first call (however many threads
// make it at once), and returns that object to every later call; the object
// goes with the plug-in when it is unloaded.
#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using namespace Zel::Hardware::Commons::Modules;
using Zel::System::Commons::AppDomain;

bool Mapped()
{
    void* loaded = ::dlopen(ZEL_PLUGIN_FILE, RTLD_NOW | RTLD_NOLOAD);
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

TEST(LoadedEntryPoint, ConcurrentFirstCallsShareOneObjectThatGoesWithThePlugin)
{
    ASSERT_FALSE(Mapped()) << "the plug-in is already mapped; its first call is gone";
    void* handle = nullptr;
    const CreateHardwareModuleLibraryFunction create = Load(handle);
    ASSERT_NE(create, nullptr);

    constexpr std::size_t threadCount = 4;
    AppDomain domains[threadCount];
    std::vector<HardwareModuleLibraryBase*> results(threadCount, nullptr);
    std::atomic<std::size_t> ready{0};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready.load() < threadCount) {
                std::this_thread::yield();
            }
            results[i] = create(domains[i]);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
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

} // namespace
