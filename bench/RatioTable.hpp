// The ratio table: pairs of benchmarks (library query, bare system-call
// pattern) declared next to the benchmarks themselves, the results captured
// from the run, and the table printed at the end with the targets checked.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace Zel::Bench {

struct BenchPair {
    std::string title; // the row's text, e.g. "GetPortLinkState, sysFile port"
    std::string library; // benchmark name of the library query
    std::string bare; // benchmark name of the bare pattern; empty when none
    std::optional<double> maxRatio; // library/bare must not exceed it
    std::optional<double> maxNs; // the library's time must stay below it
    std::optional<double> maxAllocs; // allocations per library call allowed
    std::string targetText; // the target as written in the table
};

// Rows whose library time must grow linearly with `sizes` (e.g. routes).
struct LinearGroup {
    std::string title;
    std::vector<double> sizes;
    std::vector<std::string> library; // benchmark names, one per size
    std::vector<std::string> bare; // the same for the bare pattern
};

void AddPair(BenchPair pair);
void AddLinearGroup(LinearGroup group);

// Median (or single) result of one benchmark.
struct Result {
    double cpuNs = 0;
    double realNs = 0;
    double allocs = 0;
    bool error = false;
    std::string errorText;
};

// Prints what the console reporter prints and keeps each benchmark's median
// aggregate (or its only run when there are no repetitions).
class CapturingReporter : public benchmark::ConsoleReporter {
public:
    using benchmark::ConsoleReporter::ConsoleReporter;
    void ReportRuns(const std::vector<Run>& reports) override;

    const std::map<std::string, Result>& Results() const { return results; }

private:
    std::map<std::string, Result> results;
    std::map<std::string, bool> haveMedian;
};

// Writes the table as Markdown; returns false when a target is missed.
bool PrintRatioTable(const std::map<std::string, Result>& results, std::ostream& out);

// Registers a benchmark with the settings every pair shares.
benchmark::internal::Benchmark* Register(const std::string& name, void (*function)(benchmark::State&));

} // namespace Zel::Bench

// Expands to a registration that runs at static initialisation.
#define ZEL_BENCH_CONCAT2(a, b) a##b
#define ZEL_BENCH_CONCAT(a, b) ZEL_BENCH_CONCAT2(a, b)
#define ZEL_BENCH_AT_START(statement)                                                                                  \
    namespace {                                                                                                        \
    const bool ZEL_BENCH_CONCAT(zelBenchRegistered, __LINE__) = ((statement), true);                                   \
    }
