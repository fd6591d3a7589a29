#include "cli/Commands.hpp"
#include "metrics/AtomicFile.hpp"
#include "metrics/MetricsText.hpp"
#include "text/ExitCode.hpp"

#include <CLI/CLI.hpp>

namespace Zel::Tools::Nimhost {

int RunMetrics(const PluginHost& host, const HostSettings& settings, const MetricsOptions& options, std::ostream& out)
{
    const std::string text = RenderMetrics(CollectMetrics(host, settings), std::nullopt);
    if (options.output.empty()) {
        out << text;
    } else {
        WriteFileAtomically(options.output, text);
    }
    return ExitCode::Success;
}

CLI::App* AddMetricsCommand(CLI::App& app, MetricsOptions& options)
{
    CLI::App* metrics =
        app.add_subcommand("metrics",
                           "Every device, port and IP answer in the Prometheus text format (node_exporter's textfile "
                           "collector reads it)");
    metrics->add_option("--output", options.output,
                        "Write to this file atomically (temporary file beside it, then rename) instead of "
                        "standard output");
    return metrics;
}

void AddWatchOptions(CLI::App& watch, WatchOptions& options)
{
    watch
        .add_option("--debounce", options.debounceMs,
                    "Hold a link-down back this many milliseconds and drop it if the link returns")
        ->check(CLI::Range(0U, 3600000U))
        ->capture_default_str();
    watch.add_option("--metrics-file", options.metricsFile,
                     "Keep this file current in the Prometheus text format, with counters of the changes");
    watch
        .add_option("--receive-buffer", options.receiveBufferBytes,
                    "Receive buffer of the link notification socket in bytes (default: the system's); "
                    "notifications lost to an overrun make watch read every port again")
        ->check(CLI::Range(1, 64 * 1024 * 1024));
}

} // namespace Zel::Tools::Nimhost
