#!/usr/bin/env bash
# The main job: installs what the build needs (scripts/setup.sh), builds the
# plug-in with the release preset and loads it as the controller's framework
# does. With the host tool built, that is nimhost with the arguments given,
# as they are (none: `nimhost report`); otherwise
# zel_print_modules loads the plug-in through the framework loader and prints
# its file name and registered modules.
#
#   scripts/run-main.sh [nimhost arguments...]   e.g. status 1, watch, --config board.toml settings
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=release
build="build/$preset"
scripts/setup.sh
cmake --preset "$preset" >/dev/null

# Build only what the job runs, not the whole test suite.
if ninja -C "$build" -t targets all 2>/dev/null | grep -q '^nimhost:'; then
  cmake --build --preset "$preset" --target Zel.Hardware.Modules.Nim.Linux nimhost
  exec "$build/tools/nimhost" "$@"
fi
cmake --build --preset "$preset" --target Zel.Hardware.Modules.Nim.Linux zel_print_modules
exec "$build/tests/frame/zel_print_modules" "$build/Modules/libZel.Hardware.Modules.Nim.Linux.so"
