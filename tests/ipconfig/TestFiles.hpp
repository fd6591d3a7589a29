// What the IP configuration tests share beyond the scratch directory: the
// parameter order the module hands its file access, and exception texts.
#pragma once

#include "ScratchDirectory.hpp"

#include <Zel/System/Commons/BasicString.hpp>

#include <functional>
#include <vector>

namespace Zel::Test::IpConfig {

using Zel::Test::ReadFile;
using Zel::Test::ScratchDirectory;
using Zel::Test::WriteFile;

inline bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

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
