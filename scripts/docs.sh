#!/usr/bin/env bash
# Builds the reference documentation with Doxygen from the public headers as
# they are installed (configure, install the "headers" component into a
# scratch folder, run Doxygen over it), with docs/mainpage.md as its first page. Every warning is listed, in
# BUILD_DIR/doxygen-warnings.log too, and any warning fails the run.
# The HTML lands in BUILD_DIR/html (default BUILD_DIR: build-docs).
# Usage: scripts/docs.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh doxygen
build=${1:-build-docs}
cmake -S . -B "$build" -G Ninja -DCORVANE_BUILD_TESTS=OFF -DCORVANE_BUILD_BENCH=OFF > "$build.configure.log" 2>&1 \
  || { cat "$build.configure.log"; exit 1; }
headers="$build/installed-headers"
rm -rf "$headers" "$build/html"
cmake --install "$build" --component headers --prefix "$headers" > /dev/null
include="$headers/include/corvane"
version=$(sed -n 's/^#define CORVANE_VERSION_STRING "\(.*\)"$/\1/p' "$include/CorvaneVersion.h")
log="$build/doxygen-warnings.log"
status=0
{
  cat scripts/Doxyfile
  echo "INPUT = docs/mainpage.md $include"
  echo "STRIP_FROM_PATH = $include"
  echo "OUTPUT_DIRECTORY = $build"
  echo "PROJECT_NUMBER = $version"
  echo "WARN_LOGFILE = $log"
} | doxygen - || status=$?
if [ -s "$log" ]; then
  # One line per warning, the header named as installed (include/corvane/...).
  sed "s|^$(realpath "$include")/|include/corvane/|; s|^$include/|include/corvane/|" "$log" | sort -u -t: -k1,1 -k2,2n -k3 \
    > "$log.sorted"
  mv "$log.sorted" "$log"
  cat "$log"
  count=$(grep -c ': \(warning\|error\): ' "$log" || true)
  files=$(grep ': \(warning\|error\): ' "$log" | cut -d: -f1 | sort -u | wc -l)
  echo "$count Doxygen warnings in $files headers (list in $log)" >&2
  exit 1
fi
[ "$status" -eq 0 ] || { echo "doxygen failed ($status)" >&2; exit "$status"; }
echo "documentation: $build/html/index.html"
