#!/usr/bin/env bash
# Installs everything the project needs from Debian's packages. Idempotent:
# packages already present are skipped, and the package lists are refreshed
# at most once per run.
#
# Besides the machine's own packages, the armhf VM (scripts/armhf-vm) takes
# armhf packages for its initramfs; for `apt-get download` to find them,
# armhf is added as a foreign architecture of dpkg.
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
  # The armhf VM: qemu, the kernel source and what building it takes, and
  # the tools that assemble the initramfs.
  qemu-system-arm linux-source-6.1 bc flex bison libssl-dev libelf-dev kmod cpio xz-utils
)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
# Other installers may hold dpkg's lock for a while; wait for it.
apt_get() { $SUDO apt-get -o DPkg::Lock::Timeout=600 "$@"; }

# A mirror caught mid-sync answers with lists of the wrong size; that passes
# after a while, so the refresh is tried again. Lists that still fail are
# left as apt has them (it says which): a package that cannot be found then
# fails the install below, which names it.
refreshed=0
refresh_lists() {
  [ "$refreshed" -eq 0 ] || return 0
  refreshed=1
  local attempt
  for attempt in 1 2 3; do
    apt_get update -qq && return 0
    echo "setup: apt-get update failed (attempt $attempt of 3)" >&2
    [ "$attempt" -eq 3 ] || sleep $((attempt * 15))
  done
  echo "setup: going on with the package lists apt has" >&2
}

if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  echo "setup: adding armhf as a foreign architecture (the armhf VM's initramfs)" >&2
  $SUDO dpkg --add-architecture armhf
  refresh_lists
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

# Tools the tests run without installing them (it refreshes the package
# lists itself when it must): ifquery for this machine and for the armhf VM.
"$(dirname "${BASH_SOURCE[0]}")/fetch-ifupdown.sh"
"$(dirname "${BASH_SOURCE[0]}")/fetch-ifupdown.sh" armhf

if [ "${#missing[@]}" -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}" >&2
refresh_lists
apt_get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
