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
    if (status == -1)
        return 127;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return 127;
}

// Runs the command with stderr folded into stdout; returns {status, output}.
std::pair<int, std::string> Capture(const std::string& shellCommand)
{
    const std::string command = "{ " + shellCommand + "\n} 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return {127, "popen failed for: " + shellCommand};
    std::string output;
    std::array<char, 4096> buffer{};
    size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        output.append(buffer.data(), n);
    return {DecodeStatus(::pclose(pipe)), output};
}

std::string MustRun(const std::string& shellCommand)
{
    auto [status, output] = Capture(shellCommand);
    if (status != 0) {
        throw std::runtime_error("command failed (exit " + std::to_string(status) + "): " + shellCommand +
                                 (output.empty() ? std::string() : "\n" + output));
    }
    return output;
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

std::string RunOutput(const std::string& shellCommand)
{
    return MustRun(shellCommand);
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (std::chrono::steady_clock::now() < end) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

NetSandbox& NetSandbox::Ip(const std::string& arguments)
{
    MustRun("ip " + arguments);
    return *this;
}

const std::string& NetSandbox::RequireCurrent(const char* what) const
{
    if (current_.empty()) {
        throw std::logic_error(std::string("NetSandbox::") + what +
                               ": no interface chosen (call Veth or Interface first)");
    }
    return current_;
}

NetSandbox& NetSandbox::Veth(const std::string& name, const std::string& peer)
{
    Ip("link add name " + name + " type veth peer name " + peer);
    Ip("link set dev " + peer + " up");
    current_ = name;
    return *this;
}

NetSandbox& NetSandbox::Interface(const std::string& name)
{
    current_ = name;
    return *this;
}

NetSandbox& NetSandbox::Mac(const std::string& mac)
{
    return Ip("link set dev " + RequireCurrent("Mac") + " address " + mac);
}

NetSandbox& NetSandbox::Address(const std::string& cidr)
{
    return Ip("addr add " + cidr + " dev " + RequireCurrent("Address"));
}

NetSandbox& NetSandbox::Up()
{
    return SetLinkUp(RequireCurrent("Up"));
}

NetSandbox& NetSandbox::Route(const std::string& route)
{
    return Ip("route add " + route);
}

NetSandbox& NetSandbox::SetLinkUp(const std::string& name)
{
    return Ip("link set dev " + name + " up");
}

NetSandbox& NetSandbox::SetLinkDown(const std::string& name)
{
    return Ip("link set dev " + name + " down");
}

NetSandbox& NetSandbox::Delete(const std::string& name)
{
    Ip("link del dev " + name);
    if (current_ == name)
        current_.clear();
    return *this;
}

} // namespace Zel::Test
