#include "ip/TrialWrite.hpp"

#include "plugin/LogDigest.hpp"

#include <Zel/System/Commons/Logging/LogAdapter.hpp>

#include <fmt/format.h>

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Zel::Tools::Nimhost {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

using Zel::System::Commons::Logging::LogLevel;

// The child's answer: a tag ('T' tried, 'E' the namespace failed), then
// length-prefixed fields.
constexpr char tried = 'T';
constexpr char failed = 'E';

bool WriteAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

void Put(std::string& message, const std::string& field)
{
    const auto size = static_cast<std::uint64_t>(field.size());
    message.append(reinterpret_cast<const char*>(&size), sizeof size).append(field);
}

bool Take(const std::string& message, std::size_t& pos, std::string& field)
{
    std::uint64_t size = 0;
    if (message.size() - pos < sizeof size) {
        return false;
    }
    std::memcpy(&size, message.data() + pos, sizeof size);
    pos += sizeof size;
    if (message.size() - pos < size) {
        return false;
    }
    field = message.substr(pos, static_cast<std::size_t>(size));
    pos += static_cast<std::size_t>(size);
    return true;
}

std::string ReadAll(int fd)
{
    std::string content;
    char buffer[8192];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return content;
        }
        content.append(buffer, static_cast<std::size_t>(got));
    }
}

bool WriteFile(const char* path, const std::string& text)
{
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    const bool done = fd >= 0 && WriteAll(fd, text.data(), text.size());
    if (fd >= 0) {
        ::close(fd);
    }
    return done;
}

// A mount namespace of its own; without the right to make one (not root), a
// user namespace in which the caller is root.
std::string EnterNamespace()
{
    if (::unshare(CLONE_NEWNS) != 0) {
        const int error = errno;
        const uid_t uid = ::getuid();
        const gid_t gid = ::getgid();
        if (error != EPERM || ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
            !WriteFile("/proc/self/setgroups", "deny") ||
            !WriteFile("/proc/self/uid_map", fmt::format("0 {} 1", uid)) ||
            !WriteFile("/proc/self/gid_map", fmt::format("0 {} 1", gid))) {
            const int userError = errno;
            return fmt::format("no mount namespace of its own ({}; as root it needs none)",
                               std::strerror(error != EPERM ? error : userError));
        }
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        const int error = errno;
        return fmt::format("the mounts stay shared ({})", std::strerror(error));
    }
    return {};
}

// Covers the file's directory with an empty tmpfs that holds the copy and
// the links the directory had, so that the file's name leads to the copy.
std::string PlaceCopy(const std::string& target, const std::string& before)
{
    const std::size_t slash = target.rfind('/');
    const std::string directory = target.substr(0, slash);
    if (slash == std::string::npos || directory.empty()) {
        return fmt::format("{} lies in the root directory", target);
    }
    struct stat info {};
    const int old = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (old < 0 || ::stat(target.c_str(), &info) != 0) {
        const int error = errno;
        return fmt::format("{}: {}", target, std::strerror(error));
    }
    if (::mount("nimhost-trial", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
        const int error = errno;
        return fmt::format("no tmpfs over {} ({})", directory, std::strerror(error));
    }
    // The old directory stays readable through the descriptor taken before.
    const std::unique_ptr<DIR, CloseDirectory> entries(::fdopendir(old));
    while (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr) {
        char link[PATH_MAX];
        const ssize_t size = ::readlinkat(old, entry->d_name, link, sizeof link - 1);
        if (size > 0) {
            link[size] = '\0';
            ::symlink(link, (directory + "/" + entry->d_name).c_str());
        }
    }
    const int copy = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, info.st_mode & 07777);
    if (copy < 0 || !WriteAll(copy, before.data(), before.size()) || ::close(copy) != 0) {
        const int error = errno;
        return fmt::format("no copy of {} ({})", target, std::strerror(error));
    }
    return {};
}

[[noreturn]] void RunChild(int answer, const std::string& file, const std::string& before,
                           const std::function<int()>& setter, const LogDigest* log)
{
    // The module's messages are for the real write; the trial's are kept in
    // the log and sent back.
    const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) {
        ::dup2(null, STDERR_FILENO);
    }
    std::string message(1, tried);
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(file.c_str(), nullptr), &std::free);
    std::string problem = resolved ? EnterNamespace() : fmt::format("{}: {}", file, std::strerror(errno));
    if (problem.empty()) {
        problem = PlaceCopy(resolved.get(), before);
    }
    if (!problem.empty()) {
        message[0] = failed;
        Put(message, problem);
    } else {
        const std::size_t mark = log != nullptr ? log->Mark() : 0;
        const int result = setter();
        const auto errors = log != nullptr ? log->TextsSince(mark, LogLevel::Error) : std::vector<std::string>{};
        Put(message, std::to_string(result));
        Put(message, std::to_string(errors.size()));
        for (const auto& text : errors) {
            Put(message, text);
        }
        const int copy = ::open(resolved.get(), O_RDONLY | O_CLOEXEC);
        Put(message, copy >= 0 ? ReadAll(copy) : std::string());
    }
    // Not exit(): the parent's buffered output and static objects are the
    // parent's alone.
    ::_exit(WriteAll(answer, message.data(), message.size()) ? 0 : 1);
}

} // namespace

TrialOutcome TryOnCopy(const std::string& file, const std::string& before, const std::function<int()>& setter,
                       const LogDigest* log)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        const int error = errno;
        throw TrialUnavailable(fmt::format("no pipe to a trial process ({})", std::strerror(error)));
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        RunChild(ends[1], file, before, setter, log);
    }
    const int forkError = errno;
    ::close(ends[1]);
    const std::string message = child > 0 ? ReadAll(ends[0]) : std::string();
    ::close(ends[0]);
    if (child < 0) {
        throw TrialUnavailable(fmt::format("no trial process ({})", std::strerror(forkError)));
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    std::size_t pos = 1;
    std::string field;
    if (!message.empty() && message[0] == failed && Take(message, pos, field)) {
        throw TrialUnavailable(field);
    }
    TrialOutcome outcome;
    std::string count;
    if (message.empty() || message[0] != tried || !Take(message, pos, field) || !Take(message, pos, count)) {
        throw TrialUnavailable(WIFSIGNALED(status)
                                   ? fmt::format("the trial process ended by signal {}", WTERMSIG(status))
                                   : std::string("the trial process gave no answer"));
    }
    outcome.result = std::atoi(field.c_str());
    for (unsigned long i = std::strtoul(count.c_str(), nullptr, 10); i > 0 && Take(message, pos, field); --i) {
        outcome.errors.push_back(field);
    }
    if (!Take(message, pos, outcome.after)) {
        throw TrialUnavailable("the trial process gave no answer");
    }
    return outcome;
}

} // namespace Zel::Tools::Nimhost
