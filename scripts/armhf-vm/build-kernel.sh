#!/usr/bin/env bash
# build-kernel.sh OUT WORK: builds the guest kernel (zImage) into OUT, using the
# directory WORK for the source and the objects. Called by `prepare`, which
# caches OUT; the kernel source is Debian's linux-source-6.1.
#
# The configuration is `tinyconfig` plus kernel.config. qemu's "virt" board
# hands the kernel its own device tree, so no .dtb is built.
set -euo pipefail
out=$1 work=$2
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

tarball=/usr/src/linux-source-6.1.tar.xz
[ -f "$tarball" ] || vm_die "$tarball is missing (Debian package linux-source-6.1)"
command -v "$vm_triple-gcc" >/dev/null || vm_die "$vm_triple-gcc is missing (Debian package gcc-$vm_triple)"

tar -xJf "$tarball" -C "$work"
src="$work/linux-source-6.1"
obj="$work/obj"
kmake() { make -C "$src" O="$obj" ARCH=arm CROSS_COMPILE="$vm_triple-" "$@"; }

kmake tinyconfig
"$src/scripts/kconfig/merge_config.sh" -m -O "$obj" "$obj/.config" "$vm_dir/kernel.config"
kmake olddefconfig

# kconfig silently drops an option whose dependencies are not met, and
# turns on what another option selects.
refused=$(
  grep -E '^CONFIG_[A-Za-z0-9_]+=' "$vm_dir/kernel.config" | grep -vxF -f "$obj/.config" | sed 's/$/ (not taken)/'
  sed -nE 's/^# (CONFIG_[A-Za-z0-9_]+) is not set$/\1=/p' "$vm_dir/kernel.config" | grep -F -f - "$obj/.config" \
    | sed 's/$/ (still on)/'
) || true
[ -z "$refused" ] || vm_die "options of kernel.config that the kernel's configuration refuses:"$'\n'"$refused"

kmake -j"$(nproc)" zImage
cp "$obj/arch/arm/boot/zImage" "$out"
