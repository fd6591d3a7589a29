#pragma once

#include <unistd.h>

#include <utility>

namespace Zel::Hardware::Modules::Commons::Linux {

// Owns one file descriptor or socket and closes it when it goes out of scope
// (-1: nothing to close). For descriptors whose whole life is one call or one
// object.
class ScopedDescriptor {
public:
    explicit ScopedDescriptor(int fd = -1) noexcept : fd(fd) {}
    ~ScopedDescriptor()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;
    // Moving hands the descriptor over; the moved-from owner closes nothing.
    ScopedDescriptor(ScopedDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

    int Get() const noexcept { return fd; }
    // Closes now, for callers that must know: a delayed write error shows here.
    bool Close() noexcept { return close(std::exchange(fd, -1)) == 0; }

private:
    int fd;
};

} // namespace Zel::Hardware::Modules::Commons::Linux
