#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Zel::Tools::Nimhost {

// Checks of what a user types for a device or a configured value. Each
// throws UsageError with one line saying what is wrong and what is accepted.

// The device number `text` names, within 1..deviceCount.
unsigned int CheckDevice(const std::string& text, unsigned int deviceCount);

// A value for `ip set FIELD` (address, netmask, gateway or dns).
void CheckValue(const std::string& field, const std::string& value);

// A dotted-quad IPv4 address in host byte order; empty for anything else.
std::optional<std::uint32_t> ParseIpv4(const std::string& text);

// The netmask of a prefix length 0..32.
std::uint32_t PrefixToNetmask(unsigned int prefix);

// The prefix length of "/24" in "192.168.1.10/24"; empty when the text has
// no valid prefix.
std::optional<unsigned int> ParsePrefix(const std::string& text);

} // namespace Zel::Tools::Nimhost
