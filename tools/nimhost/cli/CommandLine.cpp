#include "cli/CommandLine.hpp"

#include "text/ExitCode.hpp"
#include "text/Failure.hpp"

#include <CLI/CLI.hpp>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <limits>
#include <sstream>
#include <vector>

namespace Zel::Tools::Nimhost {

// The plug-in in its private directory relative to the installed executable
// (bin/../lib/<multiarch>/zel-nim-linux), else the one this build tree made,
// else the installed place (the loader's message then names it).
std::string DefaultPluginPath()
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path executable = fs::read_symlink("/proc/self/exe", error);
    const fs::path installed =
        (executable.parent_path() / NIMHOST_PLUGIN_DIR_FROM_BIN / NIMHOST_PLUGIN_FILE_NAME).lexically_normal();
    if (!error && fs::exists(installed, error)) {
        return installed.string();
    }
    if (fs::exists(NIMHOST_BUILD_TREE_PLUGIN, error)) {
        return NIMHOST_BUILD_TREE_PLUGIN;
    }
    return executable.empty() ? std::string(NIMHOST_PLUGIN_FILE_NAME) : installed.string();
}

namespace {

const std::vector<std::string> fields{"address", "netmask", "gateway", "dns", "mode"};
constexpr const char* fieldHelp = "address, netmask, gateway, dns or mode";

// DEVICE is text here: "", "0" and "eth0" get nimhost's own message, which
// names the devices the board has.
void AddDevice(CLI::App& command, CommandLine& line)
{
    command.add_option("DEVICE", line.device, "Device number, from 1")->required();
}

} // namespace

std::optional<int> ParseCommandLine(int argc, char** argv, CommandLine& line)
{
    CLI::App app{"Loads the network-interface management plug-in as the controller framework does and shows\n"
                 "what its modules report on this machine.",
                 "nimhost"};
    app.set_version_flag("--version", NIMHOST_VERSION);
    // Global options may also follow the command: `nimhost report --json`.
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.add_option("--plugin", line.plugin, "The plug-in to load (default: " + DefaultPluginPath() + ")");
    app.add_option("--config", line.config,
                   "Settings file (TOML, one table per module); default: built from this machine's interfaces");
    app.add_option("--log-level", line.logLevel,
                   "Level of the library's log messages on standard error: 0 none, 3 errors, 5 warnings, "
                   "7 debug (also exception types), 8 trace; a repeated message is printed once with a count")
        ->check(CLI::Range(0, 8))
        ->capture_default_str();
    app.add_flag("--json", line.json,
                 "Machine-readable output: one JSON document (watch: one per line); a failure is "
                 "{\"error\": {...}}");
    app.footer("Exit codes: 0 success; 1 an operation failed (the cause on standard error);\n"
               "2 a usage or settings-file error. See nimhost(1).");

    std::vector<std::pair<CLI::App*, std::string>> commands;
    const auto add = [&](CLI::App& parent, const std::string& name, const std::string& help,
                         const std::string& command) {
        CLI::App* sub = parent.add_subcommand(name, help);
        commands.emplace_back(sub, command);
        return sub;
    };

    add(app, "report", "Every device, its ports, live and configured IP settings (the default command)", "report");
    add(app, "interfaces", "The kernel's current interface names", "interfaces");

    CLI::App* ip = app.add_subcommand("ip",
                                      "Read or write a device's configured IP settings "
                                      "(/etc/network/interfaces)");
    ip->require_subcommand(1);
    CLI::App* ipGet = add(*ip, "get", "Print a configured value (\"not set\" when the file has none)", "ip get");
    AddDevice(*ipGet, line);
    ipGet->add_option("FIELD", line.field, fieldHelp)->required()->check(CLI::IsMember(fields));
    CLI::App* ipSet = add(*ip, "set", "Write a configured value and print the change", "ip set");
    AddDevice(*ipSet, line);
    ipSet->add_option("FIELD", line.field, fieldHelp)->required()->check(CLI::IsMember(fields));
    ipSet->add_option("VALUE", line.value, "The value; for mode a method word (" + MethodWordList() + ")")->required();
    ipSet->add_flag("--force", line.force,
                    "Write the value without checking it, and also a change that reaches beyond the interface's "
                    "own stanza or line");
    ipSet->add_flag("--dry-run", line.dryRun, "Print the change as a unified diff of the file without writing it");

    CLI::App* status = add(app, "status", "A device's live address, netmask and gateway", "status");
    AddDevice(*status, line);

    CLI::App* watch =
        add(app, "watch", "Print every port's link, then one line per change of link state, speed or duplex", "watch");
    watch
        ->add_option("--interval", line.watch.intervalMs,
                     "Polling interval in milliseconds of the ports that read no kernel interface")
        ->check(CLI::Range(1U, 3600000U))
        ->capture_default_str();
    watch->add_option("--count", line.watch.count, "End after this many changes (default: until interrupted)")
        ->check(CLI::Range(1U, std::numeric_limits<unsigned int>::max()));
    AddWatchOptions(*watch, line.watch);
    commands.emplace_back(AddMetricsCommand(app, line.metrics), "metrics");

    add(app, "modules", "The plug-in's registered modules and its file name", "modules");
    add(app, "settings", "Check the settings and print them as a settings file", "settings");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) {
            app.exit(e);
            return ExitCode::Success;
        }
        // CLI11 has not filled the options: --json is looked for by hand.
        bool json = false;
        for (int i = 1; i < argc; ++i) {
            json = json || std::strcmp(argv[i], "--json") == 0;
        }
        ReportFailure("usage", std::string(e.what()) + " (nimhost --help lists the commands and options)",
                      ExitCode::UsageFailed, json);
        return ExitCode::UsageFailed;
    }
    for (const auto& [sub, name] : commands) {
        if (sub->parsed()) {
            line.command = name;
        }
    }
    line.configGiven = app.count("--config") > 0;
    line.logLevelGiven = app.count("--log-level") > 0;
    return std::nullopt;
}

} // namespace Zel::Tools::Nimhost
