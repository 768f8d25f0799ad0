#!/usr/bin/env bash
# Sets up a fresh machine, builds the library and runs the bundled example.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > build.configure.log 2>&1 \
  || { cat build.configure.log; exit 1; }
cmake --build build -j 2 --target example
build/examples/example examples/app.ini
