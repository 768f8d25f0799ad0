#!/usr/bin/env bash
# Sets up a fresh machine, builds the library, the example program and the
# corvane tool, and shows them at work on examples/app.ini.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > build.configure.log 2>&1 \
  || { cat build.configure.log; exit 1; }
cmake --build build -j 2 --target example corvane-tool
corvane=build/tools/corvane

echo "== example program =="
build/examples/example examples/app.ini

echo
echo "== corvane get examples/app.ini general path =="
"$corvane" get examples/app.ini general path

copy_dir=$(mktemp -d)
trap 'rm -rf "$copy_dir"' EXIT
echo
echo "== corvane set examples/app.ini window width 1024 --output <copy> =="
"$corvane" set examples/app.ini window width 1024 --output "$copy_dir/app.ini"
echo "-- the copy (only the changed line differs from examples/app.ini):"
cat "$copy_dir/app.ini"
echo "-- diff against the original:"
diff examples/app.ini "$copy_dir/app.ini" || true
echo "-- corvane diff examples/app.ini <copy>:"
"$corvane" diff examples/app.ini "$copy_dir/app.ini" || true
