// Helpers for the IP configuration tests: a private temporary directory per
// test, whole-file reads and writes that keep every byte, exception texts.
#pragma once

#include <Zel/System/Commons/BasicString.hpp>

#include <filesystem>
#include <functional>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <stdlib.h>

namespace Zel::Test::IpConfig {

class TempDir {
public:
    TempDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "zel-ipconfig-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed for " + pattern);
        }
        path = pattern;
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string File(const std::string& name) const { return (path / name).string(); }

private:
    std::filesystem::path path;
};

inline std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!(out << content).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

inline bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

// The parameter order the IP configuration module hands its file access.
inline const std::vector<Zel::System::Commons::BasicString> parameterOrder{"address", "netmask", "gateway",
                                                                         "dns-nameservers"};

// The what() of the ExceptionType that call throws.
template <typename ExceptionType>
std::string MessageOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const ExceptionType& e) {
        return e.what();
    }
    return "<nothing thrown>";
}

} // namespace Zel::Test::IpConfig
