#pragma once

#include <Zel/Export.hpp>

#include <mutex>

namespace Zel::System::Commons::Threading {

// The framework's mutex. Satisfies Lockable, so std::lock_guard works.
class ZEL_API Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() { impl.lock(); }
    void unlock() { impl.unlock(); }
    bool try_lock() { return impl.try_lock(); }

private:
    std::recursive_mutex impl;
};

using ScopedLock = std::lock_guard<Mutex>;

} // namespace Zel::System::Commons::Threading
