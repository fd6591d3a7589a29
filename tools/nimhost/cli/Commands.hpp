#pragma once

#include "plugin/LogDigest.hpp"
#include "plugin/PluginHost.hpp"
#include "settings/HostSettings.hpp"

#include <Zel/Hardware/Nim/NimTypes.hpp>

#include <ostream>
#include <string>

namespace CLI {
class App;
}

namespace Zel::Tools::Nimhost {

// The commands of nimhost. Each writes its answer to `out` (human text, or
// one JSON document when `json` is set) and returns the exit code; module
// exceptions that end a command pass to main, which reports them.

// How the commands that explain failures present them.
struct Presentation {
    bool json = false;
    // Log level 7 and above: exception types and library texts in the text.
    bool technical = false;
    // The library's messages, for the causes of a failed setter.
    const LogDigest* log = nullptr;
    // The same, when the report keeps back the messages that only explain
    // a port's unknown link, speed or duplex (the log level was not asked
    // for); null otherwise.
    LogDigest* quiet = nullptr;
};

// Every device with its ports, live and configured IP settings; a failing
// field shows in its cell, a value the file does not hold as "not set".
int RunReport(const PluginHost& host, const HostSettings& settings, const Presentation& how, std::ostream& out);

// The kernel's current interface names, as the Ethernet module lists them.
int RunInterfaces(const PluginHost& host, bool json, std::ostream& out);

// One configured value of a device: field is address, netmask, gateway, dns
// or mode; "not set" (JSON null) when the file holds none.
int RunIpGet(const PluginHost& host, unsigned int device, const std::string& field, const Presentation& how,
             std::ostream& out);

struct IpSetRequest {
    unsigned int device = 0;
    std::string field;
    std::string value;
    // Print the change only, as a unified diff of the file.
    bool dryRun = false;
    // Write even what nimhost would refuse: a change that reaches beyond the
    // interface's own stanza or line, or one it could not try first.
    bool force = false;
};

// Writes one configured value (mode takes a method word) and prints the
// change ("eth0 netmask: 255.255.255.0 -> 255.255.0.0"). The module's setter
// first writes a copy of the file in a throw-away mount namespace; a change
// that would touch another stanza, replace a line of another key or not set
// the value is refused, as is a write into a file the controller does not
// read. A refused or failed write is exit 1 with its cause in the user's
// terms, and the file stays as it was.
int RunIpSet(const PluginHost& host, const IpSetRequest& request, const Presentation& how, std::ostream& out);

// The live address, netmask and gateway of a device.
int RunStatus(const PluginHost& host, unsigned int device, bool json, std::ostream& out);

struct WatchOptions {
    // Polling interval of the ports that read no kernel interface (switch
    // chips over SPI, GPIO or driver files).
    unsigned int intervalMs = 500;
    // Changes to report before ending; 0 runs until SIGINT or SIGTERM.
    unsigned int count = 0;
    // How long a link-down is held back; dropped if the link returns sooner.
    unsigned int debounceMs = 0;
    // Kept current in the Prometheus text format on every change; empty for none.
    std::string metricsFile;
    // SO_RCVBUF of the link notification socket; 0 for the system's default.
    int receiveBufferBytes = 0;
};

// Prints every port's link once, then one line per change of link state,
// speed or duplex, and each board interface that disappears or appears.
// Kernel-backed ports are read again when the kernel announces a change of
// their interface, the others every interval.
int RunWatch(const PluginHost& host, const HostSettings& settings, const WatchOptions& options, bool json,
             std::ostream& out);

struct MetricsOptions {
    // Written atomically instead of standard output; empty for standard output.
    std::string output;
};

// Every device, port and IP answer in the Prometheus text format.
int RunMetrics(const PluginHost& host, const HostSettings& settings, const MetricsOptions& options, std::ostream& out);

// Adds the "metrics" command to nimhost's command line, filling `options`.
CLI::App* AddMetricsCommand(CLI::App& app, MetricsOptions& options);

// Adds watch's options beyond --interval and --count to its command.
void AddWatchOptions(CLI::App& watch, WatchOptions& options);

// The registered module names and the plug-in's file name.
int RunModules(const PluginHost& host, bool json, std::ostream& out);

// The settings in use, as a settings file (or JSON).
int RunSettings(const HostSettings& settings, bool json, std::ostream& out);

// The method words `ip set DEVICE mode` accepts, for messages.
std::string MethodWordList();

// The assignment method a word names; throws UsageError for any other text.
Zel::Hardware::Nim::IpAssignMode ParseMethodWord(const std::string& word);

} // namespace Zel::Tools::Nimhost
