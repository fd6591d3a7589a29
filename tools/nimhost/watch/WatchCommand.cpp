#include "cli/Commands.hpp"
#include "metrics/AtomicFile.hpp"
#include "metrics/MetricsText.hpp"
#include "text/ExceptionText.hpp"
#include "text/ExitCode.hpp"
#include "text/LinkText.hpp"
#include "watch/NetlinkMonitor.hpp"
#include "watch/StopSignals.hpp"

#include <Zel/Hardware/Nim/Modules/IEthernetInfoModule.hpp>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <net/if.h>
#include <nlohmann/json.hpp>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <type_traits>
#include <vector>

namespace Zel::Tools::Nimhost {

using namespace Zel::Hardware::Nim;
using namespace Zel::Hardware::Nim::Modules;
using Clock = std::chrono::steady_clock;

namespace {

// Kernel-backed ports are read again every so often even without a
// notification, in case one was missed in a way the kernel did not report.
constexpr auto safetyInterval = std::chrono::seconds(10);

const std::string overrunNote =
    "nimhost: watch: link notifications were lost (receive buffer overrun); reading every port again\n";

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
    // Reads no kernel interface, so no notification announces its changes.
    bool polled;
    // Interfaces whose notifications concern this port.
    std::set<std::string> interfaces;
    // What was reported last.
    Sample last;
    // A link-down held back until `heldUntil`.
    std::optional<Sample> held;
    Clock::time_point heldUntil;
    std::uint64_t changes = 0;
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

// event: "appeared" or "disappeared".
void PrintInterface(const std::string& name, const char* event, bool json, std::ostream& out)
{
    if (json) {
        out << nlohmann::ordered_json{{"time", Timestamp()}, {"event", event}, {"interfaceName", name}}.dump() << '\n';
    } else {
        out << fmt::format("{}  interface {} {}\n", Timestamp(), name, event);
    }
    out.flush();
}

// The modes whose answers come from the kernel's view of an interface (or
// never change); the switch chips' registers, GPIO lines and driver files
// announce nothing.
bool IsKernelBacked(const std::string& mode)
{
    return mode == "sysFile" || mode == "i210Driver" || mode == "unsupported";
}

// The interface a sysFile port reads, when its path lies in the kernel's
// network class directory ("/sys/class/net/eth0/" gives "eth0").
std::optional<std::string> SysfsInterface(const HostSettings& settings, unsigned int device, unsigned int port)
{
    const auto& ethernet = settings.For(EthernetInfoModuleName());
    const BasicString key(fmt::format("path.{}.{}.sysFile", device, port));
    if (!ethernet.HasSetting(key)) {
        return std::nullopt;
    }
    const std::string path = ethernet.GetSetting(key);
    const std::string prefix = "/sys/class/net/";
    if (path.compare(0, prefix.size(), prefix) != 0) {
        return std::nullopt;
    }
    const std::string name = path.substr(prefix.size(), path.find('/', prefix.size()) - prefix.size());
    return name.empty() ? std::nullopt : std::optional<std::string>(name);
}

class Watch {
public:
    Watch(const PluginHost& host, const HostSettings& settings, const WatchOptions& options, bool json,
          std::ostream& out)
        : host(host), settings(settings), ethernet(host.Get<IEthernetInfoModule>()), options(options), json(json),
          out(out)
    {
    }

    int Run()
    {
        // Joined before the first read, so no change falls between the two.
        NetlinkMonitor monitor(options.receiveBufferBytes);
        if (!Describe()) {
            std::cerr << "nimhost: watch: the Ethernet module reports no ports\n";
            return ExitCode::Success;
        }
        const StopSignals signals;
        ReportInitial();
        while (!StopSignals::Requested()) {
            const bool readable = Wait(monitor.Descriptor(), NextDeadline(), signals.WaitMask());
            if (StopSignals::Requested()) {
                break;
            }
            const auto now = Clock::now();
            bool changed = readable && RefreshNotified(monitor.ReadAll(), now);
            changed = RefreshPolled(now) || changed;
            const bool safety = now >= nextSafety;
            if (safety) {
                changed = RefreshWhere([](const WatchedPort&) { return true; }, now) || changed;
                nextSafety = now + safetyInterval;
            }
            changed =
                RefreshWhere([now](const WatchedPort& port) { return port.held && now >= port.heldUntil; }, now) ||
                changed;
            if (options.count != 0 && reported >= options.count) {
                WriteMetrics();
                return ExitCode::Success;
            }
            if (changed || safety) {
                WriteMetrics();
            }
        }
        return ExitCode::Success;
    }

private:
    // Every port's first answer, printed and in the metrics file.
    void ReportInitial()
    {
        for (auto& port : ports) {
            port.last = Read(port);
            Print(port, port.last, true, json, out);
        }
        WriteMetrics();
        nextPoll = Clock::now() + interval;
        nextSafety = Clock::now() + safetyInterval;
    }

    // The next poll, safety read or end of a held-back link-down.
    Clock::time_point NextDeadline() const
    {
        auto deadline = nextSafety;
        if (anyPolled) {
            deadline = std::min(deadline, nextPoll);
        }
        for (const auto& port : ports) {
            if (port.held) {
                deadline = std::min(deadline, port.heldUntil);
            }
        }
        return deadline;
    }

    // Reads the ports the notifications concern, every port when some were
    // lost; true when a change was reported.
    bool RefreshNotified(const LinkMessages& messages, Clock::time_point now)
    {
        const std::set<std::string> touched = Interfaces(messages.events);
        if (messages.lost) {
            std::cerr << overrunNote << std::flush;
        }
        return RefreshWhere(
            [&](const WatchedPort& port) {
                return messages.lost ||
                    std::any_of(port.interfaces.begin(), port.interfaces.end(),
                                [&](const auto& name) { return touched.count(name) != 0; });
            },
            now);
    }

    // Reads the ports no notification announces, once their interval is up.
    bool RefreshPolled(Clock::time_point now)
    {
        if (!anyPolled || now < nextPoll) {
            return false;
        }
        nextPoll = now + interval;
        return RefreshWhere([](const WatchedPort& port) { return port.polled; }, now);
    }

    // Refreshes every port `chosen` picks, in board order; true when one
    // reported a change.
    template <typename Choice>
    bool RefreshWhere(Choice chosen, Clock::time_point now)
    {
        bool changed = false;
        for (auto& port : ports) {
            if (chosen(port)) {
                changed = Refresh(port, now) || changed;
            }
        }
        return changed;
    }

    // The ports and what triggers a read of each; false when there are none.
    bool Describe()
    {
        for (unsigned int device = 1; device <= ethernet.GetDeviceCount(); ++device) {
            const std::string interfaceName = ethernet.GetInterfaceName(device);
            const std::string mode = settings.PortMode(device);
            for (unsigned int port = 1; port <= ethernet.GetPortCount(device); ++port) {
                WatchedPort watched{device,
                                    port,
                                    interfaceName,
                                    ethernet.GetPortPublicName(device, port),
                                    !IsKernelBacked(mode),
                                    {interfaceName},
                                    {},
                                    {},
                                    {},
                                    0};
                if (mode == "sysFile") {
                    if (const auto name = SysfsInterface(settings, device, port)) {
                        watched.interfaces.insert(*name);
                    }
                }
                ports.push_back(std::move(watched));
            }
        }
        for (const auto& name : BoardInterfaces()) {
            indexes[name] = static_cast<int>(::if_nametoindex(name.c_str()));
        }
        anyPolled = std::any_of(ports.begin(), ports.end(), [](const auto& p) { return p.polled; });
        return !ports.empty();
    }

    std::set<std::string> BoardInterfaces() const
    {
        std::set<std::string> names;
        for (const auto& port : ports) {
            names.insert(port.interfaces.begin(), port.interfaces.end());
        }
        return names;
    }

    // The interface names the events concern; reports the board's interfaces
    // that went away (removed or renamed) or came (back).
    std::set<std::string> Interfaces(const std::vector<LinkEvent>& events)
    {
        std::set<std::string> names;
        for (const auto& event : events) {
            for (auto& [name, index] : indexes) {
                const bool renamedAway =
                    event.kind == LinkEvent::Kind::NewLink && index != 0 && event.index == index && event.name != name;
                const bool removed = event.kind == LinkEvent::Kind::DelLink && index != 0 &&
                    (event.index == index || event.name == name);
                if (renamedAway || removed) {
                    index = 0;
                    names.insert(name);
                    PrintInterface(name, "disappeared", json, out);
                } else if (event.kind == LinkEvent::Kind::NewLink && index == 0 && event.name == name) {
                    index = event.index;
                    names.insert(name);
                    PrintInterface(name, "appeared", json, out);
                }
            }
            names.insert(event.name);
        }
        return names;
    }

    Sample Read(const WatchedPort& port) const
    {
        return {ethernet.GetPortLinkState(port.device, port.port), ethernet.GetPortLinkSpeed(port.device, port.port),
                ethernet.GetPortLinkDuplex(port.device, port.port)};
    }

    // Reads the port through the plug-in and reports a change, holding a
    // link-down back for the debounce time; true when a change was reported.
    bool Refresh(WatchedPort& port, Clock::time_point now)
    {
        if (options.count != 0 && reported >= options.count) {
            return false;
        }
        const Sample sample = Read(port);
        const bool wentDown = port.last.state == LinkState::Up && sample.state != LinkState::Up;
        if (port.held) {
            if (sample == port.last) {
                port.held.reset(); // the link came back in time: a flap, not reported
                return false;
            }
            if (wentDown && now < port.heldUntil) {
                port.held = sample;
                return false;
            }
            port.held.reset();
        } else if (sample == port.last) {
            return false;
        } else if (wentDown && options.debounceMs > 0) {
            port.held = sample;
            port.heldUntil = now + std::chrono::milliseconds(options.debounceMs);
            return false;
        }
        port.last = sample;
        ++port.changes;
        ++reported;
        Print(port, sample, false, json, out);
        return true;
    }

    // Waits for notifications until `deadline` or a stop signal; true when
    // the socket is readable.
    static bool Wait(int descriptor, Clock::time_point deadline, const sigset_t& mask)
    {
        const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
        const timespec timeout{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
        pollfd entry{descriptor, POLLIN, 0};
        const int ready = ::ppoll(&entry, 1, &timeout, &mask);
        if (ready < 0) {
            const int error = errno;
            if (error == EINTR) {
                return false;
            }
            throw std::system_error(error, std::generic_category(), "Could not wait for link notifications");
        }
        return ready > 0 && (entry.revents & (POLLIN | POLLERR)) != 0;
    }

    // The metrics file shows what the watch reported, so a link-down still
    // held back does not appear in it either.
    void WriteMetrics()
    {
        if (options.metricsFile.empty()) {
            return;
        }
        MetricsSnapshot snapshot = CollectMetrics(host, settings);
        WatchTally tally;
        tally.startSeconds = startSeconds;
        for (const auto& port : ports) {
            tally.changes[{port.device, port.port}] = port.changes;
            for (auto& device : snapshot.devices) {
                if (device.device != port.device) {
                    continue;
                }
                for (auto& report : device.ports) {
                    if (report.port == port.port) {
                        report.state.value = port.last.state;
                        report.speed.value = port.last.speed;
                        report.duplex.value = port.last.duplex;
                    }
                }
            }
        }
        const std::string text = RenderMetrics(snapshot, tally);
        if (!metricsWritten) {
            // A file that cannot be written at the start is a usage fault.
            WriteFileAtomically(options.metricsFile, text);
            metricsWritten = true;
            return;
        }
        try {
            WriteFileAtomically(options.metricsFile, text);
        } catch (const std::exception& e) {
            std::cerr << "nimhost: watch: " << e.what() << '\n';
        }
    }

    const PluginHost& host;
    const HostSettings& settings;
    const IEthernetInfoModule& ethernet;
    const WatchOptions& options;
    const bool json;
    std::ostream& out;
    std::vector<WatchedPort> ports;
    // Interface index of each of the board's interfaces; 0 while it is absent.
    std::map<std::string, int> indexes;
    unsigned int reported = 0;
    bool metricsWritten = false;
    const std::chrono::milliseconds interval{options.intervalMs};
    bool anyPolled = false;
    Clock::time_point nextPoll;
    Clock::time_point nextSafety;
    const double startSeconds =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
};

} // namespace

int RunWatch(const PluginHost& host, const HostSettings& settings, const WatchOptions& options, bool json,
             std::ostream& out)
{
    return Watch(host, settings, options, json, out).Run();
}

} // namespace Zel::Tools::Nimhost
