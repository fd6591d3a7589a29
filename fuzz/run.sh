#!/usr/bin/env bash
# fuzz/run.sh <seconds> [target...]
#
# Builds every libFuzzer target (zel_add_fuzz_target in fuzz/CMakeLists.txt)
# with the fuzz preset (clang) in its own build directory and runs each (or
# only the named ones) for <seconds>, starting from its committed seed corpus
# and with its dictionary. New inputs go to <build>/runs/<target>/corpus,
# crash reproducers to <build>/runs/<target>/.
# Exits non-zero as soon as a target finds a crash, a leak or a sanitizer
# report.
#
# Environment: ZEL_FUZZ_BUILD_DIR (default build/fuzz), ZEL_FUZZ_JOBS (build
# jobs, default 2), ZEL_FUZZ_ARGS (extra libFuzzer options).
set -euo pipefail

if [ $# -lt 1 ] || ! [[ "$1" =~ ^[0-9]+$ ]] || [ "$1" -eq 0 ]; then
  echo "usage: fuzz/run.sh <seconds per target> [target...]" >&2
  exit 2
fi
seconds=$1
shift
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${ZEL_FUZZ_BUILD_DIR:-$root/build/fuzz}

command -v clang++ >/dev/null || { echo "fuzz/run.sh: clang++ is not installed (scripts/setup.sh)" >&2; exit 2; }

(cd "$root" && cmake --preset fuzz -B "$build" >/dev/null)
cmake --build "$build" --target zel_fuzz_targets -j "${ZEL_FUZZ_JOBS:-2}"

targets="$build/fuzz/targets.txt"
[ -s "$targets" ] || { echo "fuzz/run.sh: no fuzz targets listed in $targets" >&2; exit 2; }

# The lines of the named targets (all without names), a misspelt name refused.
lines=$(cat "$targets")
if [ $# -gt 0 ]; then
  lines=$(for s in "$@"; do grep "^$s|" "$targets" || { echo "fuzz/run.sh: no fuzz target '$s' (see $targets)" >&2; exit 2; }; done)
fi

status=0
while IFS='|' read -r name exe corpus dictionary; do
  [ -n "$name" ] || continue
  work="$build/runs/$name"
  mkdir -p "$work/corpus"
  args=(-max_total_time="$seconds" -artifact_prefix="$work/" -print_final_stats=1 -dict="$dictionary")
  # shellcheck disable=SC2206 # extra options are words on purpose
  args+=(${ZEL_FUZZ_ARGS:-})
  echo "fuzz/run.sh: $name for ${seconds}s" >&2
  if ! "$exe" "${args[@]}" "$work/corpus" "$corpus" 2>"$work/log.txt"; then
    tail -n 60 "$work/log.txt" >&2
    echo "fuzz/run.sh: $name FAILED (log: $work/log.txt, reproducer in $work/)" >&2
    status=1
  else
    grep -E '^(stat::number_of_executed_units|Done )' "$work/log.txt" >&2 || true
    echo "fuzz/run.sh: $name clean" >&2
  fi
done <<<"$lines"
exit "$status"
