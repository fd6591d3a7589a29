// Runs the nimhost executable as a user would (through the cross emulator in
// the armhf build) and collects what it prints, with bounded deadlines.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Zel::Test {

struct NimhostResult {
    // Exit code; 128+N when killed by signal N, -1 when it did not end in time.
    int exitCode = -1;
    std::string out;
    std::string err;
};

// A running nimhost with its standard output and error on pipes.
class NimhostProcess {
public:
    explicit NimhostProcess(const std::vector<std::string>& arguments);
    ~NimhostProcess();
    NimhostProcess(const NimhostProcess&) = delete;
    NimhostProcess& operator=(const NimhostProcess&) = delete;

    // The next line of standard output (without its line feed); empty when
    // none arrived before the deadline or the output ended.
    std::optional<std::string> ReadLine(std::chrono::milliseconds deadline);

    void Signal(int signalNumber) const;

    // Reads the rest of the output and waits for the end; kills the process
    // when it has not ended by the deadline (exitCode -1).
    NimhostResult Wait(std::chrono::milliseconds deadline);

private:
    // Reads what is there, waiting at most until `until`; false when both
    // pipes are closed.
    bool Pump(std::chrono::steady_clock::time_point until);

    pid_t pid = -1;
    int outFd = -1;
    int errFd = -1;
    std::string outBuffer;
    std::string errBuffer;
};

// Runs nimhost to its end (deadline 60 s: the cross build runs it under qemu).
NimhostResult RunNimhost(const std::vector<std::string>& arguments);

} // namespace Zel::Test
