// Interposes the C library's open, ioctl and close in the test executable:
// the emulated spidev nodes are answered by SpiEmulator, every other call
// goes on to the next definition (the C library, or a sanitizer's
// interceptor in front of it) through dlsym(RTLD_NEXT, ...).
//
// No libc header that declares these functions is included here on purpose:
// glibc may declare open as a fortified inline wrapper or redirect it to
// open64, and declares ioctl noexcept. The glibc entry points the code under
// test may reach are all defined: open, open64, __open_2, __open64_2 (the
// fortified forms), ioctl and __ioctl_time64 (32-bit time64 builds), close.
#include "SpiInterposerHooks.hpp"

#include <cstdarg>
#include <dlfcn.h>

namespace {

using OpenFunction = int (*)(const char*, int, ...);
using Open2Function = int (*)(const char*, int);
using IoctlFunction = int (*)(int, unsigned long, ...);
using CloseFunction = int (*)(int);

template <typename Function>
Function Next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// The mode argument is only there with O_CREAT or O_TMPFILE; passing it on
// always is harmless (an unused variadic argument), reading it is not UB in
// practice on the ABIs here, and the emulated node never needs it.
int OpenWith(OpenFunction next, const char* path, int flags, unsigned int mode)
{
    int result = -1;
    if (Zel::Test::SpiHooks::Open(path, flags, &result)) {
        return result;
    }
    return next(path, flags, mode);
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    static const OpenFunction next = Next<OpenFunction>("open");
    va_list args;
    va_start(args, flags);
    const unsigned int mode = va_arg(args, unsigned int);
    va_end(args);
    return OpenWith(next, path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    static const OpenFunction next = Next<OpenFunction>("open64");
    va_list args;
    va_start(args, flags);
    const unsigned int mode = va_arg(args, unsigned int);
    va_end(args);
    return OpenWith(next, path, flags, mode);
}

int __open_2(const char* path, int flags)
{
    static const Open2Function next = Next<Open2Function>("__open_2");
    int result = -1;
    if (Zel::Test::SpiHooks::Open(path, flags, &result)) {
        return result;
    }
    return next(path, flags);
}

int __open64_2(const char* path, int flags)
{
    static const Open2Function next = Next<Open2Function>("__open64_2");
    int result = -1;
    if (Zel::Test::SpiHooks::Open(path, flags, &result)) {
        return result;
    }
    return next(path, flags);
}

int ioctl(int fd, unsigned long request, ...)
{
    static const IoctlFunction next = Next<IoctlFunction>("ioctl");
    va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    int result = -1;
    if (Zel::Test::SpiHooks::Ioctl(fd, request, argument, &result)) {
        return result;
    }
    return next(fd, request, argument);
}

int __ioctl_time64(int fd, unsigned long request, ...)
{
    static const IoctlFunction next = Next<IoctlFunction>("__ioctl_time64");
    va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    int result = -1;
    if (Zel::Test::SpiHooks::Ioctl(fd, request, argument, &result)) {
        return result;
    }
    return next(fd, request, argument);
}

int close(int fd)
{
    static const CloseFunction next = Next<CloseFunction>("close");
    Zel::Test::SpiHooks::Forget(fd);
    return next(fd);
}

} // extern "C"
