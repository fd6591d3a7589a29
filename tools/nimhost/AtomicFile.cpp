#include "AtomicFile.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace Zel::Tools::Nimhost {

namespace {

[[noreturn]] void Fail(int error, const std::string& what, const std::string& path)
{
    throw std::system_error(error, std::generic_category(), "Could not " + what + " '" + path + "'");
}

} // namespace

void WriteFileAtomically(const std::string& path, const std::string& content)
{
    const std::filesystem::path target(path);
    // A leading dot and the random tail keep the temporary file out of the
    // collector's "*.prom" pattern.
    std::string temporary =
        (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
    const int descriptor = ::mkstemp(temporary.data());
    if (descriptor < 0) {
        const int error = errno;
        Fail(error, "create a temporary file for", path);
    }
    const auto abandon = [&](int error, const std::string& what) {
        ::close(descriptor);
        ::unlink(temporary.c_str());
        Fail(error, what, path);
    };
    const char* data = content.data();
    std::size_t left = content.size();
    while (left > 0) {
        const ssize_t written = ::write(descriptor, data, left);
        if (written < 0) {
            const int error = errno;
            if (error == EINTR) {
                continue;
            }
            abandon(error, "write");
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
    // No fsync: the file is rewritten on every change and means nothing
    // after a power loss; the rename alone makes the swap atomic for readers.
    if (::fchmod(descriptor, 0644) != 0) {
        const int error = errno;
        abandon(error, "set the mode of");
    }
    if (::close(descriptor) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        Fail(error, "write", path);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        Fail(error, "replace", path);
    }
}

} // namespace Zel::Tools::Nimhost
