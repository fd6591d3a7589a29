# Shared by the armhf VM scripts (sourced): where the kernel and the
# initramfs are cached and under which keys.
#
# The cache is ${XDG_CACHE_HOME:-$HOME/.cache}/zel-armhf-vm (ZEL_VM_CACHE
# overrides it). Each artefact is a file named after a hash of everything it
# is built from, so a changed input builds a new one beside the old, and
# worktrees on one machine share what they have in common.

vm_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
vm_cache=${ZEL_VM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/zel-armhf-vm}
readonly vm_triple=arm-linux-gnueabihf

vm_die() {
  echo "armhf-vm: $*" >&2
  exit 125
}

# Version of an installed Debian package, or fails naming it.
vm_package_version() {
  local version
  version=$(dpkg-query -W -f='${Version}' "$1" 2>/dev/null) && [ -n "$version" ] \
    || vm_die "the Debian package '$1' is not installed (scripts/setup.sh installs it)"
  printf '%s\n' "$version"
}

# A file's lines without its comments, so that a reworded comment rebuilds
# nothing; a fragment's "# CONFIG_X is not set" is a setting and stays.
vm_code() { awk '!/^[[:space:]]*#/ || /^# CONFIG_[A-Za-z0-9_]+ is not set$/' "$@"; }

# The kernel: the config fragment, how it is built, the kernel source and
# the compiler that builds it.
vm_kernel_key() {
  local source compiler
  source=$(vm_package_version linux-source-6.1) || exit
  compiler=$(vm_package_version "gcc-$vm_triple") || exit
  { vm_code "$vm_dir/kernel.config" "$vm_dir/build-kernel.sh"; echo "$source $compiler"; } | sha256sum | cut -c1-16
}

# The initramfs: its package list, how it is assembled, the guest's init, and
# the cross toolchain whose C and C++ runtime it carries.
vm_initramfs_key() {
  local libc libstdcxx
  libc=$(vm_package_version libc6-armhf-cross) || exit
  libstdcxx=$(vm_package_version libstdc++6-armhf-cross) || exit
  { cat "$vm_dir/packages"; vm_code "$vm_dir/build-initramfs.sh" "$vm_dir/guest-init.sh"; echo "$libc $libstdcxx"; } \
    | sha256sum | cut -c1-16
}

# The cached files' paths; the exit status is that of the key.
vm_kernel_path() {
  local key
  key=$(vm_kernel_key) && printf '%s/kernel-%s.zImage\n' "$vm_cache" "$key"
}
vm_initramfs_path() {
  local key
  key=$(vm_initramfs_key) && printf '%s/initramfs-%s.cpio\n' "$vm_cache" "$key"
}
