// What the benchmarks share: the sandbox check, shell commands for setting
// up routes and files, and the log sink that drops every message.
#pragma once

#include <Zel/System/Commons/Logging/LogSink.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
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

} // namespace Zel::Bench
