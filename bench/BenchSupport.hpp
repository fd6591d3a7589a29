// What the benchmarks share: the sandbox check, shell commands for setting
// up routes and files, and the log sink that drops every message.
#pragma once

#include "AllocationCounter.hpp"

#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <functional>
#include <optional>
#include <string>

namespace Zel::Bench {

// True inside tests/support/sandbox/nsrun, where the scenario's veth pairs
// exist; otherwise the benchmark is skipped with a message.
bool RequireSandbox(benchmark::State& state);

// Runs a command through /bin/sh; throws std::runtime_error when it fails.
void Shell(const std::string& command);

// Drops the text, keeps only a count per level, so a benchmark run can show
// that nothing was logged at the default level while it measured.
class DroppingSink : public Zel::System::Commons::Logging::ILogSink {
public:
    void Write(int level, std::string_view channel, std::string_view text) override;
    std::size_t Count(int level) const;
    std::size_t Total() const;

private:
    std::array<std::atomic<std::size_t>, 10> counts{};
};

DroppingSink& Sink();

// The benchmark being run (set by Register's wrapper), e.g. "sysfile/state/lib".
std::string& CurrentBenchmark();

// Runs `call` once to warm up and once under the system-call tracer, and
// keeps the calls it made under the benchmark's name (plus "/" + suffix).
void RecordSystemCalls(benchmark::State& state, const std::function<void()>& call, const std::string& suffix);

// System calls recorded for a benchmark: a summary text such as
// "socket, ioctl, close", or nothing when not traced.
std::optional<std::string> SystemCallsOf(const std::string& benchmark);

// The common shape of every measured benchmark: trace the system calls of
// one call, then time `call` in the loop and count its allocations.
template <typename Call>
void Measure(benchmark::State& state, Call&& call, const std::string& suffix = std::string())
{
    RecordSystemCalls(state, call, suffix);
    AllocationScope allocations;
    for (auto _ : state) {
        call();
    }
    allocations.Report(state);
}

} // namespace Zel::Bench
