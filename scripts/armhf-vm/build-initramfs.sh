#!/usr/bin/env bash
# build-initramfs.sh OUT WORK: assembles the guest's initramfs (an uncompressed
# cpio archive) into OUT, using the directory WORK. Called by `prepare`,
# which caches OUT.
#
# The root holds the packages of the file `packages` with the libraries they
# depend on (Debian's armhf packages, fetched with `apt-get download`), the
# cross toolchain's C and C++ runtime, and guest-init.sh as /init. It ends with
# a check that every program and library finds the libraries it needs.
set -euo pipefail
out=$1 work=$2
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

sysroot=/usr/$vm_triple/lib
[ -f "$sysroot/libc.so.6" ] || vm_die "$sysroot has no C library (Debian package libc6-armhf-cross)"
command -v cpio >/dev/null || vm_die "cpio is missing (Debian package cpio)"
dpkg --print-foreign-architectures | grep -qx armhf \
  || vm_die "dpkg does not know the armhf architecture; scripts/setup.sh adds it"

# The cross toolchain's runtime stands in for these packages.
runtime_packages=" libc6 libgcc-s1 libstdc++6 "

debs="$work/debs" root="$work/root"
mkdir -p "$debs" "$root"

# Names of the Depends and Pre-Depends of a .deb that are shared libraries
# (not JavaScript ones): the first of each set of alternatives, without
# version or architecture.
library_dependencies() {
  dpkg-deb -f "$1" Pre-Depends Depends | sed 's/^[A-Za-z-]*: //' | tr ',' '\n' \
    | sed -E 's/\|.*//; s/\(.*\)//; s/:[a-z0-9]+//; s/[[:space:]]//g' \
    | grep -E '^(lib|zlib1g$)' | grep -v '^libjs-' || true
}

wanted=()
while read -r line; do
  line=${line%%#*}
  [ -n "${line// /}" ] && wanted+=($line)
done <"$vm_dir/packages"

# Downloads round by round until no new library is named.
declare -A seen=()
while [ "${#wanted[@]}" -gt 0 ]; do
  for p in "${wanted[@]}"; do seen[$p]=1; done
  # Packages of architecture "all" (data shared by every architecture) have
  # no armhf name.
  shared=" $(apt-cache show --no-all-versions "${wanted[@]}" 2>/dev/null \
    | awk '/^Package:/ {p = $2} /^Architecture: all$/ {print p}' | tr '\n' ' ') "
  names=()
  for p in "${wanted[@]}"; do
    if [[ "$shared" == *" $p "* ]]; then names+=("$p"); else names+=("$p:armhf"); fi
  done
  # The cache directory is root's own, where apt's download user cannot write.
  (cd "$debs" && apt-get download -q -o APT::Sandbox::User=root "${names[@]}") >/dev/null \
    || vm_die "apt-get download of ${names[*]} failed; is the armhf package list there (scripts/setup.sh)?"
  next=()
  for p in "${wanted[@]}"; do
    for dep in $(library_dependencies "$(ls "$debs/${p}_"*_armhf.deb "$debs/${p}_"*_all.deb 2>/dev/null | head -n 1)"); do
      if [ -z "${seen[$dep]:-}" ] && [[ "$runtime_packages" != *" $dep "* ]]; then
        seen[$dep]=1
        next+=("$dep")
      fi
    done
  done
  wanted=(${next[@]+"${next[@]}"})
done

for deb in "$debs"/*.deb; do
  dpkg-deb -x "$deb" "$root"
done
rm -rf "$root"/usr/share/{doc,man,info,locale,lintian,bug,bash-completion}
# tc's plug-in for ATM queues wants a library no test needs.
rm -f "$root/usr/lib/$vm_triple/tc/q_atm.so"

# The runtime where Debian's libc6 puts it, the loader under its fixed name.
mkdir -p "$root/lib/$vm_triple"
find "$sysroot" -maxdepth 1 -name '*.so.*' ! -name 'libasan*' ! -name 'libubsan*' \
  -exec cp -a {} "$root/lib/$vm_triple/" \;
ln -sf "$vm_triple/ld-linux-armhf.so.3" "$root/lib/ld-linux-armhf.so.3"

# Every program and library finds what it needs, or the image is not made.
libdirs=("lib/$vm_triple" "usr/lib/$vm_triple" lib usr/lib)
missing=$(
  cd "$root"
  # readelf names each file when given two or more (hence /dev/null), and
  # fails on the scripts among them.
  find . -type f \( -perm -u+x -o -name '*.so*' \) -print0 | { xargs -0 readelf -d /dev/null 2>/dev/null || true; } \
    | awk '/^File: / {file = $2} /\(NEEDED\)/ {gsub(/[\[\]]/, "", $5); print file " " $5}' \
    | while read -r file lib; do
        found=0
        for d in "${libdirs[@]}"; do [ -e "$d/$lib" ] && found=1; done
        [ "$found" -eq 1 ] || echo "  ${file#./} needs $lib"
      done
)
[ -z "$missing" ] || vm_die "libraries missing in the initramfs:"$'\n'"$missing"

ln -sf dash "$root/bin/sh"
install -m 0755 "$vm_dir/guest-init.sh" "$root/init"
mkdir -p "$root"/{dev,proc,sys,tmp,run,root,mnt,etc/network,var/tmp}
ln -sf /proc/self/mounts "$root/etc/mtab"
printf 'root:x:0:0:root:/root:/bin/bash\nnobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin\n' >"$root/etc/passwd"
printf 'root:x:0:\ndisk:x:6:\nnogroup:x:65534:\n' >"$root/etc/group"
printf '127.0.0.1 localhost\n::1 localhost\n' >"$root/etc/hosts"
echo zel-armhf-vm >"$root/etc/hostname"

(cd "$root" && find . -print0 | LC_ALL=C sort -z | cpio --null -o -H newc --owner=0:0 --quiet) >"$out"
