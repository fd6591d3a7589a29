#include "RatioTable.hpp"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <cmath>

namespace Zel::Bench {

namespace {

std::vector<PairSpec>& Pairs()
{
    static std::vector<PairSpec> pairs;
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

void AddPair(PairSpec pair)
{
    Pairs().push_back(std::move(pair));
}

void AddLinearGroup(LinearGroup group)
{
    Groups().push_back(std::move(group));
}

benchmark::internal::Benchmark* Register(const std::string& name, void (*function)(benchmark::State&))
{
    return benchmark::RegisterBenchmark(name.c_str(), function)->Unit(benchmark::kNanosecond);
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
    fmt::print(out, "\n| Query | Library | Bare pattern | Ratio | Allocs/call (lib / bare) | Target | Met |\n");
    fmt::print(out, "|---|---:|---:|---:|---:|---|---|\n");
    for (const PairSpec& pair : Pairs()) {
        const Result* lib = Find(results, pair.library);
        const Result* bare = pair.bare.empty() ? nullptr : Find(results, pair.bare);
        if (lib == nullptr || (!pair.bare.empty() && bare == nullptr)) {
            fmt::print(out, "| {} | not run | | | | {} | – |\n", pair.title, pair.targetText);
            continue;
        }
        if (lib->error || (bare != nullptr && bare->error)) {
            fmt::print(out, "| {} | error: {} | | | | {} | no |\n", pair.title,
                       lib->error ? lib->errorText : bare->errorText, pair.targetText);
            allMet = false;
            continue;
        }
        bool met = true;
        std::string ratioText = "–";
        if (bare != nullptr && bare->cpuNs > 0) {
            const double ratio = lib->cpuNs / bare->cpuNs;
            ratioText = fmt::format("{:.3f}", ratio);
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
        allMet = allMet && met;
        fmt::print(out, "| {} | {} | {} | {} | {} / {} | {} | {} |\n", pair.title, Ns(lib->cpuNs),
                   bare != nullptr ? Ns(bare->cpuNs) : std::string("–"), ratioText, Allocs(lib->allocs),
                   bare != nullptr ? Allocs(bare->allocs) : std::string("–"), pair.targetText, met ? "yes" : "**no**");
    }

    // Linearity: fit time = a + b·size through the smallest and the middle
    // size, and compare the prediction with the largest size.
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
            const std::size_t last = times.size() - 1;
            const double slope = (times[1] - times[0]) / (group.sizes[1] - group.sizes[0]);
            const double predicted = times[0] + slope * (group.sizes[last] - group.sizes[0]);
            const double deviation = times[last] / predicted;
            const bool linear = std::fabs(deviation - 1.0) <= 0.25;
            if (names == &group.library) {
                allMet = allMet && linear;
            }
            std::string points;
            for (std::size_t i = 0; i < times.size(); ++i) {
                points += fmt::format("{}{:g}: {}", i == 0 ? "" : ", ", group.sizes[i], Ns(times[i]));
            }
            fmt::print(out,
                       "- {}: {}; {} per step of size; largest size measured/predicted by a straight line = {:.2f} "
                       "({})\n",
                       which, points, Ns(slope), deviation, linear ? "linear" : "**not linear**");
        }
    }
    fmt::print(out, "\nAll targets met: {}\n", allMet ? "yes" : "no");
    return allMet;
}

} // namespace Zel::Bench
