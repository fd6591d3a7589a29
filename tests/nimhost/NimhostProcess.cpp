#include "NimhostProcess.hpp"

#include "NimhostPaths.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace Zel::Test {

NimhostProcess::NimhostProcess(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command(NimhostPaths::command.begin(), NimhostPaths::command.end());
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& word : command) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    int outPipe[2];
    int errPipe[2];
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    pid = ::fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        ::dup2(outPipe[1], STDOUT_FILENO);
        ::dup2(errPipe[1], STDERR_FILENO);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    outFd = outPipe[0];
    errFd = errPipe[0];
    ::fcntl(outFd, F_SETFL, O_NONBLOCK);
    ::fcntl(errFd, F_SETFL, O_NONBLOCK);
}

NimhostProcess::~NimhostProcess()
{
    if (pid > 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    if (outFd >= 0) {
        ::close(outFd);
    }
    if (errFd >= 0) {
        ::close(errFd);
    }
}

bool NimhostProcess::Pump(std::chrono::steady_clock::time_point until)
{
    std::array<pollfd, 2> fds{{{outFd, POLLIN, 0}, {errFd, POLLIN, 0}}};
    const auto now = std::chrono::steady_clock::now();
    const auto wait = until > now ? std::chrono::duration_cast<std::chrono::milliseconds>(until - now).count() : 0;
    if (outFd < 0 && errFd < 0) {
        return false;
    }
    if (::poll(fds.data(), fds.size(), static_cast<int>(wait)) < 0 && errno != EINTR) {
        throw std::runtime_error("poll failed");
    }
    const auto drain = [](int& fd, std::string& buffer) {
        std::array<char, 4096> chunk{};
        while (fd >= 0) {
            const ssize_t n = ::read(fd, chunk.data(), chunk.size());
            if (n > 0) {
                buffer.append(chunk.data(), static_cast<std::size_t>(n));
            } else if (n == 0) {
                ::close(fd);
                fd = -1;
            } else {
                break; // EAGAIN: nothing more for now
            }
        }
    };
    drain(outFd, outBuffer);
    drain(errFd, errBuffer);
    return outFd >= 0 || errFd >= 0;
}

std::optional<std::string> NimhostProcess::ReadLine(std::chrono::milliseconds deadline)
{
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (true) {
        const auto end = outBuffer.find('\n');
        if (end != std::string::npos) {
            std::string line = outBuffer.substr(0, end);
            outBuffer.erase(0, end + 1);
            return line;
        }
        if (std::chrono::steady_clock::now() >= until || !Pump(until) || outFd < 0) {
            if (outBuffer.find('\n') == std::string::npos) {
                return std::nullopt;
            }
        }
    }
}

void NimhostProcess::Signal(int signalNumber) const
{
    ::kill(pid, signalNumber);
}

NimhostResult NimhostProcess::Wait(std::chrono::milliseconds deadline)
{
    const auto until = std::chrono::steady_clock::now() + deadline;
    NimhostResult result;
    while (std::chrono::steady_clock::now() < until && Pump(until)) {
    }
    int status = 0;
    pid_t ended = 0;
    while ((ended = ::waitpid(pid, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < until) {
        Pump(std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
    }
    if (ended == pid) {
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid = -1;
    }
    result.out = std::move(outBuffer);
    result.err = std::move(errBuffer);
    return result;
}

NimhostResult RunNimhost(const std::vector<std::string>& arguments)
{
    NimhostProcess process(arguments);
    return process.Wait(std::chrono::seconds(60));
}

} // namespace Zel::Test
