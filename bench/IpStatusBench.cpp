// IP status: address and netmask through the module next to socket + ioctl +
// close, and the default gateway next to the same scan of /proc/net/route,
// with 2, 100 and 1,000 routes in the table.
#include "AllocationCounter.hpp"
#include "BenchRig.hpp"
#include "BenchSupport.hpp"
#include "RatioTable.hpp"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace Zel::Bench {

namespace {

template <int Query>
void AddressLibrary(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    auto& ipStatus = Rig().ipStatus;
    Measure(state, [&] {
        if constexpr (Query == 0) {
            benchmark::DoNotOptimize(ipStatus.GetIpAddress(1));
        } else {
            benchmark::DoNotOptimize(ipStatus.GetSubnetMask(1));
        }
    });
}

template <int Query>
void AddressBare(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    Measure(state, [&] {
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        struct ifreq request;
        std::memset(&request, 0, sizeof request);
        request.ifr_addr.sa_family = AF_INET;
        std::strncpy(request.ifr_name, sysFileInterface, IFNAMSIZ - 1);
        if (ioctl(fd, Query == 0 ? SIOCGIFADDR : SIOCGIFNETMASK, &request) == 0) {
            sockaddr_in address;
            std::memcpy(&address, &request.ifr_addr, sizeof address);
            benchmark::DoNotOptimize(inet_ntoa(address.sin_addr));
        }
        close(fd);
    });
}

// The scenario leaves two routes on eth0 (its subnet and the default route);
// the others are added under a protocol number of their own so that they can
// be flushed in one go.
void EnsureRoutes(int count)
{
    static int current = 2;
    if (current == count) {
        return;
    }
    Shell("ip route flush proto 99");
    if (count > 2) {
        const char* batch = "/tmp/zel-bench-routes.batch";
        {
            std::ofstream out(batch);
            for (int i = 0; i < count - 2; ++i) {
                out << fmt::format("route add 10.{}.{}.0/24 via 192.168.1.1 dev eth0 proto 99\n", i / 256, i % 256);
            }
        }
        Shell(fmt::format("ip -batch {}", batch));
        std::remove(batch);
    }
    current = count;
}

void GatewayLibrary(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    EnsureRoutes(static_cast<int>(state.range(0)));
    auto& ipStatus = Rig().ipStatus;
    Measure(
        state, [&] { benchmark::DoNotOptimize(ipStatus.GetDefaultGateway(1)); }, std::to_string(state.range(0)));
}

void GatewayBare(benchmark::State& state)
{
    if (!RequireSandbox(state)) {
        return;
    }
    EnsureRoutes(static_cast<int>(state.range(0)));
    Measure(
        state,
        [&] {
            FILE* file = std::fopen("/proc/net/route", "r");
            unsigned long gateway = 0;
            bool found = false;
            char line[100];
            while (std::fgets(line, sizeof line, file) != nullptr) {
                char* save = nullptr;
                const char* name = strtok_r(line, "\t", &save);
                const char* destination = strtok_r(nullptr, "\t", &save);
                const char* gatewayField = strtok_r(nullptr, "\t", &save);
                if (name == nullptr || destination == nullptr || gatewayField == nullptr) {
                    continue;
                }
                if (std::strcmp(name, sysFileInterface) == 0 && std::strcmp(destination, "00000000") == 0) {
                    gateway = std::strtoul(gatewayField, nullptr, 16);
                    found = true;
                }
            }
            std::fclose(file);
            char text[32];
            auto end = fmt::format_to_n(text, sizeof text - 1, "{}.{}.{}.{}", gateway & 0xFF, (gateway >> 8) & 0xFF,
                                        (gateway >> 16) & 0xFF, (gateway >> 24) & 0xFF);
            *end.out = '\0';
            benchmark::DoNotOptimize(found);
            benchmark::DoNotOptimize(text);
        },
        std::to_string(state.range(0)));
}

} // namespace

ZEL_BENCH_AT_START(Register("ipstatus/address/lib", AddressLibrary<0>))
ZEL_BENCH_AT_START(Register("ipstatus/address/bare", AddressBare<0>))
ZEL_BENCH_AT_START(Register("ipstatus/netmask/lib", AddressLibrary<1>))
ZEL_BENCH_AT_START(Register("ipstatus/netmask/bare", AddressBare<1>))
ZEL_BENCH_AT_START(Register("ipstatus/gateway/lib", GatewayLibrary)->Arg(2)->Arg(100)->Arg(1000))
ZEL_BENCH_AT_START(Register("ipstatus/gateway/bare", GatewayBare)->Arg(2)->Arg(100)->Arg(1000))

ZEL_BENCH_AT_START(AddPair({"IpStatusModule::GetIpAddress (socket + ioctl + close)", "ipstatus/address/lib",
                            "ipstatus/address/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"IpStatusModule::GetSubnetMask (socket + ioctl + close)", "ipstatus/netmask/lib",
                            "ipstatus/netmask/bare", 1.10, std::nullopt, 0.0, "≤ 1.10"}))
ZEL_BENCH_AT_START(AddPair({"IpStatusModule::GetDefaultGateway, 2 routes", "ipstatus/gateway/lib/2",
                            "ipstatus/gateway/bare/2", 1.15, std::nullopt, 0.0, "≤ 1.15"}))
ZEL_BENCH_AT_START(AddPair({"IpStatusModule::GetDefaultGateway, 100 routes", "ipstatus/gateway/lib/100",
                            "ipstatus/gateway/bare/100", 1.15, std::nullopt, 0.0, "≤ 1.15"}))
ZEL_BENCH_AT_START(AddPair({"IpStatusModule::GetDefaultGateway, 1,000 routes", "ipstatus/gateway/lib/1000",
                            "ipstatus/gateway/bare/1000", 1.15, std::nullopt, 0.0, "≤ 1.15"}))
ZEL_BENCH_AT_START(AddLinearGroup({"GetDefaultGateway against the number of routes",
                                   {2, 100, 1000},
                                   {"ipstatus/gateway/lib/2", "ipstatus/gateway/lib/100", "ipstatus/gateway/lib/1000"},
                                   {"ipstatus/gateway/bare/2", "ipstatus/gateway/bare/100",
                                    "ipstatus/gateway/bare/1000"}}))

} // namespace Zel::Bench
