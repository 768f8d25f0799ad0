#!/usr/bin/env bash
# Sets up a fresh machine, builds everything and runs all tests.
# Usage: scripts/test.sh [build-dir] [extra cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=${1:-build}
shift || true
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" > "$build.configure.log" 2>&1 \
  || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j 2
ctest --test-dir "$build" --output-on-failure -j 2
