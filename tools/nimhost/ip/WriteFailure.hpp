#pragma once

#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// The file the IP configuration module reads and rewrites.
inline const std::string interfacesFile = "/etc/network/interfaces";

// Why the IP configuration module could not write `key` ("netmask", "inet",
// ...) for `interfaceName`, in the user's terms, after its setter returned
// failure. The module says only "failed"; the cause comes from the library's
// error messages of the call (`libraryErrors`, level 3 and below), else from
// looking at the file and its directory (read only).
std::string ExplainFailedWrite(const std::string& interfaceName, const std::string& key,
                               const std::vector<std::string>& libraryErrors);

} // namespace Zel::Tools::Nimhost
