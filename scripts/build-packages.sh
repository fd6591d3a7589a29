#!/usr/bin/env bash
# Builds the two Debian packages, libzel.hardware.nim1 (the plug-in and the
# framework libraries) and nimhost (the tool, its service, udev rule, examples
# and alerting rules), with debhelper from a CMake preset's build tree, which it
# configures and builds as far as needed:
#
#   scripts/build-packages.sh          # this machine's architecture, preset release
#   scripts/build-packages.sh armhf    # cross-built, preset armhf
#
# ZEL_PRESET names another preset (the build tree build/$ZEL_PRESET). Prints
# the paths of the two packages (build/<preset>/packages/*.deb), which, as
# with debuild, lintian must pass without errors or warnings.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

arch=${1:-$(dpkg --print-architecture)}
native=$(dpkg --print-architecture)
# The same choice debian/rules makes, said once here for both.
ZEL_PRESET=${ZEL_PRESET:-$([ "$arch" = "$native" ] && echo release || echo "$arch")}
export ZEL_PRESET
scripts/setup.sh
# The tests run in their own CI stages, not in the package build; a cross
# build names its compiler, as dpkg-architecture expects.
export DEB_BUILD_OPTIONS="nocheck ${DEB_BUILD_OPTIONS:-}"
if [ "$arch" != "$native" ]; then
  CC=$(dpkg-architecture -a"$arch" -qDEB_HOST_GNU_TYPE 2>/dev/null)-gcc
  export CC
fi
version=$(dpkg-parsechangelog -S Version)
# debhelper stages the packages in debian/: a clean start each time, so that
# nothing of another architecture's build gets in.
dpkg-architecture -a"$arch" -f -c debian/rules clean
dpkg-architecture -a"$arch" -f -c debian/rules binary
dpkg-architecture -a"$arch" -f -c debian/rules clean >/dev/null
debs=()
for package in libzel.hardware.nim1 nimhost; do
  debs+=("$PWD/build/$ZEL_PRESET/packages/${package}_${version}_${arch}.deb")
done
lintian --fail-on error,warning --display-level '>=warning' "${debs[@]}"
ls "${debs[@]}"
