// CreateHardwareModuleLibrary builds the library object once, from the
// application domain of the first call, and returns that object to every
// later call; the object goes with the plug-in when it is unloaded. Checked
// on the plug-in's code linked into this test and on the built plug-in.
#include "Modules/Nim/Linux/ModuleLibrary.hpp"

#include <Zel/Hardware/Commons/Modules/HardwareModuleLibraryBase.hpp>
#include <Zel/System/Commons/AppDomain.hpp>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

using Zel::Hardware::Commons::Modules::CreateHardwareModuleLibraryFunction;
using Zel::Hardware::Commons::Modules::HardwareModuleLibraryBase;
using Zel::System::Commons::AppDomain;

constexpr const char* pluginFile = ZEL_PLUGIN_FILE;

TEST(CreateHardwareModuleLibrary, LaterCallsGetTheObjectBuiltFromTheFirstDomain)
{
    // The library object refers to its domain until the process ends.
    static AppDomain first;
    AppDomain second;

    HardwareModuleLibraryBase* fromFirst = CreateHardwareModuleLibrary(first);
    HardwareModuleLibraryBase* fromSecond = CreateHardwareModuleLibrary(second);

    ASSERT_NE(fromFirst, nullptr);
    EXPECT_EQ(fromSecond, fromFirst);
    EXPECT_EQ(&fromSecond->GetAppDomain(), &first);
}

class LoadedEntryPoint : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (void* loaded = ::dlopen(pluginFile, RTLD_NOW | RTLD_NOLOAD)) {
            ::dlclose(loaded);
            alreadyLoaded = true;
        }
        Load();
    }

    void TearDown() override
    {
        if (handle != nullptr) {
            ::dlclose(handle);
        }
    }

    void Load()
    {
        handle = ::dlopen(pluginFile, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << ::dlerror();
        void* symbol = ::dlsym(handle, "CreateHardwareModuleLibrary");
        ASSERT_NE(symbol, nullptr) << ::dlerror();
        create = reinterpret_cast<CreateHardwareModuleLibraryFunction>(symbol);
    }

    void* handle = nullptr;
    CreateHardwareModuleLibraryFunction create = nullptr;
    bool alreadyLoaded = false;
};

TEST_F(LoadedEntryPoint, LaterCallsGetTheObjectBuiltFromTheFirstDomain)
{
    if (alreadyLoaded) {
        GTEST_SKIP() << "the plug-in stayed mapped since an earlier test; its first call is gone";
    }
    AppDomain first;
    AppDomain second;

    HardwareModuleLibraryBase* fromFirst = create(first);
    HardwareModuleLibraryBase* fromSecond = create(second);

    ASSERT_NE(fromFirst, nullptr);
    EXPECT_EQ(fromSecond, fromFirst);
    EXPECT_EQ(&fromSecond->GetAppDomain(), &first);

    // Unloading destroys the object; loading again builds a new one from
    // the domain of the new first call.
    ::dlclose(handle);
    handle = nullptr;
    if (void* still = ::dlopen(pluginFile, RTLD_NOW | RTLD_NOLOAD)) {
        ::dlclose(still);
        GTEST_SKIP() << "the plug-in stays mapped after dlclose; reloading cannot be observed";
    }
    Load();
    EXPECT_EQ(&create(second)->GetAppDomain(), &second);
}

TEST_F(LoadedEntryPoint, ConcurrentFirstCallsShareOneObject)
{
    if (alreadyLoaded) {
        GTEST_SKIP() << "the plug-in stayed mapped since an earlier test; its first call is gone";
    }
    constexpr std::size_t threadCount = 4;
    std::vector<std::unique_ptr<AppDomain>> domains;
    for (std::size_t i = 0; i < threadCount; ++i) {
        domains.push_back(std::make_unique<AppDomain>());
    }
    std::vector<HardwareModuleLibraryBase*> results(threadCount, nullptr);
    std::atomic<std::size_t> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < threadCount; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (!go.load()) {
                std::this_thread::yield();
            }
            results[i] = create(*domains[i]);
        });
    }
    while (ready.load() < threadCount) {
        std::this_thread::yield();
    }
    go = true;
    for (auto& thread : threads) {
        thread.join();
    }

    ASSERT_NE(results[0], nullptr);
    bool builtFromOne = false;
    for (std::size_t i = 0; i < threadCount; ++i) {
        EXPECT_EQ(results[i], results[0]);
        builtFromOne = builtFromOne || &results[0]->GetAppDomain() == domains[i].get();
    }
    EXPECT_TRUE(builtFromOne);
}

} // namespace
