#include "metrics/AtomicFile.hpp"

#include <fcntl.h>
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

// The temporary file beside the target: its descriptor is closed and the
// file removed on every way out, unless it was renamed into place.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& target)
    {
        const std::filesystem::path path(target);
        // A leading dot and the random tail keep it out of the collector's
        // "*.prom" pattern.
        name = (path.parent_path() / ("." + path.filename().string() + ".XXXXXX")).string();
        descriptor = ::mkstemp(name.data());
        if (descriptor < 0) {
            const int error = errno;
            Fail(error, "create a temporary file for", target);
        }
    }
    ~TemporaryFile()
    {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        if (!renamed) {
            ::unlink(name.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    // Returns errno of the failing call, 0 on success.
    int Write(const std::string& content) const
    {
        const char* data = content.data();
        std::size_t left = content.size();
        while (left > 0) {
            const ssize_t written = ::write(descriptor, data, left);
            if (written < 0) {
                const int error = errno;
                if (error == EINTR) {
                    continue;
                }
                return error;
            }
            data += written;
            left -= static_cast<std::size_t>(written);
        }
        return 0;
    }

    int Close()
    {
        const int result = ::close(descriptor);
        const int error = errno;
        descriptor = -1;
        return result == 0 ? 0 : error;
    }

    int RenameTo(const std::string& target)
    {
        if (::rename(name.c_str(), target.c_str()) != 0) {
            return errno;
        }
        renamed = true;
        return 0;
    }

    int Descriptor() const { return descriptor; }

private:
    std::string name;
    int descriptor = -1;
    bool renamed = false;
};

} // namespace

void WriteFileAtomically(const std::string& path, const std::string& content)
{
    TemporaryFile file(path);
    if (const int error = file.Write(content)) {
        Fail(error, "write", path);
    }
    // mkstemp makes the file 0600; node_exporter reads it as its own user.
    if (::fchmod(file.Descriptor(), 0644) != 0) {
        const int error = errno;
        Fail(error, "set the mode of", path);
    }
    // On the disk before its name: otherwise a power cut after the rename
    // can leave the collector an empty or cut file under the name.
    if (::fsync(file.Descriptor()) != 0) {
        const int error = errno;
        Fail(error, "write", path);
    }
    if (const int error = file.Close()) {
        Fail(error, "write", path);
    }
    if (const int error = file.RenameTo(path)) {
        Fail(error, "replace", path);
    }
    // The new name on the disk: a board that loses power later comes back
    // with this file, not with the one it replaced or none.
    const std::string directory = std::filesystem::path(path).parent_path().string();
    const int descriptor = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

} // namespace Zel::Tools::Nimhost
