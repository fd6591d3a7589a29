// Helpers for kernel tests: gtest executables that run under
// tests/support/sandbox/nsrun (own network + mount namespaces, ZEL_SANDBOX=1).
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace Zel::Test {

// True when running inside nsrun (ZEL_SANDBOX=1).
bool InSandbox();

// True when CI=true: a kernel test that cannot run there is a failure.
bool InCi();

// Runs `shellCommand` through /bin/sh; returns its exit status (127 when it
// could not be started, 128+N when killed by signal N). Inside a TEST body
// write Zel::Test::Run(...): testing::Test::Run hides an unqualified Run.
int Run(const std::string& shellCommand);

// Runs `shellCommand` through /bin/sh and returns stdout and stderr together.
// Throws std::runtime_error (with the output) when it exits non-zero.
std::string RunOutput(const std::string& shellCommand);

// Polls `condition` every few milliseconds until it holds or `deadline`
// has passed; returns the last result. Use instead of sleeping in tests.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline);

// Sets up the links of the sandbox by running `ip`. Every call throws
// std::runtime_error with the command and its output when `ip` fails. Up()
// acts on the interface made last by Veth().
//
//   NetSandbox().Veth("eth0", "eth0p").Ip("addr add 192.168.1.10/24 dev eth0").Up();
class NetSandbox {
public:
    // Creates a veth pair; `peer` (the "switch" end) is brought up at once,
    // `name` stays down until Up().
    NetSandbox& Veth(const std::string& name, const std::string& peer);
    NetSandbox& Up();
    NetSandbox& SetLinkUp(const std::string& name);
    NetSandbox& SetLinkDown(const std::string& name);
    // Any `ip` command, e.g. Ip("addr flush dev eth0").
    NetSandbox& Ip(const std::string& arguments);

private:
    std::string current_;
};

} // namespace Zel::Test

// First statement of a kernel test (or of SetUp()): skips the test outside
// nsrun, and fails it instead when CI=true, so CI never silently skips.
#define ZEL_REQUIRE_SANDBOX()                                                                                          \
    do {                                                                                                               \
        if (!::Zel::Test::InSandbox()) {                                                                               \
            if (::Zel::Test::InCi()) {                                                                                 \
                FAIL() << "kernel test run outside the network sandbox on CI: run it "                                 \
                          "through tests/support/sandbox/nsrun (ctest -L kernel)";                                     \
            }                                                                                                          \
            GTEST_SKIP() << "not in the network sandbox (ZEL_SANDBOX!=1); run it through "                             \
                            "tests/support/sandbox/nsrun";                                                             \
        }                                                                                                              \
    } while (false)
