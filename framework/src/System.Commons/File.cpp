#include <Zel/System/Commons/Io/File.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace Zel::System::Commons::Io {

namespace {

// Closes a descriptor it owns when it leaves scope, keeping errno intact.
struct OwnedFd {
    int fd = -1;
    explicit OwnedFd(int fd) : fd(fd) {}
    ~OwnedFd()
    {
        if (fd >= 0) {
            const int saved = errno;
            ::close(fd);
            errno = saved;
        }
    }
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;
};

bool WriteAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool CopyContent(int from, int to)
{
    char buffer[16384];
    for (;;) {
        const ssize_t got = ::read(from, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (got == 0) {
            return true;
        }
        if (!WriteAll(to, buffer, static_cast<std::size_t>(got))) {
            return false;
        }
    }
}

std::string DirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool CopyAtomically(const BasicString& destination, int sourceFd)
{
    struct stat sourceInfo {};
    struct stat destinationInfo {};
    const bool destinationExists = ::stat(destination.c_str(), &destinationInfo) == 0;
    if (::fstat(sourceFd, &sourceInfo) != 0) {
        return false;
    }
    const mode_t mode = destinationExists ? destinationInfo.st_mode : sourceInfo.st_mode;

    std::string temporary = destination + ".XXXXXX";
    const int tempFd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (tempFd < 0) {
        return false;
    }
    OwnedFd temp(tempFd);
    bool ok = CopyContent(sourceFd, temp.fd) && ::fchmod(temp.fd, mode & 07777) == 0;
    if (ok && destinationExists) {
        // Changing the owner needs privileges; a copy made without them keeps
        // the caller as owner, as any other new file would.
        if (::fchown(temp.fd, destinationInfo.st_uid, destinationInfo.st_gid) != 0 && errno != EPERM) {
            ok = false;
        }
    }
    ok = ok && ::fsync(temp.fd) == 0;
    if (ok) {
        const int closed = ::close(temp.fd);
        temp.fd = -1;
        ok = closed == 0;
    }
    ok = ok && ::rename(temporary.c_str(), destination.c_str()) == 0;
    if (!ok) {
        const int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        return false;
    }
    OwnedFd directory(::open(DirectoryOf(destination).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.fd >= 0) {
        ::fsync(directory.fd);
    }
    return true;
}

} // namespace

bool File::Copy(const BasicString& source, const BasicString& destination, bool overwrite, bool atomic)
{
    OwnedFd from(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (from.fd < 0) {
        return false;
    }
    if (!overwrite && ::access(destination.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return false;
    }
    if (atomic) {
        return CopyAtomically(destination, from.fd);
    }
    struct stat sourceInfo {};
    if (::fstat(from.fd, &sourceInfo) != 0) {
        return false;
    }
    const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | (overwrite ? 0 : O_EXCL);
    OwnedFd to(::open(destination.c_str(), flags, sourceInfo.st_mode & 07777));
    if (to.fd < 0) {
        return false;
    }
    return CopyContent(from.fd, to.fd);
}

bool File::Delete(const BasicString& path)
{
    return ::unlink(path.c_str()) == 0;
}

bool File::Exists(const BasicString& path)
{
    return ::access(path.c_str(), F_OK) == 0;
}

} // namespace Zel::System::Commons::Io
