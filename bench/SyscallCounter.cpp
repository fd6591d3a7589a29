#include "SyscallCounter.hpp"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>
#include <thread>

namespace Zel::Bench {

namespace {

std::string Name(long number)
{
    static const std::map<long, std::string> names = {
        {SYS_read, "read"},
        {SYS_write, "write"},
        {SYS_openat, "openat"},
        {SYS_close, "close"},
        {SYS_pread64, "pread64"},
        {SYS_pwrite64, "pwrite64"},
        {SYS_ioctl, "ioctl"},
        {SYS_socket, "socket"},
        {SYS_fstat, "fstat"},
#ifdef SYS_newfstatat // 32-bit ARM has fstatat64 instead, and mmap2 for mmap
        {SYS_newfstatat, "newfstatat"},
#endif
        {SYS_lseek, "lseek"},
        {SYS_rename, "rename"},
        {SYS_renameat, "renameat"},
        {SYS_renameat2, "renameat2"},
        {SYS_fsync, "fsync"},
        {SYS_unlink, "unlink"},
        {SYS_unlinkat, "unlinkat"},
        {SYS_fchmod, "fchmod"},
        {SYS_fchown, "fchown"},
        {SYS_getdents64, "getdents64"},
#ifdef SYS_mmap
        {SYS_mmap, "mmap"},
#endif
        {SYS_munmap, "munmap"},
        {SYS_brk, "brk"},
        {SYS_sendto, "sendto"},
        {SYS_recvmsg, "recvmsg"},
        {SYS_bind, "bind"},
        {SYS_getsockname, "getsockname"},
        {SYS_stat, "stat"},
        {SYS_open, "open"},
        {SYS_getpid, "getpid"},
        {SYS_statx, "statx"},
        {SYS_writev, "writev"},
        {SYS_readv, "readv"},
    };
    auto found = names.find(number);
    return found != names.end() ? found->second : "syscall " + std::to_string(number);
}

int InstallFilter()
{
    struct sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned int>(offsetof(struct seccomp_data, nr))),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_futex, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
    };
    struct sock_fprog program = {static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return -1;
    }
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

} // namespace

std::optional<std::vector<std::string>> TraceSystemCalls(const std::function<void()>& code)
{
    // -2: not yet installed; -1: failed; otherwise the listener.
    std::atomic<int> listener{-2};
    std::thread traced([&] {
        const int fd = InstallFilter();
        listener.store(fd);
        if (fd < 0) {
            return;
        }
        // getppid marks the start and the end of the code's own calls.
        syscall(SYS_getppid);
        code();
        syscall(SYS_getppid);
    });
    while (listener.load() == -2) {
        std::this_thread::yield();
    }
    const int fd = listener.load();
    if (fd < 0) {
        traced.join();
        return std::nullopt;
    }

    std::vector<long> seen;
    for (;;) {
        struct pollfd wait = {fd, POLLIN, 0};
        if (poll(&wait, 1, 1000) <= 0 || (wait.revents & POLLIN) == 0) {
            break; // the traced thread is gone (POLLHUP) or stuck
        }
        struct seccomp_notif request;
        std::memset(&request, 0, sizeof request);
        if (ioctl(fd, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0) {
            if (errno == EINTR || errno == ENOENT) {
                continue;
            }
            break;
        }
        seen.push_back(request.data.nr);
        struct seccomp_notif_resp response;
        std::memset(&response, 0, sizeof response);
        response.id = request.id;
        response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
        ioctl(fd, SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
    traced.join();
    close(fd);

    std::vector<std::string> calls;
    bool inside = false;
    for (long number : seen) {
        if (number == SYS_getppid) {
            if (inside) {
                return calls;
            }
            inside = true;
            continue;
        }
        if (inside) {
            calls.push_back(Name(number));
        }
    }
    return std::nullopt;
}

std::string SummariseSystemCalls(const std::vector<std::string>& calls)
{
    if (calls.empty()) {
        return "none";
    }
    if (calls.size() > 30) {
        // Long sequences (a whole set-up) are given as totals per call.
        std::map<std::string, int> totals;
        for (const auto& call : calls) {
            ++totals[call];
        }
        std::string text = std::to_string(calls.size()) + " calls:";
        for (const auto& [name, count] : totals) {
            text += " " + name + " ×" + std::to_string(count);
        }
        return text;
    }
    std::string text;
    for (std::size_t i = 0; i < calls.size();) {
        std::size_t run = 1;
        while (i + run < calls.size() && calls[i + run] == calls[i]) {
            ++run;
        }
        text += (text.empty() ? "" : ", ") + calls[i] + (run > 1 ? " ×" + std::to_string(run) : "");
        i += run;
    }
    return text;
}

} // namespace Zel::Bench
