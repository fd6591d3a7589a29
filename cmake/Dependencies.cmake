# fmt: the shared library natively; header-only for the cross build, whose
# compiler must not see the host's /usr/include as a whole.
if(CMAKE_CROSSCOMPILING)
  # The toolchain file links fmt, toml++, CLI11 and nlohmann-json from the
  # host's /usr/include into one directory that the cross compiler may see.
  set(ZEL_CROSS_HEADERS_DIR ${ZEL_ARMHF_HEADER_ONLY_INCLUDE_DIR})
  add_library(zel_fmt INTERFACE)
  target_compile_definitions(zel_fmt INTERFACE FMT_HEADER_ONLY=1)
  target_include_directories(zel_fmt SYSTEM INTERFACE ${ZEL_CROSS_HEADERS_DIR})
  add_library(fmt::fmt ALIAS zel_fmt)
else()
  find_package(fmt REQUIRED)
endif()

if(BUILD_TESTING)
  if(CMAKE_CROSSCOMPILING)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/_googletest EXCLUDE_FROM_ALL SYSTEM)
    if(NOT TARGET GTest::gtest)
      add_library(GTest::gtest ALIAS gtest)
      add_library(GTest::gtest_main ALIAS gtest_main)
      add_library(GTest::gmock ALIAS gmock)
    endif()
  else()
    find_package(GTest REQUIRED)
  endif()
endif()
