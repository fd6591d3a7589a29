#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Tools::Nimhost {

class LogDigest;

// What a setter of the IP configuration module would make of the interfaces
// file, learnt by letting the module's own setter write a copy: nimhost keeps
// no second copy of the module's editing rules, so what it checks is exactly
// what the module will do.
struct TrialOutcome {
    // The setter's result code (0 success).
    int result = 0;
    // The library's error messages of the call, for explaining a failure.
    std::vector<std::string> errors;
    // The copy's content after the call.
    std::string after;
};

// No throw-away mount namespace could be made (not root, and no user
// namespaces); what() says why, in the user's terms.
class TrialUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Runs `setter` in a child process inside its own mount namespace, where a
// tmpfs covers the directory of `file` (after following links) and holds
// `before` as the file, with the directory's links recreated; the real file
// is never touched. The child's standard error is discarded; `log` (may be
// null) collects the library's messages of the call. Blocks until the child
// ends. Call it while nimhost runs no other thread.
TrialOutcome TryOnCopy(const std::string& file, const std::string& before, const std::function<int()>& setter,
                       const LogDigest* log);

} // namespace Zel::Tools::Nimhost
