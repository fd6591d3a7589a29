#include "Sandbox.hpp"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace Zel::Test {
namespace {

bool EnvEquals(const char* name, const char* value)
{
    const char* actual = std::getenv(name);
    return actual != nullptr && std::string(actual) == value;
}

int DecodeStatus(int status)
{
    if (status != -1 && WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return status != -1 && WIFSIGNALED(status) ? 128 + WTERMSIG(status) : 127;
}

} // namespace

bool InSandbox()
{
    return EnvEquals("ZEL_SANDBOX", "1");
}

bool InCi()
{
    return EnvEquals("CI", "true");
}

int Run(const std::string& shellCommand)
{
    return DecodeStatus(std::system(shellCommand.c_str()));
}

// Standard error is folded into the output, so that a failure shows both.
std::string RunOutput(const std::string& shellCommand)
{
    FILE* pipe = ::popen(("{ " + shellCommand + "\n} 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("popen failed for: " + shellCommand);
    }
    std::string output;
    std::array<char, 4096> buffer{};
    for (std::size_t n = 0; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), n);
    }
    if (const int status = DecodeStatus(::pclose(pipe)); status != 0) {
        throw std::runtime_error("command failed (exit " + std::to_string(status) + "): " + shellCommand + "\n" +
                                 output);
    }
    return output;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

NetSandbox& NetSandbox::Ip(const std::string& arguments)
{
    RunOutput("ip " + arguments);
    return *this;
}

NetSandbox& NetSandbox::Veth(const std::string& name, const std::string& peer)
{
    Ip("link add name " + name + " type veth peer name " + peer).SetLinkUp(peer);
    current_ = name;
    return *this;
}

NetSandbox& NetSandbox::Up()
{
    return SetLinkUp(current_);
}

NetSandbox& NetSandbox::SetLinkUp(const std::string& name)
{
    return Ip("link set dev " + name + " up");
}

NetSandbox& NetSandbox::SetLinkDown(const std::string& name)
{
    return Ip("link set dev " + name + " down");
}

} // namespace Zel::Test
