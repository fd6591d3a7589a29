// The one scratch directory of the tests: a private directory under the
// temporary directory, removed with everything in it, and whole-file reads
// and writes that keep every byte.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <stdlib.h>

namespace Zel::Test {

inline std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Truncates in place: a descriptor opened earlier sees the new text.
inline void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!(out << content).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

class ScratchDirectory {
public:
    explicit ScratchDirectory(const std::string& prefix = "zel-test")
        : root((std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string())
    {
        if (::mkdtemp(root.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed for " + root);
        }
    }
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    // Path("") is the directory with its separator, as a sysfs prefix is written.
    std::string Path(const std::string& name) const { return root + "/" + name; }
    // Writes the file and returns its full path.
    std::string Write(const std::string& name, const std::string& content) const
    {
        WriteFile(Path(name), content);
        return Path(name);
    }
    std::string Read(const std::string& name) const { return ReadFile(Path(name)); }
    void Remove(const std::string& name) const { std::filesystem::remove(Path(name)); }
    // A directory opens for reading but every read fails with EISDIR, also for root.
    void MakeUnreadable(const std::string& name) const
    {
        Remove(name);
        std::filesystem::create_directory(Path(name));
    }

private:
    std::string root;
};

} // namespace Zel::Test
