#pragma once

#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

// The kernel's link-layer interfaces (one AF_PACKET entry of getifaddrs each)
// in the kernel's order, the same list the Ethernet information module checks
// its table against. Throws std::system_error when the list cannot be read.
std::vector<std::string> ReadLinkLayerInterfaceNames();

} // namespace Zel::Tools::Nimhost
