// What the IP configuration tests share beyond the scratch directory: the
// parameter order the module hands its file access.
#pragma once

#include "ScratchDirectory.hpp"

#include <Zel/System/Commons/BasicString.hpp>

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

} // namespace Zel::Test::IpConfig
