#pragma once

#include "plugin/LogDigest.hpp"
#include "plugin/PluginHost.hpp"
#include "report/Outcome.hpp"
#include "settings/HostSettings.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/Hardware/Nim/NimTypes.hpp>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zel::Tools::Nimhost {

// What every module answers about one device, each query's value or the
// exception it threw; the report, the metrics and watch show it.

struct PortReport {
    unsigned int port = 0;
    Outcome<BasicString> publicName;
    BasicString mode;
    Outcome<Zel::Hardware::Nim::LinkState> state;
    Outcome<Zel::Hardware::Nim::LinkSpeed> speed;
    Outcome<Zel::Hardware::Nim::LinkDuplex> duplex;
    // The library's messages that only explain an unknown link, speed or
    // duplex, kept back from standard error: the cell ("link", "speed",
    // "duplex") and the message's text.
    std::vector<std::pair<std::string, std::string>> unknownReasons;
};

struct DeviceReport {
    unsigned int device = 0;
    Outcome<BasicString> publicName;
    Outcome<BasicString> interfaceName;
    Outcome<BasicString> macAddress;
    Outcome<Zel::Hardware::Nim::NetworkInterfaceType> type;
    Outcome<unsigned int> portCount;
    std::vector<PortReport> ports;
    Outcome<BasicString> liveAddress;
    Outcome<BasicString> liveNetmask;
    Outcome<BasicString> liveGateway;
    Outcome<BasicString> address;
    Outcome<BasicString> netmask;
    Outcome<BasicString> gateway;
    Outcome<BasicString> nameServers;
    Outcome<Zel::Hardware::Nim::IpAssignMode> method;
};

// Asks every module about one device, in the order the report shows it.
// With `quiet`, the library's messages of a port query that answers unknown
// are kept back from it and stored as the cell's reasons (a down interface
// has no speed: nothing alarming); those of other queries pass as usual.
DeviceReport CollectDevice(const PluginHost& host, const Zel::Hardware::Nim::Modules::IEthernetInfoModule& ethernet,
                           const HostSettings& settings, unsigned int device, LogDigest* quiet = nullptr);

// Whether a configured value differs from the live one; empty when either
// side could not be read, since then there is nothing to compare. The
// netmask is the configured one, else the prefix of a configured
// "address/prefix"; an address with a prefix also differs when its prefix
// does not match the live netmask. A value that is not an IPv4 address
// (a stray carriage return) is compared as text, so it differs.
struct Differences {
    std::optional<bool> address;
    std::optional<bool> netmask;
    std::optional<bool> gateway;
};

Differences Compare(const DeviceReport& report);

} // namespace Zel::Tools::Nimhost
