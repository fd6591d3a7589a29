#pragma once

#include "plugin/PluginHost.hpp"
#include "report/DeviceReport.hpp"
#include "settings/HostSettings.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zel::Tools::Nimhost {

// Every answer of every device, as one collection for the metrics.
struct MetricsSnapshot {
    std::vector<DeviceReport> devices;
    // How long asking the modules took.
    double seconds = 0;
};

// Asks the modules about every device (CollectDevice), timing it.
MetricsSnapshot CollectMetrics(const PluginHost& host, const HostSettings& settings);

// What a running watch adds: when it started and the changes it reported per
// (device, port).
struct WatchTally {
    double startSeconds = 0;
    std::map<std::pair<unsigned int, unsigned int>, std::uint64_t> changes;
};

// The snapshot in the Prometheus text format, every name prefixed "nim_";
// with a tally, the watch's counters too. An unknown speed, duplex or link
// state is left out rather than given a number, as is any value whose query
// threw; each thrown query shows in nim_query_failed instead.
std::string RenderMetrics(const MetricsSnapshot& snapshot, const std::optional<WatchTally>& tally);

} // namespace Zel::Tools::Nimhost
