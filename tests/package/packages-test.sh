#!/usr/bin/env bash
# packages-test.sh NATIVE_PACKAGES_DIR [ARMHF_PACKAGES_DIR]
#
# The two Debian packages as a board gets them (scripts/build-packages.sh makes
# them in build/<preset>/packages and runs lintian on them):
#   - installed together with apt on a clean Debian 12 (a debootstrap chroot,
#     cached under ~/.cache/zel-nim-linux), nimhost runs from the installed
#     files as root and as the service's user, the unit passes
#     `systemd-analyze verify`;
#   - that system booted with systemd (systemd-nspawn): the service, enabled
#     with its defaults, writes its metrics file as _nimhost;
#   - a purge leaves neither the files nor the metrics directory;
#   - armhf: the unpacked packages under qemu-arm find the plug-in in its
#     private directory.
# Needs root; every step that cannot run fails.
set -euo pipefail

native=$(realpath "$1")
armhf=${2:+$(realpath "$2")}
fail() { echo "packages-test: $*" >&2; exit 1; }
debs() { ls "$1"/libzel.hardware.nim1_*.deb "$1"/nimhost_*.deb; }
[ "$(id -u)" -eq 0 ] || fail "needs root (debootstrap, chroot, systemd-nspawn)"

cache=${XDG_CACHE_HOME:-$HOME/.cache}/zel-nim-linux/bookworm-$(dpkg --print-architecture).tar
if [ ! -s "$cache" ]; then
  echo "packages-test: a clean Debian 12 with debootstrap, kept in $cache"
  mkdir -p "$(dirname "$cache")"
  fresh=$(mktemp -d)
  debootstrap --variant=minbase --include=systemd,man-db bookworm "$fresh" http://deb.debian.org/debian >/dev/null \
    || debootstrap --variant=minbase --include=systemd,man-db bookworm "$fresh" http://deb.debian.org/debian >/dev/null
  tar -C "$fresh" -cf "$cache.part" . && mv "$cache.part" "$cache"
  rm -rf "$fresh"
fi
root=$(mktemp -d)
booted=""
trap '[ -z "$booted" ] || kill "$booted" 2>/dev/null; wait; rm -rf "$root"' EXIT
tar -C "$root" -xf "$cache"
chmod 755 "$root"
cp /etc/resolv.conf "$root/etc/resolv.conf"
cp $(debs "$native") "$root/tmp/"

# A command in the chroot, with /proc and /sys; the mounts end with it.
in_root() {
  unshare -m --propagation private sh -c 'mount -t proc proc "$0/proc" && mount --bind /sys "$0/sys" && exec chroot "$0" "$@"' \
    "$root" "$@"
}
install=(env DEBIAN_FRONTEND=noninteractive apt-get install -y -q /tmp/libzel.hardware.nim1_*.deb /tmp/nimhost_*.deb)
in_root sh -c "${install[*]} || { apt-get update -q && ${install[*]}; }" >"$root/install.log" 2>&1 \
  || { tail -n 30 "$root/install.log"; fail "the packages do not install on a clean Debian 12"; }

in_root nimhost modules | grep -qx "Plug-in: /usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)/zel-nim-linux/libZel.Hardware.Modules.Nim.Linux.so" \
  || fail "nimhost does not find the plug-in in its private directory"
in_root nimhost report >/dev/null || fail "nimhost report fails from the installed files"
in_root setpriv --reuid=_nimhost --regid=_nimhost --init-groups nimhost report >/dev/null \
  || fail "nimhost report fails as the service's user _nimhost"
unit=/lib/systemd/system/nimhost-metrics.service
[ -z "$(in_root systemd-analyze verify "$unit" 2>&1)" ] || fail "systemd-analyze verify: $(in_root systemd-analyze verify "$unit" 2>&1)"

echo "packages-test: the service on the installed system, booted"
in_root systemctl enable nimhost-metrics >/dev/null 2>&1
mkdir -p "$root/var/log/journal"
systemd-nspawn -q --register=no --keep-unit --network-veth -D "$root" --boot >"$root/boot.log" 2>&1 &
booted=$!
metrics=$root/var/lib/nimhost-metrics/nim.prom
deadline=$((SECONDS + 60))
until [ -s "$metrics" ] || [ ! -d "/proc/$booted" ] || [ "$SECONDS" -ge "$deadline" ]; do sleep 0.1; done
if ! grep -q '^nim_port_info{device="1",interface="host0"' "$metrics" 2>/dev/null \
   || [ "$(stat -c %u "$metrics")" != "$(in_root id -u _nimhost)" ]; then
  tail -n 20 "$root/boot.log"
  journalctl -D "$root/var/log/journal" -u nimhost-metrics --no-pager | tail -n 20
  fail "the booted service wrote no metrics file of _nimhost's for host0"
fi
kill "$booted"; wait "$booted" || true; booted=""

in_root apt-get purge -y -q nimhost libzel.hardware.nim1 >"$root/purge.log" 2>&1 || fail "purge: $(tail -n 5 "$root/purge.log")"
[ ! -e "$root/usr/bin/nimhost" ] && [ ! -e "$root/var/lib/nimhost-metrics" ] || fail "the purge left files behind"

if [ -n "$armhf" ]; then
  unpacked=$root/armhf
  for deb in $(debs "$armhf"); do dpkg-deb -x "$deb" "$unpacked"; done
  qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib "$unpacked/usr/bin/nimhost" modules \
    | grep -qx "Plug-in: $unpacked/usr/lib/arm-linux-gnueabihf/zel-nim-linux/libZel.Hardware.Modules.Nim.Linux.so" \
    || fail "the armhf nimhost does not find its plug-in"
fi
echo "packages-test: passed"
