#include "RatioTable.hpp"

#include "BenchSupport.hpp"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cmath>

namespace Zel::Bench {

namespace {

std::vector<BenchPair>& Pairs()
{
    static std::vector<BenchPair> pairs;
    return pairs;
}

std::vector<LinearGroup>& Groups()
{
    static std::vector<LinearGroup> groups;
    return groups;
}

double ToNs(double value, benchmark::TimeUnit unit)
{
    return value * 1e9 / benchmark::GetTimeUnitMultiplier(unit);
}

const Result* Find(const std::map<std::string, Result>& results, const std::string& name)
{
    auto found = results.find(name);
    return found == results.end() ? nullptr : &found->second;
}

std::string Ns(double ns)
{
    if (ns >= 100000) {
        return fmt::format("{:.1f} µs", ns / 1000);
    }
    if (ns >= 1000) {
        return fmt::format("{:.2f} µs", ns / 1000);
    }
    return fmt::format("{:.2f} ns", ns);
}

std::string Allocs(double allocs)
{
    return fmt::format("{:.2f}", allocs);
}

} // namespace

void AddPair(BenchPair pair)
{
    Pairs().push_back(std::move(pair));
}

void AddLinearGroup(LinearGroup group)
{
    Groups().push_back(std::move(group));
}

benchmark::internal::Benchmark* Register(const std::string& name, void (*function)(benchmark::State&))
{
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [name, function](benchmark::State& state) {
                                            CurrentBenchmark() = name;
                                            function(state);
                                        })
        ->Unit(benchmark::kNanosecond);
}

void CapturingReporter::ReportRuns(const std::vector<Run>& reports)
{
    benchmark::ConsoleReporter::ReportRuns(reports);
    for (const Run& run : reports) {
        std::string name = run.run_name.function_name;
        if (!run.run_name.args.empty()) {
            name += "/" + run.run_name.args;
        }
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        const bool single = run.run_type == Run::RT_Iteration;
        if (!median && !(single && !haveMedian[name])) {
            continue;
        }
        Result result;
        result.error = run.error_occurred;
        result.errorText = run.error_message;
        result.cpuNs = ToNs(run.GetAdjustedCPUTime(), run.time_unit);
        result.realNs = ToNs(run.GetAdjustedRealTime(), run.time_unit);
        auto allocs = run.counters.find("allocs");
        result.allocs = allocs != run.counters.end() ? allocs->second.value : 0;
        results[name] = result;
        if (median) {
            haveMedian[name] = true;
        }
    }
}

bool PrintRatioTable(const std::map<std::string, Result>& results, std::ostream& out)
{
    bool allMet = true;
    fmt::print(out,
               "\nTimes are CPU time per call, median of the repetitions; the ratio is library/bare on CPU time, "
               "with the same ratio on wall-clock time beside it.\n");
    fmt::print(
        out,
        "\n| Query | Library | Bare pattern | Ratio | Ratio (wall) | Allocs/call (lib / bare) | System calls (lib / bare) | Target | Met |\n");
    fmt::print(out, "|---|---:|---:|---:|---:|---:|---|---|---|\n");
    for (const BenchPair& pair : Pairs()) {
        const Result* lib = Find(results, pair.library);
        const Result* bare = pair.bare.empty() ? nullptr : Find(results, pair.bare);
        if (lib == nullptr || (!pair.bare.empty() && bare == nullptr)) {
            fmt::print(out, "| {} | not run | | | | | | {} | – |\n", pair.title, pair.targetText);
            continue;
        }
        if (lib->error || (bare != nullptr && bare->error)) {
            fmt::print(out, "| {} | error: {} | | | | | | {} | no |\n", pair.title,
                       lib->error ? lib->errorText : bare->errorText, pair.targetText);
            allMet = false;
            continue;
        }
        bool met = true;
        std::string ratioText = "–";
        std::string wallText = "–";
        if (bare != nullptr && bare->cpuNs > 0 && bare->realNs > 0) {
            const double ratio = lib->cpuNs / bare->cpuNs;
            ratioText = fmt::format("{:.3f}", ratio);
            wallText = fmt::format("{:.3f}", lib->realNs / bare->realNs);
            if (pair.maxRatio && ratio > *pair.maxRatio) {
                met = false;
            }
        }
        if (pair.maxNs && lib->cpuNs >= *pair.maxNs) {
            met = false;
        }
        if (pair.maxAllocs && lib->allocs > *pair.maxAllocs + 0.005) {
            met = false;
        }
        const std::string libCalls = SystemCallsOf(pair.library).value_or("–");
        const std::string bareCalls = pair.bare.empty() ? std::string("–") : SystemCallsOf(pair.bare).value_or("–");
        if (pair.maxNs && pair.bare.empty() && libCalls != "none" && libCalls != "not traced" && libCalls != "–") {
            met = false; // a table query must make no system call at all
        }
        allMet = allMet && met;
        fmt::print(out, "| {} | {} | {} | {} | {} | {} / {} | {} / {} | {} | {} |\n", pair.title, Ns(lib->cpuNs),
                   bare != nullptr ? Ns(bare->cpuNs) : std::string("–"), ratioText, wallText, Allocs(lib->allocs),
                   bare != nullptr ? Allocs(bare->allocs) : std::string("–"), libCalls, bareCalls, pair.targetText,
                   met ? "yes" : "**no**");
    }

    // Linearity: a least-squares line time = a + b·size through all sizes;
    // linear when time grows (b > 0) and no point lies further from the line
    // than 10 % of the largest time (a quadratic growth misses the middle
    // point by far more). The per-segment costs are shown as well.
    for (const LinearGroup& group : Groups()) {
        fmt::print(out, "\n{}:\n", group.title);
        for (const auto* names : {&group.library, &group.bare}) {
            std::vector<double> times;
            for (const std::string& name : *names) {
                const Result* result = Find(results, name);
                if (result == nullptr || result->error) {
                    break;
                }
                times.push_back(result->cpuNs);
            }
            const char* which = names == &group.library ? "library" : "bare";
            if (times.size() != group.sizes.size() || times.size() < 3) {
                fmt::print(out, "- {}: not measured\n", which);
                continue;
            }
            const auto n = static_cast<double>(times.size());
            double meanX = 0;
            double meanY = 0;
            for (std::size_t i = 0; i < times.size(); ++i) {
                meanX += group.sizes[i] / n;
                meanY += times[i] / n;
            }
            double sxx = 0;
            double sxy = 0;
            for (std::size_t i = 0; i < times.size(); ++i) {
                sxx += (group.sizes[i] - meanX) * (group.sizes[i] - meanX);
                sxy += (group.sizes[i] - meanX) * (times[i] - meanY);
            }
            const double slope = sxy / sxx;
            const double intercept = meanY - slope * meanX;
            double worst = 0;
            std::string points;
            for (std::size_t i = 0; i < times.size(); ++i) {
                const double fitted = intercept + slope * group.sizes[i];
                worst = std::max(worst, std::fabs(times[i] - fitted) / times.back());
                points += fmt::format("{}{:g}: {}", i == 0 ? "" : ", ", group.sizes[i], Ns(times[i]));
            }
            const bool linear = slope > 0 && worst <= 0.10;
            if (names == &group.library) {
                allMet = allMet && linear;
            }
            std::string segments;
            for (std::size_t i = 1; i < times.size(); ++i) {
                segments += fmt::format("{}{:g}→{:g}: {}", i == 1 ? "" : ", ", group.sizes[i - 1], group.sizes[i],
                                        Ns((times[i] - times[i - 1]) / (group.sizes[i] - group.sizes[i - 1])));
            }
            fmt::print(out,
                       "- {}: {}; fitted line {} + {} per unit (per segment {}), largest deviation from it {:.1f} % of "
                       "the largest time ({})\n",
                       which, points, Ns(intercept), Ns(slope), segments, worst * 100,
                       linear ? "linear" : "**not linear**");
        }
    }
    fmt::print(out, "\nAll targets met: {}\n", allMet ? "yes" : "no");
    return allMet;
}

} // namespace Zel::Bench
