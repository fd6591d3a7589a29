// Runs the nimhost executable as a user would, through the shell (and the
// cross emulator in the armhf build), with its output in scratch files.
#pragma once

#include "Checks.hpp"
#include "Sandbox.hpp"
#include "ScratchDirectory.hpp"

#include <string>
#include <vector>

namespace Zel::Test {

// The shell command that runs nimhost with these arguments, killed after 60 s.
// In the foreground, timeout passes a SIGTERM on to nimhost once; otherwise it
// sends it again to its process group a moment later, and that second one can
// come after the watch ended and gave the default action back, killing a
// nimhost that was shutting down cleanly.
inline std::string NimhostCommand(const std::vector<std::string>& arguments)
{
    std::string command = "timeout --foreground -s KILL 60 " NIMHOST_COMMAND;
    for (const auto& word : arguments) {
        command += " '";
        for (const char c : word) {
            command += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        command += "'";
    }
    return command;
}

struct NimhostResult {
    int exitCode; // 137 when it did not end in time
    std::string out;
    std::string err;
};

// The metrics service's User=, Group=, CapabilityBoundingSet= and
// NoNewPrivileges= (nimhost-metrics.service), with ids no account has: the
// kernel checks numbers, and a test gives its nodes this group.
inline const std::string ServiceCredentials =
    "setpriv --reuid=64123 --regid=64123 --clear-groups --bounding-set=-all --inh-caps=-all --no-new-privs ";

// `credentials`: a command nimhost runs under, such as ServiceCredentials.
inline NimhostResult RunNimhost(const std::vector<std::string>& arguments, const std::string& credentials = "")
{
    const ScratchDirectory output("nimhost-test");
    const int code =
        Run(credentials + NimhostCommand(arguments) + " >" + output.Path("out") + " 2>" + output.Path("err"));
    return {code, output.Read("out"), output.Read("err")};
}

} // namespace Zel::Test
