// Checks shared by the suites: the process's open descriptor count, a thrown
// framework exception's type and message, and table rows written as one text.
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

// The fields of a table row written with '|' between them ("a||b": three).
inline std::vector<std::string> Words(const std::string& row)
{
    std::vector<std::string> words;
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
        end = row.find('|', start);
        words.push_back(row.substr(start, end - start));
    }
    return words;
}

} // namespace Zel::Test
