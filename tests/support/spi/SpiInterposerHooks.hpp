// Between the libc interposer and the emulator's state. Kept free of libc
// headers so the interposer's own definitions of open/ioctl/close never meet
// glibc's declarations (fortified wrappers, 64-bit redirections).
#pragma once

namespace Zel::Test::SpiHooks {

// open of an emulated node: true when `path` is one; then *result is a new
// descriptor or -1 with errno set.
bool Open(const char* path, int flags, int* result);
// ioctl on a descriptor of an emulated node: true when `fd` is one.
bool Ioctl(int fd, unsigned long request, void* argument, int* result);
// Forgets `fd` if it belongs to an emulated node; the caller closes it.
void Forget(int fd);

} // namespace Zel::Test::SpiHooks
