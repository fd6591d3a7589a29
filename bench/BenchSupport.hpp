// What the benchmarks share: the sandbox check, shell commands for setting
// up routes and files, and the log sink that drops every message.
#pragma once

#include "AllocationCounter.hpp"

#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
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

// The bare pattern of a status read through a file kept open: one pread of
// `Size` bytes from the start, its first byte compared with `up`. `error`
// is the skip reason when the file cannot be opened.
template <std::size_t Size>
void MeasureBarePread(benchmark::State& state, const std::string& path, char up, const char* error)
{
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) {
        state.SkipWithError(error);
        return;
    }
    Measure(state, [&] {
        char buffer[Size];
        std::memset(buffer, 0, sizeof buffer);
        benchmark::DoNotOptimize(pread(fd, buffer, sizeof buffer, 0));
        benchmark::DoNotOptimize(buffer[0] == up);
    });
    close(fd);
}

} // namespace Zel::Bench
