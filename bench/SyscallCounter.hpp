// Counts the system calls of a piece of code: it runs once on a fresh thread
// under a seccomp filter that hands every system call of that thread to a
// supervisor, which records its number and lets it proceed unchanged
// (user notification with "continue"). The calls between two markers are
// the code's own. futex is let through uncounted: the hand-over between the
// two threads needs it, and the queries take no contended lock.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Zel::Bench {

// The system call names of one run of `code`, in order; empty optional when
// this kernel or sandbox cannot install the filter.
std::optional<std::vector<std::string>> TraceSystemCalls(const std::function<void()>& code);

// "socket, ioctl, close", with "×n" for a run of the same call; totals per
// call for long sequences.
std::string SummariseSystemCalls(const std::vector<std::string>& calls);

} // namespace Zel::Bench
