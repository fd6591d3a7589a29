#!/usr/bin/env bash
# The full test suite: installs what the build needs (scripts/setup.sh),
# builds the debug preset and runs every test with ctest, the kernel tests
# included. Kernel tests run inside network namespaces (the sandbox of
# tests/support/sandbox) and need root, or unprivileged user namespaces;
# without either they are skipped, except with CI=true, where they fail.
#
#   scripts/run-tests.sh [ctest arguments...]     e.g. -L kernel, -R framework
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=debug
scripts/setup.sh
cmake --preset "$preset"
cmake --build --preset "$preset"

if [ "$(id -u)" -ne 0 ]; then
  echo "run-tests: not root; the kernel tests need root or user namespaces" >&2
fi

log="build/$preset/ctest.log"
set +e
ctest --preset "$preset" -j "$(nproc)" "$@" 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
set -e

echo
summary=$(grep -E '^[0-9]+% tests passed' "$log" | tail -n 1 || true)
echo "run-tests: ${summary:-ctest printed no summary (exit $status)}"
exit "$status"
