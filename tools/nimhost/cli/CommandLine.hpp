#pragma once

#include "cli/Commands.hpp"

#include <optional>
#include <string>

namespace Zel::Tools::Nimhost {

// What the user asked for, as read from the command line. Only the shape is
// checked here (known commands, fields, option ranges); device numbers and
// values are checked against the board once the settings are known.
struct CommandLine {
    std::string plugin;
    std::string config;
    bool configGiven = false;
    int logLevel = 3;
    // --log-level was given: every library message in full.
    bool logLevelGiven = false;
    bool json = false;

    // "report", "interfaces", "ip get", "ip set", "status", "watch", "metrics",
    // "modules" or "settings".
    std::string command = "report";
    std::string device;
    std::string field;
    std::string value;
    // ip set: write without checking the value / only show the change.
    bool force = false;
    bool dryRun = false;
    WatchOptions watch;
    MetricsOptions metrics;
};

// The plug-in nimhost loads when --plugin is not given.
std::string DefaultPluginPath();

// Parses the command line. Returns an exit code when nimhost is done already
// (--help, --version, or a usage error, which is then reported).
std::optional<int> ParseCommandLine(int argc, char** argv, CommandLine& commandLine);

} // namespace Zel::Tools::Nimhost
