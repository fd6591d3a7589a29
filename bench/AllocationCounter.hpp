// Counts heap allocations of the whole process: the benchmark executable
// replaces the global operator new, so every allocation of the plug-in, the
// framework libraries and the standard library passes through it.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace Zel::Bench {

std::uint64_t AllocationCount();

// Counts the allocations made between construction and Report(), which puts
// them on the benchmark as "allocs" per iteration.
class AllocationScope {
public:
    AllocationScope() : start(AllocationCount()) {}

    void Report(benchmark::State& state) const
    {
        const double count = static_cast<double>(AllocationCount() - start);
        state.counters["allocs"] = benchmark::Counter(count, benchmark::Counter::kAvgIterations);
    }

private:
    std::uint64_t start;
};

} // namespace Zel::Bench
