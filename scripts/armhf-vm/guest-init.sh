#!/bin/bash
# The guest's /init: mounts the kernel's file systems and the host's shares,
# runs the one command of the job as root, reports its exit status and
# powers the machine off. `run` on the host sets the job up:
#
#   9p share "job":   argv   the command, NUL-separated
#                     env    its environment, NUL-separated NAME=VALUE
#                     cwd    its working directory (/ when not shared)
#                     shares "TAG PATH" lines: 9p shares mounted at PATH
#   serial ports:     "stdout", "stderr": the command's output
#                     "control": "booted", then "exit N" or "error TEXT"
#
# Anything going wrong here ends in a power-off or, if the shell itself
# dies, a kernel panic; both stop qemu, and the host reports it.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
# No udev here: device-mapper's tools make the /dev/mapper nodes themselves.
export DM_DISABLE_UDEV=1
umask 022

# Applets for the tools no package brought (sh, awk, xargs, poweroff, ...).
/bin/busybox --install -s

mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
mount -t tmpfs tmpfs /dev/shm
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /run
mount -t configfs configfs /sys/kernel/config
hostname -F /etc/hostname
ip link set dev lo up

# The serial port with this name, as /dev/vportNpM.
port() {
  local p
  for p in /sys/class/virtio-ports/*; do
    [ "$(cat "$p/name" 2>/dev/null)" = "$1" ] && { echo "/dev/${p##*/}"; return 0; }
  done
  echo "guest-init: no serial port named '$1'" >/dev/console
  return 1
}

halt_now() {
  sync
  poweroff -f
}

control=$(port control) || halt_now
exec 3>"$control"
echo booted >&3

fail() {
  echo "error $*" >&3
  halt_now
}

mkdir -p /run/job
mount -t 9p -o trans=virtio,version=9p2000.L job /run/job || fail "the job share could not be mounted"
# cache=loose: the guest lives for one command, so nothing changes on the
# host behind it, and executables and libraries are paged in once.
while read -r tag path; do
  mkdir -p "$path" \
    && mount -t 9p -o trans=virtio,version=9p2000.L,cache=loose,msize=262144 "$tag" "$path" \
    || fail "the host directory $path could not be mounted"
done </run/job/shares

stdout=$(port stdout) || fail "no stdout port"
stderr=$(port stderr) || fail "no stderr port"
mapfile -d '' -t argv </run/job/argv
[ "${#argv[@]}" -gt 0 ] || fail "the job has no command"

(
  while IFS= read -r -d '' assignment; do
    export "$assignment"
  done </run/job/env
  cd "$(cat /run/job/cwd)" || exit 125
  exec "${argv[@]}"
) </dev/null >"$stdout" 2>"$stderr"
echo "exit $?" >&3
halt_now
