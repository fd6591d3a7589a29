// A scratch directory whose files stand in for sysfs attributes, driver files
// and GPIO value files, the process's open descriptor count, and a check of
// a thrown framework exception's type and message.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Zel::Test::Ports {

class ScratchDirectory {
public:
    ScratchDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-ports-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed for " + pattern);
        }
        root = pattern;
    }
    ~ScratchDirectory() { std::filesystem::remove_all(root); }

    // Path("") is the directory with its separator, as a sysfs prefix is written.
    std::string Path(const std::string& name) const { return root + "/" + name; }

    // Truncates in place: a descriptor opened earlier sees the new text.
    void Write(const std::string& name, const std::string& text) const
    {
        std::ofstream(Path(name), std::ios::binary | std::ios::trunc) << text;
    }
    std::string ReadBack(const std::string& name) const
    {
        std::ifstream in(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    // A directory opens for reading but every read fails with EISDIR, also for root.
    void MakeUnreadable(const std::string& name) const
    {
        Remove(name);
        std::filesystem::create_directory(Path(name));
    }
    void Remove(const std::string& name) const { std::filesystem::remove(Path(name)); }

private:
    std::string root;
};

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

} // namespace Zel::Test::Ports
