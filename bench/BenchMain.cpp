// The benchmark program: a host-like AppDomain with a log manager at its
// default level writing into a sink that drops the text, then every
// registered benchmark, then the ratio table.
#include "BenchSupport.hpp"
#include "RatioTable.hpp"
#include "SyscallCounter.hpp"

#include <Zel/System/Commons/AppDomain.hpp>
#include <Zel/System/Commons/Logging/LogManager.hpp>

#include <fmt/format.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>

namespace Zel::Bench {

namespace {
std::shared_ptr<DroppingSink> sink = std::make_shared<DroppingSink>();
}

DroppingSink& Sink()
{
    return *sink;
}

void DroppingSink::Write(int level, std::string_view, std::string_view text)
{
    benchmark::DoNotOptimize(text.data());
    const auto index = static_cast<std::size_t>(level >= 0 && level < 10 ? level : 9);
    counts[index].fetch_add(1, std::memory_order_relaxed);
}

std::size_t DroppingSink::Count(int level) const
{
    return counts[static_cast<std::size_t>(level)].load(std::memory_order_relaxed);
}

std::size_t DroppingSink::Total() const
{
    std::size_t total = 0;
    for (const auto& count : counts) {
        total += count.load(std::memory_order_relaxed);
    }
    return total;
}

std::string& CurrentBenchmark()
{
    static std::string name;
    return name;
}

namespace {
std::map<std::string, std::string>& SystemCallTable()
{
    static std::map<std::string, std::string> table;
    return table;
}
} // namespace

void RecordSystemCalls(benchmark::State& state, const std::function<void()>& call, const std::string& suffix)
{
    const std::string name = CurrentBenchmark() + (suffix.empty() ? "" : "/" + suffix);
    auto& table = SystemCallTable();
    if (table.find(name) == table.end()) {
        call();
        const auto calls = TraceSystemCalls(call);
        table[name] = calls ? SummariseSystemCalls(*calls) : std::string("not traced");
    }
    state.SetLabel(table[name]);
}

std::optional<std::string> SystemCallsOf(const std::string& benchmark)
{
    auto found = SystemCallTable().find(benchmark);
    if (found == SystemCallTable().end()) {
        return std::nullopt;
    }
    return found->second;
}

bool RequireSandbox(benchmark::State& state)
{
    const char* flag = std::getenv("ZEL_SANDBOX");
    if (flag == nullptr || std::string(flag) != "1") {
        state.SkipWithError("needs the network sandbox: run scripts/run-bench.sh");
        return false;
    }
    return true;
}

void Shell(const std::string& command)
{
    const int status = std::system(command.c_str());
    if (status != 0) {
        throw std::runtime_error("command failed: " + command);
    }
}

} // namespace Zel::Bench

int main(int argc, char** argv)
{
    Zel::System::Commons::AppDomain appDomain;
    auto logManager = std::make_shared<Zel::System::Commons::Logging::LogManager>();
    logManager->SetSink(Zel::Bench::sink);
    appDomain.AddSingleton(logManager);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    Zel::Bench::CapturingReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    // The measured benchmarks log at their default level only where they
    // test logging itself; anything else here is a failing query.
    std::cout << fmt::format("\nLog level {}; messages that reached the sink: {} (errors: {})\n",
                             logManager->GetDefaultLogLevel(), Zel::Bench::Sink().Total(), Zel::Bench::Sink().Count(3));
    const bool met = Zel::Bench::PrintRatioTable(reporter.Results(), std::cout);
    return met ? 0 : 3;
}
