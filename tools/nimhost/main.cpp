// nimhost: loads libZel.Hardware.Modules.Nim.Linux.so exactly as the
// controller framework does and shows what its modules report on this
// machine. See tools/README-nimhost.md and `nimhost --help`.
#include "Commands.hpp"
#include "ExceptionText.hpp"
#include "ExitCode.hpp"
#include "HostSettings.hpp"
#include "MachineInterfaces.hpp"
#include "PluginHost.hpp"
#include "UsageError.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <CLI/CLI.hpp>

#include <filesystem>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace {

using namespace Zel::Tools::Nimhost;

struct HostOptions {
    std::string plugin;
    std::string config;
    int logLevel = 3;
    bool json = false;
};

// The plug-in beside the installed executable (bin/../lib/<arch>), else the
// one this build tree made, else the installed place (the loader's message
// then names it).
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

// Runs `step`, turning what it throws into nimhost's report and exit code.
// Called while the plug-in is still loaded, since an exception's text may
// live in its code.
int Guarded(const std::function<int()>& step)
{
    try {
        return step();
    } catch (const UsageError& e) {
        std::cerr << "nimhost: " << e.what() << '\n';
        return ExitCode::UsageFailed;
    } catch (const std::exception& e) {
        std::cerr << "nimhost: " << DescribeException(e) << '\n';
        return ExitCode::OperationFailed;
    } catch (...) {
        std::cerr << "nimhost: unknown exception\n";
        return ExitCode::OperationFailed;
    }
}

} // namespace

int main(int argc, char** argv)
{
    HostOptions options;
    CLI::App app{"Loads the network-interface management plug-in as the controller framework does and shows\n"
                 "what its modules report on this machine.",
                 "nimhost"};
    app.set_version_flag("--version", NIMHOST_VERSION);
    // Global options may also follow the command: `nimhost report --json`.
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.add_option("--plugin", options.plugin, "The plug-in to load (default: " + DefaultPluginPath() + ")");
    app.add_option("--config", options.config,
                   "Settings file (TOML, one table per module); default: built from this machine's interfaces");
    app.add_option("--log-level", options.logLevel,
                   "Level of the library's log messages on standard error: 0 none, 3 errors, 5 warnings, "
                   "7 debug, 8 trace")
        ->check(CLI::Range(0, 8))
        ->capture_default_str();
    app.add_flag("--json", options.json, "Machine-readable output: one JSON document (watch: one per line)");
    app.footer("Exit codes: 0 success; 1 an operation failed (exception type and message on standard error);\n"
               "2 a usage or settings-file error.");

    app.add_subcommand("report", "Every device, its ports, live and configured IP settings "
                                                    "(the default command)");
    CLI::App* interfaces = app.add_subcommand("interfaces", "The kernel's current interface names");

    CLI::App* ip = app.add_subcommand("ip", "Read or write a device's configured IP settings "
                                            "(/etc/network/interfaces)");
    ip->require_subcommand(1);
    unsigned int device = 0;
    std::string field;
    std::string value;
    const std::vector<std::string> fields{"address", "netmask", "gateway", "dns", "mode"};
    CLI::App* ipGet = ip->add_subcommand("get", "Print a configured value");
    ipGet->add_option("DEVICE", device, "Device number, from 1")->required();
    ipGet->add_option("FIELD", field, "address, netmask, gateway, dns or mode")
        ->required()
        ->check(CLI::IsMember(fields));
    CLI::App* ipSet = ip->add_subcommand("set", "Write a configured value");
    ipSet->add_option("DEVICE", device, "Device number, from 1")->required();
    ipSet->add_option("FIELD", field, "address, netmask, gateway, dns or mode")
        ->required()
        ->check(CLI::IsMember(fields));
    ipSet->add_option("VALUE", value, "The value; for mode a method word (" + MethodWordList() + ")")->required();

    CLI::App* status = app.add_subcommand("status", "A device's live address, netmask and gateway");
    status->add_option("DEVICE", device, "Device number, from 1")->required();

    WatchOptions watchOptions;
    CLI::App* watch = app.add_subcommand("watch", "Print every port's link, then one line per change of link "
                                                  "state, speed or duplex");
    watch->add_option("--interval", watchOptions.intervalMs,
                      "Polling interval in milliseconds of the ports that read no kernel interface")
        ->check(CLI::Range(1U, 3600000U))
        ->capture_default_str();
    watch->add_option("--count", watchOptions.count, "End after this many changes (default: until interrupted)")
        ->check(CLI::Range(1U, std::numeric_limits<unsigned int>::max()));
    AddWatchOptions(*watch, watchOptions);
    MetricsOptions metricsOptions;
    CLI::App* metrics = AddMetricsCommand(app, metricsOptions);

    CLI::App* modules = app.add_subcommand("modules", "The plug-in's registered modules and its file name");
    CLI::App* settingsCommand = app.add_subcommand("settings", "The settings in use, as a settings file");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? ExitCode::Success : ExitCode::UsageFailed;
    }

    // A method word is checked before anything is loaded, like every other
    // usage error.
    if (ipSet->parsed() && field == "mode") {
        const int code = Guarded([&] {
            ParseMethodWord(value);
            return ExitCode::Success;
        });
        if (code != ExitCode::Success) {
            return code;
        }
    }

    // The framework's process set-up: one AppDomain with its LogManager, made
    // before any plug-in is loaded and kept until every plug-in is gone.
    Zel::System::Commons::AppDomain appDomain;
    appDomain.AddSingleton(std::make_shared<Zel::System::Commons::Logging::LogManager>(options.logLevel));

    // Settings are read before the plug-in is loaded, so a bad file is
    // reported without any module having run.
    std::optional<HostSettings> settings;
    if (!modules->parsed()) {
        const int code = Guarded([&] {
            settings = options.config.empty() ? HostSettings::FromInterfaces(ReadLinkLayerInterfaceNames())
                                              : HostSettings::LoadFile(options.config);
            return ExitCode::Success;
        });
        if (code != ExitCode::Success) {
            return code;
        }
    }

    std::unique_ptr<PluginHost> host;
    const int loaded = Guarded([&] {
        host = std::make_unique<PluginHost>(options.plugin.empty() ? DefaultPluginPath() : options.plugin, appDomain);
        return ExitCode::Success;
    });
    if (loaded != ExitCode::Success) {
        return loaded;
    }

    const int code = Guarded([&]() -> int {
        if (modules->parsed()) {
            return RunModules(*host, options.json, std::cout);
        }
        settings->CheckModuleNames(host->GetModuleNames());
        if (settingsCommand->parsed()) {
            return RunSettings(*settings, options.json, std::cout);
        }
        host->Start(*settings);
        int result = ExitCode::Success;
        if (interfaces->parsed()) {
            result = RunInterfaces(*host, options.json, std::cout);
        } else if (ipGet->parsed()) {
            result = RunIpGet(*host, device, field, options.json, std::cout);
        } else if (ipSet->parsed()) {
            result = RunIpSet(*host, device, field, value, options.json, std::cout);
        } else if (status->parsed()) {
            result = RunStatus(*host, device, options.json, std::cout);
        } else if (watch->parsed()) {
            result = RunWatch(*host, *settings, watchOptions, options.json, std::cout);
        } else if (metrics->parsed()) {
            result = RunMetrics(*host, *settings, metricsOptions, std::cout);
        } else {
            result = RunReport(*host, *settings, options.json, std::cout);
        }
        host->Stop();
        return result;
    });
    // Modules go before the library, the library before the AppDomain.
    const int stopped = Guarded([&] {
        host.reset();
        return ExitCode::Success;
    });
    return code != ExitCode::Success ? code : stopped;
}
