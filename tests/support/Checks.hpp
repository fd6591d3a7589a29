// Checks shared by the suites: the process's open descriptor count, and a
// thrown framework exception's type and message.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

namespace Zel::Test {

inline long OpenDescriptorCount()
{
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return std::distance(begin(fds), end(fds));
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
