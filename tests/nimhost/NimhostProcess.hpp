// Runs the nimhost executable as a user would, through the shell (and the
// cross emulator in the armhf build), with its output in temporary files.
#pragma once

#include "Sandbox.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Test {

inline std::string ReadFile(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline void WriteFile(const std::string& path, const std::string& content)
{
    if (!(std::ofstream(path, std::ios::binary | std::ios::trunc) << content)) {
        throw std::runtime_error("cannot write " + path);
    }
}

// A directory under /tmp, removed with everything in it.
class TempDirectory {
public:
    TempDirectory() : path((std::filesystem::temp_directory_path() / "nimhost-test-XXXXXX").string())
    {
        if (::mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
    }
    ~TempDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    std::string Path(const std::string& name) const { return path + "/" + name; }
    // Writes the file and returns its full path.
    std::string Write(const std::string& name, const std::string& content) const
    {
        WriteFile(Path(name), content);
        return Path(name);
    }

private:
    std::string path;
};

// The shell command that runs nimhost with these arguments, killed after 60 s
// (the cross build runs it under qemu).
inline std::string NimhostCommand(const std::vector<std::string>& arguments)
{
    std::string command = "timeout -s KILL 60 " NIMHOST_COMMAND;
    for (const auto& word : arguments) {
        command += " '";
        for (const char c : word) {
            command += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        command += "'";
    }
    return command;
}

struct NimhostResult {
    int exitCode; // 137 when it did not end in time
    std::string out;
    std::string err;
};

inline NimhostResult RunNimhost(const std::vector<std::string>& arguments)
{
    const TempDirectory output;
    const int code = Run(NimhostCommand(arguments) + " >" + output.Path("out") + " 2>" + output.Path("err"));
    return {code, ReadFile(output.Path("out")), ReadFile(output.Path("err"))};
}

} // namespace Zel::Test
