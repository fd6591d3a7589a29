// Checks shared by the suites: the process's open descriptor count, calls
// made without a free descriptor, a thrown framework exception's type and
// message, and bodies run on threads that start together.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

namespace Zel::Test {

inline long OpenDescriptorCount()
{
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return std::distance(begin(fds), end(fds));
}

// Runs action with no descriptor free in the process, and restores the limit.
template <typename Action>
void WithoutFreeDescriptors(Action action)
{
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    action();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// Runs body(0) to body(runners - 1) on threads that start at the same
// moment, so that their first calls race, and waits for all of them.
template <typename Body>
void RunTogether(std::size_t runners, const Body& body)
{
    std::atomic<std::size_t> arrived{0};
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < runners; ++t) {
        threads.emplace_back([&, t] {
            for (++arrived; arrived.load() < runners;) {
                std::this_thread::yield();
            }
            body(t);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

template <typename E, typename Action>
void ExpectThrow(Action action, const std::string& message)
{
    try {
        action();
        ADD_FAILURE() << "no exception; expected " << message;
    } catch (const E& e) {
        EXPECT_EQ(e.GetMessage(), message);
    }
}

} // namespace Zel::Test
