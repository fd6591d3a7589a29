// nimhost: loads libZel.Hardware.Modules.Nim.Linux.so exactly as the
// controller framework does and shows what its modules report on this
// machine. The command line is in CommandLine.cpp; README.md ("nimhost") and
// nimhost(1) describe the commands.
#include "cli/CommandLine.hpp"
#include "cli/Commands.hpp"
#include "ip/ValueCheck.hpp"
#include "ip/WriteFailure.hpp"
#include "plugin/LogDigest.hpp"
#include "plugin/PluginHost.hpp"
#include "settings/HostSettings.hpp"
#include "settings/MachineInterfaces.hpp"
#include "text/ExceptionText.hpp"
#include "text/ExitCode.hpp"
#include "text/Failure.hpp"
#include "text/UsageError.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>
#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

using namespace Zel::Tools::Nimhost;
using Zel::System::Commons::Logging::LogLevel;

// Runs `step`, turning what it throws into nimhost's report and exit code.
// Called while the plug-in is still loaded, since an exception's text may
// live in its code.
int Guarded(const CommandLine& line, const std::function<int()>& step)
{
    try {
        return step();
    } catch (const UsageError& e) {
        ReportFailure("usage", e.what(), ExitCode::UsageFailed, line.json);
        return ExitCode::UsageFailed;
    } catch (const ExplainedFailure& e) {
        const bool technical = line.logLevel >= LogLevel::Debug;
        ReportFailure(e.originalType, technical ? e.originalType + ": " + e.originalMessage : e.what(),
                      e.originalMessage, ExitCode::OperationFailed, line.json);
        return ExitCode::OperationFailed;
    } catch (const std::exception& e) {
        ReportFailure(ExceptionTypeName(e), DescribeForUser(e, line.logLevel >= LogLevel::Debug), e.what(),
                      ExitCode::OperationFailed, line.json);
        return ExitCode::OperationFailed;
    } catch (...) {
        ReportFailure("unknown", "unknown exception", ExitCode::OperationFailed, line.json);
        return ExitCode::OperationFailed;
    }
}

// What can be checked before anything is loaded: the value of `ip set`.
void CheckValues(const CommandLine& line)
{
    if (line.command != "ip set") {
        return;
    }
    if (line.field == "mode") {
        ParseMethodWord(line.value);
    } else if (!line.force) {
        CheckValue(line.field, line.value);
    }
}

bool ReadsConfiguration(const std::string& command)
{
    return command == "report" || command == "metrics" || command == "ip get";
}

// The command itself, once the modules are set up.
int Dispatch(const CommandLine& line, const PluginHost& host, const HostSettings& settings, LogDigest& log)
{
    const Presentation how{line.json, line.logLevel >= LogLevel::Debug, &log,
                           line.logLevelGiven || line.command != "report" ? nullptr : &log};
    unsigned int device = 0;
    if (line.command == "ip get" || line.command == "ip set" || line.command == "status") {
        device =
            CheckDevice(line.device, host.Get<Zel::Hardware::Nim::Modules::IEthernetInfoModule>().GetDeviceCount());
    }
    // Said once, instead of one library error per value read; a failed
    // `ip set` says it as its cause.
    std::error_code ignored;
    if (line.command != "watch" && !std::filesystem::exists(interfacesFile, ignored)) {
        if (ReadsConfiguration(line.command)) {
            std::cerr << "nimhost: " << interfacesFile << " not found: nothing configured\n";
        }
        log.Silence("Error open file " + interfacesFile);
    }
    if (line.command == "interfaces") {
        return RunInterfaces(host, line.json, std::cout);
    }
    if (line.command == "ip get") {
        return RunIpGet(host, device, line.field, how, std::cout);
    }
    if (line.command == "ip set") {
        return RunIpSet(host, {device, line.field, line.value, line.dryRun, line.force}, how, std::cout);
    }
    if (line.command == "status") {
        return RunStatus(host, device, line.json, std::cout);
    }
    if (line.command == "watch") {
        return RunWatch(host, settings, line.watch, line.json, std::cout);
    }
    if (line.command == "metrics") {
        return RunMetrics(host, settings, line.metrics, std::cout);
    }
    return RunReport(host, settings, how, std::cout);
}

} // namespace

int main(int argc, char** argv)
{
    CommandLine line;
    if (const auto done = ParseCommandLine(argc, argv, line)) {
        return *done;
    }
    if (const int code = Guarded(line,
                                 [&] {
                                     CheckValues(line);
                                     return ExitCode::Success;
                                 });
        code != ExitCode::Success) {
        return code;
    }

    // The framework's process set-up: one AppDomain with its LogManager, made
    // before any plug-in is loaded and kept until every plug-in is gone. The
    // library's errors are always collected, since they explain a failed
    // write; the digest prints only what --log-level asks for.
    Zel::System::Commons::AppDomain appDomain;
    auto logManager =
        std::make_shared<Zel::System::Commons::Logging::LogManager>(std::max<int>(line.logLevel, LogLevel::Error));
    auto log = std::make_shared<LogDigest>(line.logLevel, stderr);
    logManager->SetSink(log);
    appDomain.AddSingleton(logManager);

    // Settings are read before the plug-in is loaded, so a bad file is
    // reported without any module having run.
    std::optional<HostSettings> settings;
    if (line.command != "modules") {
        const int code = Guarded(line, [&] {
            settings = line.configGiven ? HostSettings::LoadFile(line.config)
                                        : HostSettings::FromInterfaces(ReadLinkLayerInterfaceNames());
            return ExitCode::Success;
        });
        if (code != ExitCode::Success) {
            return code;
        }
    }

    std::unique_ptr<PluginHost> host;
    const int loaded = Guarded(line, [&] {
        host = std::make_unique<PluginHost>(line.plugin.empty() ? DefaultPluginPath() : line.plugin, appDomain);
        return ExitCode::Success;
    });
    if (loaded != ExitCode::Success) {
        return loaded;
    }

    const int code = Guarded(line, [&]() -> int {
        if (line.command == "modules") {
            return RunModules(*host, line.json, std::cout);
        }
        // Every command checks the settings as `settings` does, before set-up.
        settings->CheckModuleNames(host->GetModuleNames());
        for (const auto& warning : settings->Check(ReadLinkLayerInterfaceNames())) {
            std::cerr << "nimhost: warning: " << warning << '\n';
        }
        if (line.command == "settings") {
            return RunSettings(*settings, line.json, std::cout);
        }
        host->Start(*settings);
        const int result = Dispatch(line, *host, *settings, *log);
        host->Stop();
        return result;
    });
    // Modules go before the library, the library before the AppDomain.
    const int stopped = Guarded(line, [&] {
        host.reset();
        return ExitCode::Success;
    });
    log->Finish();
    return code != ExitCode::Success ? code : stopped;
}
