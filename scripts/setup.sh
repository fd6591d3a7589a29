#!/usr/bin/env bash
# Installs everything the project needs from Debian's packages. Idempotent:
# packages already present are skipped, and the package lists are refreshed
# at most once per run.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  libfmt-dev libgtest-dev libgmock-dev googletest libbenchmark-dev
  libtomlplusplus-dev libcli11-dev nlohmann-json3-dev
  clang libclang-rt-14-dev
  g++-arm-linux-gnueabihf qemu-user
  iproute2 util-linux procps ethtool e2fsprogs
  prometheus prometheus-node-exporter curl
  dpkg-dev file binutils
  # The Debian packages and their checks: debhelper, lintian, a clean Debian
  # 12 (debootstrap) booted with systemd-nspawn, systemd-analyze for the unit.
  debhelper lintian debootstrap systemd systemd-container
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

# Tools the tests run without installing them (it refreshes the package
# lists itself when it must).
"$(dirname "${BASH_SOURCE[0]}")/fetch-ifupdown.sh"

if [ "${#missing[@]}" -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
echo "setup: installing ${missing[*]}" >&2
# Other installers may hold dpkg's lock for a while; a mirror caught
# mid-sync passes after a while.
$SUDO apt-get -o DPkg::Lock::Timeout=600 update -qq || { sleep 15; $SUDO apt-get -o DPkg::Lock::Timeout=600 update -qq; }
$SUDO apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
