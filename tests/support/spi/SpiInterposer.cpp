// Interposes the C library's open, ioctl and close in the test executable:
// emulated spidev nodes are answered by SpiEmulator, every other call goes to
// the next definition (the C library, or a sanitizer's interceptor in front
// of it) through dlsym(RTLD_NEXT, ...).
//
// No libc header that declares these functions is included on purpose: glibc
// may declare open as a fortified inline wrapper or redirect it to open64,
// and declares ioctl noexcept. Every glibc entry point the code under test
// may reach is defined: open, open64, __open_2 and __open64_2 (fortified),
// ioctl, __ioctl_time64 (32-bit time64 builds) and close.
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

// The mode argument only exists with O_CREAT or O_TMPFILE; reading and
// passing it on always is harmless on the ABIs here, and the node never needs it.
int OpenWith(OpenFunction next, const char* path, int flags, va_list args)
{
    const unsigned int mode = va_arg(args, unsigned int);
    int result = -1;
    return Zel::Test::SpiHooks::Open(path, flags, &result) ? result : next(path, flags, mode);
}

int IoctlWith(IoctlFunction next, int fd, unsigned long request, va_list args)
{
    void* argument = va_arg(args, void*);
    int result = -1;
    return Zel::Test::SpiHooks::Ioctl(fd, request, argument, &result) ? result : next(fd, request, argument);
}

} // namespace

// One definition per variadic entry point; each reads its one optional argument.
#define ZEL_SPI_VARIADIC(name, Type, With, A, a, B, b)                                                                 \
    int name(A a, B b, ...)                                                                                            \
    {                                                                                                                  \
        static const auto next = Next<Type>(#name);                                                                    \
        va_list args;                                                                                                  \
        va_start(args, b);                                                                                             \
        const int result = With(next, a, b, args);                                                                     \
        va_end(args);                                                                                                  \
        return result;                                                                                                 \
    }

// The fortified opens take no mode.
#define ZEL_SPI_FORTIFIED_OPEN(name)                                                                                   \
    int name(const char* path, int flags)                                                                              \
    {                                                                                                                  \
        static const auto next = Next<Open2Function>(#name);                                                           \
        int result = -1;                                                                                               \
        return Zel::Test::SpiHooks::Open(path, flags, &result) ? result : next(path, flags);                           \
    }

extern "C" {

ZEL_SPI_VARIADIC(open, OpenFunction, OpenWith, const char*, path, int, flags)
ZEL_SPI_VARIADIC(open64, OpenFunction, OpenWith, const char*, path, int, flags)
ZEL_SPI_VARIADIC(ioctl, IoctlFunction, IoctlWith, int, fd, unsigned long, request)
ZEL_SPI_VARIADIC(__ioctl_time64, IoctlFunction, IoctlWith, int, fd, unsigned long, request)

ZEL_SPI_FORTIFIED_OPEN(__open_2)
ZEL_SPI_FORTIFIED_OPEN(__open64_2)

int close(int fd)
{
    static const auto next = Next<CloseFunction>("close");
    Zel::Test::SpiHooks::Forget(fd);
    return next(fd);
}

} // extern "C"
