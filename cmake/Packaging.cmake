# Debian package of the runtime: the plug-in, the framework libraries it needs
# and nimhost with its example settings, manual page and bash completion. `cpack` in a build tree makes
# zel-nim-linux_<version>_<arch>.deb; the architecture follows the toolchain
# (amd64 natively, armhf with cmake/toolchain-armhf.cmake).
include_guard(GLOBAL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zel-nim-linux)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Zel Nim maintainers <nim@zel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Network-interface management plug-in for the controller runtime, with nimhost")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
       "libZel.Hardware.Modules.Nim.Linux.so, the hardware-module plug-in of the controller's network-interface\n"
       "management, with the framework libraries it loads into and nimhost, a command-line host that loads\n"
       "the plug-in as the framework does and reports what it sees on this machine.")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)

set(CPACK_STRIP_FILES ON)

# Only the runtime component; headers stay out of the package.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL runtime)

if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" zel_processor)
  if(zel_processor MATCHES "^arm" AND NOT zel_processor MATCHES "^arm64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  elseif(zel_processor MATCHES "^(aarch64|arm64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  elseif(zel_processor MATCHES "^(x86_64|amd64)$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
  elseif(zel_processor MATCHES "^i.86$")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
  else()
    message(FATAL_ERROR "Packaging: no Debian architecture known for processor '${CMAKE_SYSTEM_PROCESSOR}'; "
                        "set CPACK_DEBIAN_PACKAGE_ARCHITECTURE")
  endif()
endif()

if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps cannot resolve armhf libraries on the build machine (no
  # armhf multiarch packages are installed), so name the dependencies. fmt is
  # compiled in (header-only) in the cross build.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 11), libgcc-s1 (>= 3.5)")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  # dpkg-shlibdeps must not look for our own libraries among the installed
  # packages.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
      ${CMAKE_BINARY_DIR}/framework ${CMAKE_BINARY_DIR}/Modules)
endif()

include(CPack)

# Documentation files of the package go here (Debian: /usr/share/doc/<package>).
set(ZEL_PACKAGE_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_PACKAGE_NAME})

# The service that keeps nimhost's metrics file in node_exporter's textfile
# directory (README, "Monitoring a fleet"); it names /usr/bin/nimhost, where
# the package puts it.
install(FILES ${PROJECT_SOURCE_DIR}/tools/systemd/nimhost-metrics.service
        DESTINATION lib/systemd/system COMPONENT runtime)
