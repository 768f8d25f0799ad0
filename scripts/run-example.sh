#!/usr/bin/env bash
# Sets up a fresh machine, builds the library, the example programs and the
# corvane tool, and shows them at work on examples/app.ini (the quick start
# and the tool's edits on copies of it).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > build.configure.log 2>&1 \
  || { cat build.configure.log; exit 1; }
cmake --build build -j 2 --target example quickstart corvane-tool
corvane=build/tools/corvane

echo "== example program =="
build/examples/example examples/app.ini

echo
echo "== corvane get examples/app.ini general path =="
"$corvane" get examples/app.ini general path

copy_dir=$(mktemp -d)
trap 'rm -rf "$copy_dir"' EXIT

echo
echo "== quickstart app.ini plain.ini preserved.ini (on a copy of examples/app.ini; README, Quick start) =="
quick_dir="$copy_dir/quickstart"
mkdir "$quick_dir"
cp examples/app.ini "$quick_dir/app.ini"
quickstart=$PWD/build/examples/quickstart
(cd "$quick_dir" && "$quickstart" app.ini plain.ini preserved.ini)
echo "-- diff app.ini preserved.ini:"
diff "$quick_dir/app.ini" "$quick_dir/preserved.ini" || true
echo "-- plain.ini:"
cat "$quick_dir/plain.ini"
echo
echo "== corvane set examples/app.ini window width 1024 --output <copy> =="
"$corvane" set examples/app.ini window width 1024 --output "$copy_dir/app.ini"
echo "-- the copy (only the changed line differs from examples/app.ini):"
cat "$copy_dir/app.ini"
echo "-- diff against the original:"
diff examples/app.ini "$copy_dir/app.ini" || true
echo "-- corvane diff examples/app.ini <copy>:"
"$corvane" diff examples/app.ini "$copy_dir/app.ini" || true
