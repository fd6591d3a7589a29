#!/usr/bin/env bash
# Builds the benchmark program with the bench preset (release) and runs it in
# the network sandbox (sixteen veth pairs, bench/bench.scenario), with
# repetitions reported as medians, then prints the library/bare ratio table.
#
#   scripts/run-bench.sh [benchmark options...]
#
# Environment: ZEL_BENCH_BUILD_DIR (default build/bench),
# ZEL_BENCH_REPETITIONS (default 10), ZEL_BENCH_MIN_TIME (seconds per
# repetition, default 0.2). Extra options go to the benchmark program, e.g.
# --benchmark_filter=ipstatus. The full output is kept in
# <build dir>/bench-output.txt. Exit status 3: a target was missed.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="${ZEL_BENCH_BUILD_DIR:-$root/build/bench}"
repetitions="${ZEL_BENCH_REPETITIONS:-10}"
min_time="${ZEL_BENCH_MIN_TIME:-0.2}"

cd "$root"
cmake --preset bench -B "$build" >/dev/null
cmake --build "$build" --target zel_bench -j"$(nproc)"

output="$build/bench-output.txt"
status=0
# Repetitions of different benchmarks are interleaved at random, so a pair's
# two halves see the same machine load.
tests/support/sandbox/nsrun --scenario bench/bench.scenario -- \
  "$build/bench/zel_bench" \
  --benchmark_repetitions="$repetitions" \
  --benchmark_report_aggregates_only=true \
  --benchmark_enable_random_interleaving=true \
  --benchmark_min_time="$min_time" \
  "$@" >"$output" 2>&1 || status=$?

if ! grep -q '^| Query ' "$output"; then
  cat "$output" >&2
  echo "run-bench: the benchmark did not finish (status $status)" >&2
  exit "${status/#0/1}"
fi
# The table starts at the log summary line printed after the benchmarks.
sed -n '/^Log level /,$p' "$output"
echo
echo "(full output: $output)"
exit "$status"
