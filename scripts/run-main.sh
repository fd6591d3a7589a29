#!/usr/bin/env bash
# The main job: installs what the build needs (scripts/setup.sh), builds the
# plug-in with the release preset and loads it as the controller's framework
# does: nimhost with the arguments given, as they are (none: `nimhost report`).
#
#   scripts/run-main.sh [nimhost arguments...]   e.g. status 1, watch, --config board.toml settings
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=release
build="build/$preset"
scripts/setup.sh
cmake --preset "$preset" >/dev/null

# Build only what the job runs, not the whole test suite.
cmake --build --preset "$preset" --target Zel.Hardware.Modules.Nim.Linux nimhost
exec "$build/tools/nimhost" "$@"
