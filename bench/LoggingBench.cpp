// The framework's logging as the plug-in uses it: a call below the channel's
// level must cost a load and a compare (nothing formatted, nothing
// allocated); a call at the level costs the formatting into the 500-byte
// inline buffer and the hand-over to the sink.
#include "AllocationCounter.hpp"
#include "BenchSupport.hpp"
#include "RatioTable.hpp"

#include <Zel/System/Commons/BasicString.hpp>
#include <Zel/System/Commons/Logging/Loggable.hpp>

#include <fmt/format.h>

#include <atomic>
#include <iterator>

namespace Zel::Bench {

// An argument that counts how often fmt formats it: proof that a call below
// the level formats nothing.
struct FormatProbe {
    unsigned int value;
};

std::atomic<unsigned long> probeFormats{0};

} // namespace Zel::Bench

template <>
struct fmt::formatter<Zel::Bench::FormatProbe> : fmt::formatter<unsigned int> {
    template <typename FormatContext>
    auto format(const Zel::Bench::FormatProbe& probe, FormatContext& ctx) const
    {
        Zel::Bench::probeFormats.fetch_add(1, std::memory_order_relaxed);
        return fmt::formatter<unsigned int>::format(probe.value, ctx);
    }
};

namespace Zel::Bench {

using Zel::System::Commons::BasicString;

// A class that logs like every class of the plug-in: through its own channel.
class LoggingClass : public Zel::System::Commons::Logging::Loggable<LoggingClass, false, false> {
public:
    static void Trace(unsigned int device, const BasicString& name, unsigned int request)
    {
        log(8, "IpStatusSocketAccess::GetSettingFromSocket(): device {0} interfaceName {1} request {2}", device, name,
            request);
    }
    static void TraceProbe(const FormatProbe& probe)
    {
        log(8, "IpStatusSocketAccess::GetCurrentIpAdress(): {0}", probe);
    }
    static void AtLevel(int level, unsigned int device, const BasicString& name, unsigned int request)
    {
        log(level, "IpStatusSocketAccess::GetSettingFromSocket(): device {0} interfaceName {1} request {2}", device,
            name, request);
    }
};

namespace {

const BasicString interfaceName("eth0");

void EmptyLoop(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::ClobberMemory();
    }
}

void LogBelowLevel(benchmark::State& state)
{
    LoggingClass::Trace(1, interfaceName, 35093); // creates the channel outside the loop
    const unsigned long formatsBefore = probeFormats.load();
    const std::size_t sinkBefore = Sink().Total();
    const unsigned int device = 1;
    Measure(state, [&] {
        LoggingClass::TraceProbe(FormatProbe{device});
        benchmark::ClobberMemory();
    });
    if (probeFormats.load() != formatsBefore || Sink().Total() != sinkBefore) {
        state.SkipWithError("a call below the level formatted or wrote a message");
    }
}

void LogBelowLevelThreeArguments(benchmark::State& state)
{
    LoggingClass::Trace(1, interfaceName, 35093);
    Measure(state, [&] {
        LoggingClass::Trace(1, interfaceName, 35093);
        benchmark::ClobberMemory();
    });
}

void LogAtLevel(benchmark::State& state)
{
    const int level = LoggingClass::log.GetAdapter().GetLogLevel();
    Measure(state, [&] { LoggingClass::AtLevel(level, 1, interfaceName, 35093); });
}

void FormatToMemoryBuffer(benchmark::State& state)
{
    Measure(state, [&] {
        fmt::basic_memory_buffer<char, 500> buffer;
        fmt::format_to(std::back_inserter(buffer),
                       "IpStatusSocketAccess::GetSettingFromSocket(): device {0} interfaceName {1} request {2}", 1u,
                       interfaceName, 35093u);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
    });
}

} // namespace

ZEL_BENCH_AT_START(Register("log/below_level/lib", LogBelowLevel))
ZEL_BENCH_AT_START(Register("log/below_level_3args/lib", LogBelowLevelThreeArguments))
ZEL_BENCH_AT_START(Register("log/below_level/bare", EmptyLoop))
ZEL_BENCH_AT_START(Register("log/at_level/lib", LogAtLevel))
ZEL_BENCH_AT_START(Register("log/at_level/bare", FormatToMemoryBuffer))

ZEL_BENCH_AT_START(AddPair({"log call below the channel's level (vs an empty loop)", "log/below_level/lib",
                            "log/below_level/bare", std::nullopt, 1.0, 0.0, "< 1 ns, nothing formatted, 0 allocs"}))
ZEL_BENCH_AT_START(AddPair({"log call below the level, 3 arguments", "log/below_level_3args/lib",
                            "log/below_level/bare", std::nullopt, 1.0, 0.0, "< 1 ns, 0 allocs"}))
ZEL_BENCH_AT_START(AddPair({"log call at the level into a dropping sink (vs fmt::format_to, 500-byte buffer)",
                            "log/at_level/lib", "log/at_level/bare", 1.5, std::nullopt, 0.0, "≤ 1.5"}))

} // namespace Zel::Bench
