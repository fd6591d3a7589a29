// Ethernet information: link queries through the module next to the single
// system call each one is built on, the table queries that must make no
// system call at all, and the set-up of a full controller.
#include "AllocationCounter.hpp"
#include "BenchRig.hpp"
#include "BenchSupport.hpp"
#include "RatioTable.hpp"

#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace Zel::Bench {

namespace {

// ---- sysFile port: one pread of 12 bytes per query --------------------------

template <int Query>
void SysFileLibrary(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    auto& ethernet = Rig().ethernet;
    Measure(state, [&] {
        if constexpr (Query == 0) {
            benchmark::DoNotOptimize(ethernet.GetPortLinkState(1, 1));
        } else if constexpr (Query == 1) {
            benchmark::DoNotOptimize(ethernet.GetPortLinkSpeed(1, 1));
        } else {
            benchmark::DoNotOptimize(ethernet.GetPortLinkDuplex(1, 1));
        }
    });
}

template <int Query>
void SysFileBare(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    static const char* const files[] = {"operstate", "speed", "duplex"};
    const std::string path = std::string("/sys/class/net/") + sysFileInterface + "/" + files[Query];
    MeasureBarePread<12>(state, path, 'u', "cannot open the attribute file");
}

// ---- I210 port: one ioctl on a kept socket per query ------------------------

template <int Query>
void I210Library(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    auto& ethernet = Rig().ethernet;
    Measure(state, [&] {
        if constexpr (Query == 0) {
            benchmark::DoNotOptimize(ethernet.GetPortLinkState(2, 1));
        } else if constexpr (Query == 1) {
            benchmark::DoNotOptimize(ethernet.GetPortLinkSpeed(2, 1));
        } else {
            benchmark::DoNotOptimize(ethernet.GetPortLinkDuplex(2, 1));
        }
    });
}

template <int Query>
void I210Bare(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    Measure(state, [&] {
        struct ifreq request;
        std::memset(&request, 0, sizeof request);
        std::strncpy(request.ifr_name, i210Interface, IFNAMSIZ - 1);
        if constexpr (Query == 0) {
            benchmark::DoNotOptimize(ioctl(fd, SIOCGIFFLAGS, &request));
            benchmark::DoNotOptimize((request.ifr_flags & IFF_RUNNING) != 0);
        } else {
            struct ethtool_cmd command;
            std::memset(&command, 0, sizeof command);
            command.cmd = ETHTOOL_GSET;
            request.ifr_data = reinterpret_cast<char*>(&command);
            benchmark::DoNotOptimize(ioctl(fd, SIOCETHTOOL, &request));
            benchmark::DoNotOptimize(command.duplex);
        }
    });
    close(fd);
}

// ---- table queries: no system call ------------------------------------------

void DeviceCount(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    auto& ethernet = Rig().ethernet;
    Measure(state, [&] { benchmark::DoNotOptimize(ethernet.GetDeviceCount()); });
}

template <int Query>
void TableText(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    auto& ethernet = Rig().ethernet;
    Measure(state, [&] {
        if constexpr (Query == 0) {
            benchmark::DoNotOptimize(ethernet.GetInterfaceName(1));
        } else if constexpr (Query == 1) {
            benchmark::DoNotOptimize(ethernet.GetMacAddress(1));
        } else {
            benchmark::DoNotOptimize(ethernet.GetPortPublicName(1, 1));
        }
    });
}

// ---- set-up of a controller with 16 devices of 2 sysFile ports -------------

void SetupSixteenDevices(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    std::vector<std::string> interfaces;
    for (int i = 0; i < 16; ++i) {
        interfaces.push_back("eth" + std::to_string(i));
    }
    const ModuleSettings settings = EthernetSettings(interfaces, 2, std::vector<std::string>(16, "sysFile"));
    Zel::Hardware::Commons::Modules::HardwareModuleProvider provider;
    Measure(state, [&] {
        Zel::Hardware::Modules::Nim::Linux::EthernetInfoModule module;
        module.SetupSettings(settings, provider);
        benchmark::DoNotOptimize(module.GetDeviceCount());
    });
}

} // namespace

ZEL_BENCH_AT_START(Register("sysfile/state/lib", SysFileLibrary<0>))
ZEL_BENCH_AT_START(Register("sysfile/state/bare", SysFileBare<0>))
ZEL_BENCH_AT_START(Register("sysfile/speed/lib", SysFileLibrary<1>))
ZEL_BENCH_AT_START(Register("sysfile/speed/bare", SysFileBare<1>))
ZEL_BENCH_AT_START(Register("sysfile/duplex/lib", SysFileLibrary<2>))
ZEL_BENCH_AT_START(Register("sysfile/duplex/bare", SysFileBare<2>))
ZEL_BENCH_AT_START(Register("i210/state/lib", I210Library<0>))
ZEL_BENCH_AT_START(Register("i210/state/bare", I210Bare<0>))
ZEL_BENCH_AT_START(Register("i210/speed/lib", I210Library<1>))
ZEL_BENCH_AT_START(Register("i210/speed/bare", I210Bare<1>))
ZEL_BENCH_AT_START(Register("i210/duplex/lib", I210Library<2>))
ZEL_BENCH_AT_START(Register("i210/duplex/bare", I210Bare<2>))
ZEL_BENCH_AT_START(Register("table/device_count/lib", DeviceCount))
ZEL_BENCH_AT_START(Register("table/interface_name/lib", TableText<0>))
ZEL_BENCH_AT_START(Register("table/mac_address/lib", TableText<1>))
ZEL_BENCH_AT_START(Register("table/port_public_name/lib", TableText<2>))
ZEL_BENCH_AT_START(Register("setup/16x2_sysfile/lib", SetupSixteenDevices))

ZEL_BENCH_AT_START(AddPair({"GetPortLinkState, sysFile port (pread 12 B)", "sysfile/state/lib", "sysfile/state/bare",
                            1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetPortLinkSpeed, sysFile port (pread 12 B)", "sysfile/speed/lib", "sysfile/speed/bare",
                            1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetPortLinkDuplex, sysFile port (pread 12 B)", "sysfile/duplex/lib", "sysfile/duplex/bare",
                            1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetPortLinkState, I210 port (SIOCGIFFLAGS, kept socket)", "i210/state/lib",
                            "i210/state/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetPortLinkSpeed, I210 port (SIOCETHTOOL, kept socket)", "i210/speed/lib",
                            "i210/speed/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetPortLinkDuplex, I210 port (SIOCETHTOOL, kept socket)", "i210/duplex/lib",
                            "i210/duplex/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"GetDeviceCount (no system call)", "table/device_count/lib", "", std::nullopt, 100.0, 0.0,
                            "< 100 ns, 0 allocs"}))
ZEL_BENCH_AT_START(AddPair({"GetInterfaceName \"eth0\" (no system call)", "table/interface_name/lib", "", std::nullopt,
                            100.0, 0.0, "< 100 ns, 0 allocs (inline string)"}))
ZEL_BENCH_AT_START(AddPair({"GetMacAddress, 17 characters (no system call)", "table/mac_address/lib", "", std::nullopt,
                            100.0, 1.0, "< 100 ns, 1 alloc (the returned string)"}))
ZEL_BENCH_AT_START(AddPair({"GetPortPublicName \"X1\" (no system call)", "table/port_public_name/lib", "", std::nullopt,
                            100.0, 0.0, "< 100 ns, 0 allocs (inline string)"}))
ZEL_BENCH_AT_START(AddPair({"SetupSettings, 16 devices × 2 sysFile ports", "setup/16x2_sysfile/lib", "", std::nullopt,
                            std::nullopt, std::nullopt, "report"}))

} // namespace Zel::Bench
