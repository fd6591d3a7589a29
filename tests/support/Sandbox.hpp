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

// Sets up links, addresses and routes of the sandbox by running `ip`.
// Every call throws std::runtime_error with the command and its output when
// `ip` fails. Calls that take no interface name act on the interface chosen
// last by Veth() or Interface().
//
//   NetSandbox().Veth("eth0", "eth0p").Mac("02:00:00:00:00:01")
//               .Address("192.168.1.10/24").Up()
//               .Route("default via 192.168.1.1 dev eth0 metric 5");
class NetSandbox {
public:
    // Creates a veth pair; `peer` (the "switch" end) is brought up at once,
    // `name` stays down until Up(), and becomes the current interface.
    NetSandbox& Veth(const std::string& name, const std::string& peer);
    // Makes an existing interface (e.g. "lo") the current one.
    NetSandbox& Interface(const std::string& name);
    NetSandbox& Mac(const std::string& mac);
    NetSandbox& Address(const std::string& cidr);
    NetSandbox& Up();
    // `ip route add <route>`, e.g. "default via 192.168.1.1 dev eth0 metric 5".
    NetSandbox& Route(const std::string& route);
    NetSandbox& SetLinkUp(const std::string& name);
    NetSandbox& SetLinkDown(const std::string& name);
    NetSandbox& Delete(const std::string& name);
    // Any other `ip` command, e.g. Ip("addr flush dev eth0").
    NetSandbox& Ip(const std::string& arguments);

private:
    const std::string& Current(const char* what) const;
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
