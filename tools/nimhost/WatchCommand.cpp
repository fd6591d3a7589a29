#include "Commands.hpp"
#include "ExitCode.hpp"
#include "LinkText.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>
#include <optional>
#include <thread>
#include <type_traits>
#include <vector>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;

namespace {

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void RequestStop(int)
{
    stopRequested = 1;
}

// SIGINT and SIGTERM end the watch between polls, so the modules are still
// disposed and deleted in order; the previous handlers come back afterwards.
class StopSignals {
public:
    StopSignals()
    {
        stopRequested = 0;
        struct sigaction action {};
        action.sa_handler = RequestStop;
        sigemptyset(&action.sa_mask);
        ::sigaction(SIGINT, &action, &previousInt);
        ::sigaction(SIGTERM, &action, &previousTerm);
    }
    ~StopSignals()
    {
        ::sigaction(SIGINT, &previousInt, nullptr);
        ::sigaction(SIGTERM, &previousTerm, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

private:
    struct sigaction previousInt {};
    struct sigaction previousTerm {};
};

struct Sample {
    LinkState state;
    LinkSpeed speed;
    LinkDuplex duplex;

    bool operator==(const Sample& other) const
    {
        return state == other.state && speed == other.speed && duplex == other.duplex;
    }
};

struct WatchedPort {
    unsigned int device;
    unsigned int port;
    std::string interfaceName;
    std::string publicName;
    std::optional<Sample> last;
};

template <typename E>
long long Code(E value)
{
    return static_cast<long long>(static_cast<std::underlying_type_t<E>>(value));
}

// Local time with milliseconds, ISO 8601.
std::string Timestamp()
{
    const auto now = std::chrono::system_clock::now();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03d}", fmt::localtime(std::chrono::system_clock::to_time_t(now)),
                       static_cast<int>(ms));
}

void Print(const WatchedPort& port, const Sample& sample, bool initial, bool json, std::ostream& out)
{
    if (json) {
        out << nlohmann::ordered_json{{"time", Timestamp()},
                              {"event", initial ? "initial" : "change"},
                              {"device", port.device},
                              {"port", port.port},
                              {"interfaceName", port.interfaceName},
                              {"publicName", port.publicName},
                              {"linkState", Code(sample.state)},
                              {"linkSpeed", Code(sample.speed)},
                              {"linkDuplex", Code(sample.duplex)}}
                   .dump()
            << '\n';
    } else {
        out << fmt::format("{}  device {} ({}) port {} ({}): link {}, speed {}, duplex {}\n", Timestamp(), port.device,
                           port.interfaceName, port.port, port.publicName, DescribeLinkState(sample.state),
                           DescribeLinkSpeed(sample.speed), DescribeLinkDuplex(sample.duplex));
    }
    // A reader on a pipe sees each change when it happens.
    out.flush();
}

// Waits one interval, waking early when a stop was requested.
void Pause(unsigned int intervalMs)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(intervalMs);
    while (stopRequested == 0) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= end) {
            return;
        }
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(end - now,
                                                                                   std::chrono::milliseconds(50)));
    }
}

} // namespace

int RunWatch(const PluginHost& host, const WatchOptions& options, bool json, std::ostream& out)
{
    const auto& ethernet = host.Get<IEthernetInfoModule>();
    std::vector<WatchedPort> ports;
    for (unsigned int device = 1; device <= ethernet.GetDeviceCount(); ++device) {
        const std::string interfaceName = ethernet.GetInterfaceName(device);
        for (unsigned int port = 1; port <= ethernet.GetPortCount(device); ++port) {
            ports.push_back({device, port, interfaceName, ethernet.GetPortPublicName(device, port), std::nullopt});
        }
    }
    if (ports.empty()) {
        std::cerr << "nimhost: watch: the Ethernet module reports no ports\n";
        return ExitCode::Success;
    }

    const StopSignals signals;
    unsigned int changes = 0;
    bool first = true;
    while (stopRequested == 0) {
        if (!first) {
            Pause(options.intervalMs);
            if (stopRequested != 0) {
                break;
            }
        }
        for (auto& port : ports) {
            const Sample sample{ethernet.GetPortLinkState(port.device, port.port),
                                ethernet.GetPortLinkSpeed(port.device, port.port),
                                ethernet.GetPortLinkDuplex(port.device, port.port)};
            if (port.last && *port.last == sample) {
                continue;
            }
            port.last = sample;
            Print(port, sample, first, json, out);
            if (!first && ++changes == options.count) {
                return ExitCode::Success;
            }
        }
        first = false;
    }
    return ExitCode::Success;
}

} // namespace Zel::Tools::Nimhost
