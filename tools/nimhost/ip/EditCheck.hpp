#pragma once

#include <string>

namespace Zel::Tools::Nimhost {

// Whether a write of the IP configuration module did what the user asked for
// and nothing else, judged from the file before and after it (the write was
// made on a copy; see TrialWrite). The module finds its block and its line
// by substring search, so on ordinary files it can write into another
// interface's stanza (eth0.100 before eth0, eth10 before eth1) or over a line
// of a longer key (hwaddress for address). Pure: text in, verdict out.
//
// Allowed is a change that touches only lines of the interface's own
// "iface NAME inet" stanza, replaces only its `key` line or, for the method,
// only the method word of its iface line, and leaves that stanza with exactly
// one `key` line holding `value` (or the method `value`).

struct EditRequest {
    std::string interfaceName;
    // The module's key: "address", "netmask", "gateway", "dns-nameservers" or
    // "inet" (then `value` is the method word).
    std::string key;
    std::string value;
};

struct EditVerdict {
    bool allowed = true;
    // When refused: what would have been hit and how to fix the file, one
    // sentence without the trailing period.
    std::string reason;
    // When a value write also changes the method of the iface line (a value
    // makes the interface static): "dhcp -> static"; empty otherwise.
    std::string methodChange;
};

EditVerdict CheckEdit(const std::string& before, const std::string& after, const EditRequest& request);

} // namespace Zel::Tools::Nimhost
