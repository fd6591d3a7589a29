#!/usr/bin/env bash
# The cost of one read of a KSZ8863 link line through the GPIO character
# device next to the sysfs value file, each beside its bare system calls
# (bench/GpioBench.cpp), on gpio-sim lines in the armhf VM: the build
# machine's kernel has no GPIO lines. Cross-builds the benchmark program with
# Debian's armhf Google Benchmark (fetched with apt-get download and unpacked
# into the build directory; nothing is installed), then in the guest makes a
# gpio-sim chip, exports its line 1 for the value file and runs the GPIO rows
# on lines 0 and 1, both pulled up.
#
#   bench/gpio-vm.sh [benchmark options...]
#
# Environment: ZEL_BENCH_VM_BUILD_DIR (default build/bench-armhf),
# ZEL_BENCH_REPETITIONS (default 10), ZEL_BENCH_MIN_TIME (default 0.2).
# Times are those of an emulated processor (qemu without KVM): compare the
# rows with each other, not with a board.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="${ZEL_BENCH_VM_BUILD_DIR:-$root/build/bench-armhf}"
deps="$build/armhf-benchmark"
cd "$root"

if [ ! -f "$deps/complete" ]; then
  rm -rf "$deps" && mkdir -p "$deps/debs"
  (cd "$deps/debs" && apt-get download libbenchmark-dev:armhf libbenchmark1debian:armhf)
  for package in "$deps"/debs/*.deb; do
    dpkg-deb -x "$package" "$deps"
  done
  touch "$deps/complete"
fi
cmake -S . -B "$build" -G Ninja --toolchain cmake/toolchain-armhf.cmake -DCMAKE_BUILD_TYPE=Release \
  -DBUILD_TESTING=OFF -DZEL_BUILD_BENCH=ON -DZEL_ARMHF_BENCHMARK_ROOT="$deps" >/dev/null
cmake --build "$build" --target zel_bench

# In the guest: configfs is mounted, /sys/class/gpio is there.
guest=$(cat <<'GUEST'
set -euo pipefail
chip=/sys/kernel/config/gpio-sim/zel-bench
mkdir "$chip" "$chip/gpio-bank0"
echo 2 >"$chip/gpio-bank0/num_lines"
echo 1 >"$chip/live"
device=/sys/devices/platform/$(cat "$chip/dev_name")
name=$(cat "$chip/gpio-bank0/chip_name")
for line in 0 1; do echo pull-up >"$device/$name/sim_gpio$line/pull"; done
base=$(cat "$device"/gpio/gpiochip*/base)
echo $((base + 1)) >/sys/class/gpio/export
export ZEL_BENCH_GPIO_CHIP=/dev/$name ZEL_BENCH_GPIO_LINE=0 ZEL_BENCH_GPIO_VALUE=/sys/class/gpio/gpio$((base + 1))/value
export LD_LIBRARY_PATH=$DEPS/usr/lib/arm-linux-gnueabihf
"$BENCH" --benchmark_filter=gpio "$@"
GUEST
)
DEPS="$deps" BENCH="$build/bench/zel_bench" scripts/armhf-vm/run --timeout 1200 -- bash -c "$guest" gpio-vm \
  --benchmark_repetitions="${ZEL_BENCH_REPETITIONS:-10}" --benchmark_report_aggregates_only=true \
  --benchmark_enable_random_interleaving=true --benchmark_min_time="${ZEL_BENCH_MIN_TIME:-0.2}" "$@"
