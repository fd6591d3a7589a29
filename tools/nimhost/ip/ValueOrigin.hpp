#pragma once

#include "ip/InterfacesText.hpp"

#include <cstddef>
#include <optional>
#include <string>

namespace Zel::Tools::Nimhost {

// Where the IP configuration module's reading of a configured value comes
// from, said when that is not the interface's own line. Pure functions over
// the file's text.
//
// Keys are the module's ("address", "netmask", "gateway", "dns-nameservers",
// "inet" for the method); `field` is the word nimhost's user gave (address,
// netmask, gateway, dns, mode).

// The line the module takes `key` from for `interfaceName`: the first line
// holding the key anywhere, in a block that begins at any line holding
// "iface" and the name anywhere and ends at a line holding "iface" without
// it. This is how the module reads; nimhost keeps no other copy of it.
std::optional<std::size_t> ModuleReadLine(const std::vector<std::string>& lines, const std::string& interfaceName,
                                          const std::string& key);

struct ForeignValue {
    std::size_t line = 0;
    // The stanza the line belongs to, when it is another interface's.
    std::string stanza;
    // The line's own key, when it is an option of another key.
    std::string lineKey;
    // What happened and how to fix the file, as one sentence.
    std::string sentence;
};

// Whether the module reads `key` from a line that is not `interfaceName`'s
// own (another interface's stanza, a longer key such as hwaddress, a
// comment); empty when it reads the interface's own line, or nothing.
std::optional<ForeignValue> FindForeignValue(const InterfacesText& file, const std::string& interfaceName,
                                             const std::string& key, const std::string& field);

// What to tell the user when the module cannot read a value because its
// line ends after the key: which line, and how to mend it.
std::string DescribeLineWithoutValue(const InterfacesText& file, const std::string& fileName,
                                     const std::string& interfaceName, const std::string& key, const std::string& field,
                                     unsigned int device);

} // namespace Zel::Tools::Nimhost
