#pragma once

#include <csignal>

namespace Zel::Tools::Nimhost {

// SIGINT and SIGTERM end the watch between reads, so the modules are still
// disposed and deleted in order. While an object lives, the two stay blocked
// except inside a wait with WaitMask (ppoll), so a stop can never slip in
// between the check and the wait; previous handlers and mask come back with
// its end. One at a time, on the main thread; nothing here fails.
class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The mask to wait with: the stop signals let through.
    const sigset_t& WaitMask() const { return waitMask; }

    // Whether SIGINT or SIGTERM came since the object was made.
    static bool Requested();

private:
    struct sigaction previousInt {};
    struct sigaction previousTerm {};
    sigset_t previousMask{};
    sigset_t waitMask{};
};

} // namespace Zel::Tools::Nimhost
