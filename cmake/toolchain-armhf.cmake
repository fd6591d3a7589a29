# Cross build for 32-bit ARM (armhf) with Debian's arm-linux-gnueabihf gcc;
# tests run under qemu-arm, or with ZEL_ARMHF_VM in the armhf virtual machine.
# No armhf multiarch packages are used.
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
#
# Provides to the project:
#   ZEL_ARMHF_SYSROOT                  /usr/arm-linux-gnueabihf
#   ZEL_ARMHF_HEADER_ONLY_INCLUDE_DIR  a directory holding only symlinks to the
#       header-only libraries in /usr/include (fmt, toml++, CLI, nlohmann), to
#       be used as an include dir so the cross compiler never sees the host's
#       /usr/include (glibc and kernel headers there are x86-64 ones).
#   CMAKE_CROSSCOMPILING_EMULATOR      qemu-arm with the sysroot's loader and libs,
#       or the armhf VM's runner.
#   ZEL_ARMHF_VM_RUN                   the runner, with ZEL_ARMHF_VM.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ZEL_ARMHF_TRIPLE arm-linux-gnueabihf)
set(ZEL_ARMHF_SYSROOT /usr/${ZEL_ARMHF_TRIPLE})

find_program(ZEL_ARMHF_CC ${ZEL_ARMHF_TRIPLE}-gcc REQUIRED)
find_program(ZEL_ARMHF_CXX ${ZEL_ARMHF_TRIPLE}-g++ REQUIRED)
set(CMAKE_C_COMPILER ${ZEL_ARMHF_CC})
set(CMAKE_CXX_COMPILER ${ZEL_ARMHF_CXX})

# 64-bit off_t/ino_t: without it readdir() fails with EOVERFLOW under qemu-arm
# (ext4 hands out 64-bit directory offsets/inode numbers; e.g. readdir of
# /usr/include fails while /proc/self/fd happens to work either way).
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

# Libraries and packages come from the cross sysroot only; programs from the host.
set(CMAKE_FIND_ROOT_PATH ${ZEL_ARMHF_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# With ZEL_ARMHF_VM (preset armhf-vm), every test runs in a virtual machine on
# a 32-bit ARM kernel (scripts/armhf-vm/run), with a time limit half a minute
# short of ctest's ten minutes, so that the runner reports a hung guest with
# what its kernel said. Otherwise qemu-arm runs them with the sysroot's own loader
# (-L) and libraries; never mix this loader with another armhf libc: that
# crashes in pthread_create.
if(ZEL_ARMHF_VM)
  set(ZEL_ARMHF_VM_RUN "${CMAKE_CURRENT_LIST_DIR}/../scripts/armhf-vm/run")
  cmake_path(NORMAL_PATH ZEL_ARMHF_VM_RUN)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ZEL_ARMHF_VM_RUN} --timeout 570 --)
else()
  find_program(ZEL_QEMU_ARM qemu-arm)
  if(ZEL_QEMU_ARM)
    set(CMAKE_CROSSCOMPILING_EMULATOR
        ${ZEL_QEMU_ARM} -L ${ZEL_ARMHF_SYSROOT} -E LD_LIBRARY_PATH=${ZEL_ARMHF_SYSROOT}/lib)
  else()
    message(WARNING "qemu-arm not found (Debian package qemu-user): armhf tests cannot run")
  endif()
endif()

# Header-only libraries from the host's /usr/include, seen through a
# directory of symlinks so that nothing else from /usr/include leaks in.
# (The toolchain file is read again for every try_compile; do this once.)
if(NOT CMAKE_IN_TRY_COMPILE AND NOT DEFINED ZEL_ARMHF_HEADER_ONLY_INCLUDE_DIR)
  set(ZEL_ARMHF_HEADER_ONLY_INCLUDE_DIR "${CMAKE_BINARY_DIR}/armhf-header-only/include")
  file(MAKE_DIRECTORY "${ZEL_ARMHF_HEADER_ONLY_INCLUDE_DIR}")
  foreach(dir IN ITEMS fmt toml++ CLI nlohmann)
    set(link "${ZEL_ARMHF_HEADER_ONLY_INCLUDE_DIR}/${dir}")
    if(IS_DIRECTORY "/usr/include/${dir}")
      if(NOT EXISTS "${link}")
        file(CREATE_LINK "/usr/include/${dir}" "${link}" SYMBOLIC)
      endif()
    else()
      message(STATUS "armhf: /usr/include/${dir} not installed; not available to the cross build")
    endif()
  endforeach()
endif()
