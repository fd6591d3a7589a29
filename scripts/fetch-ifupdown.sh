#!/usr/bin/env bash
# Unpacks Debian's ifupdown into build/tools/ifupdown (ifquery, the file's
# real reader, is the oracle of the nimhost tests that edit interfaces files).
# The package is extracted from its .deb, never installed: the machine's
# networking stays as it is. Idempotent; called by scripts/setup.sh.
#
#   scripts/fetch-ifupdown.sh [ARCH]   ARCH's package (default this machine's)
#                                      into build/tools/ifupdown-ARCH
#
# Environment: ZEL_IFUPDOWN_DIR (default <repository>/build/tools/ifupdown,
# with -ARCH for another architecture: the armhf VM's tests run that one).
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
arch=${1:-$(dpkg --print-architecture)}
suffix=""
[ "$arch" = "$(dpkg --print-architecture)" ] || suffix="-$arch"
dest=${ZEL_IFUPDOWN_DIR:-$root/build/tools/ifupdown$suffix}
[ -x "$dest/sbin/ifquery" ] && exit 0

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# apt's download sandbox user must be able to write here.
chmod 0755 "$work"
mkdir -m 0777 "$work/download"

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
apt_get() { apt-get -o DPkg::Lock::Timeout=600 "$@"; }

# Without package lists (a fresh machine) or on a mirror's hiccup: refresh
# the lists and try again, a few times.
for attempt in 1 2 3 4; do
  if (cd "$work/download" && apt_get download -qq "ifupdown:$arch") 2>"$work/apt.log"; then
    break
  fi
  if [ "$attempt" -eq 4 ]; then
    cat "$work/apt.log" >&2
    echo "fetch-ifupdown: 'apt-get download ifupdown:$arch' failed" >&2
    exit 1
  fi
  $SUDO apt-get -o DPkg::Lock::Timeout=600 update -qq || sleep $((attempt * 5))
done

dpkg-deb -x "$work"/download/ifupdown_*.deb "$work/root"
mkdir -p "$dest"
cp -a "$work/root/sbin" "$dest/"
dpkg-deb -f "$work"/download/ifupdown_*.deb Version >"$dest/VERSION"
echo "fetch-ifupdown: ifquery $(cat "$dest/VERSION") in $dest" >&2
