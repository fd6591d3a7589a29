// Small helpers shared by the port tests: a scratch directory whose files
// stand in for sysfs attributes, driver files and GPIO value files, and a
// count of the process's open descriptors for the lifecycle checks.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
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
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    std::string Path(const std::string& name) const { return root + "/" + name; }
    // The directory with its trailing separator, as a sysfs prefix is set.
    std::string Prefix() const { return root + "/"; }

    // Replaces the file's whole content (the file keeps its inode, so a
    // descriptor opened earlier sees the new text).
    void Write(const std::string& name, const std::string& text) const
    {
        std::ofstream out(Path(name), std::ios::binary | std::ios::trunc);
        out << text;
        if (!out) {
            throw std::runtime_error("cannot write " + Path(name));
        }
    }
    std::string ReadBack(const std::string& name) const
    {
        std::ifstream in(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    // A directory opens fine for reading but every read of it fails with
    // EISDIR: a file that opens and cannot be read, also for root.
    void MakeUnreadable(const std::string& name) const
    {
        std::filesystem::remove(Path(name));
        std::filesystem::create_directory(Path(name));
    }
    void Remove(const std::string& name) const { std::filesystem::remove(Path(name)); }

private:
    std::string root;
};

inline int OpenDescriptorCount()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

} // namespace Zel::Test::Ports
