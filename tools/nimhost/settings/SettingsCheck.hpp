#pragma once

#include <toml++/toml.h>

#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// Checks a settings file as the modules' set-up would read it, before any
// module runs: the Ethernet information module's "interfaces" table (seven
// columns, device index = line number, numbers as the module parses them,
// port modes, interface types, port names against the port count), the path
// keys each port mode needs (present, absolute, existing) and the keys and
// tables nothing reads.
//
// Throws UsageError listing every fault, one "file:line:column: key '...':
// what is wrong" line each. Returns the warnings: keys nothing reads, and
// where this machine differs from the board (a missing interface ends the
// device table there; set-up fails if it is within mandatoryInterfaces).
std::vector<std::string> CheckSettingsFile(const toml::table& root, const std::string& path,
                                           const std::vector<std::string>& machineInterfaces);

} // namespace Zel::Tools::Nimhost
