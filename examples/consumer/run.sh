#!/usr/bin/env bash
# Installs a built Corvane tree twice, with --prefix into a temporary folder and
# staged with DESTDIR, and against each builds the consumer program outside the
# tree, once through find_package(Corvane) and once through
# `pkg-config --cflags --libs corvane`, runs it and checks its output; also
# as a plugin that a program loads with dlopen after it started.
# Usage: examples/consumer/run.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:?usage: examples/consumer/run.sh BUILD_DIR}
source=examples/consumer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" > "$work/install-prefix.log"
DESTDIR="$work/stage" cmake --install "$build" > "$work/install-destdir.log"
configured_prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")

check() {  # check WHAT VERSION PROGRAM [ARGUMENT...]
  local what=$1 version=$2
  shift 2
  local expected
  expected=$(printf 'corvane %s\n# settings\n[window]\nwidth=1024\nheight=600' "$version")
  local actual
  actual=$("$@") || { echo "$what: the consumer failed" >&2; exit 1; }
  if [ "$actual" != "$expected" ]; then
    echo "$what: unexpected output" >&2
    diff <(echo "$expected") <(echo "$actual") >&2 || true
    exit 1
  fi
  echo "$what: ok"
}

for install in prefix destdir; do
  case $install in
    prefix) root="$work/prefix" ;;
    destdir) root="$work/stage$configured_prefix" ;;
  esac
  pc=$(find "$root" -name corvane.pc -path '*/pkgconfig/*')
  export PKG_CONFIG_PATH
  PKG_CONFIG_PATH=$(dirname "$pc")
  version=$(pkg-config --modversion corvane)
  # The paths pkg-config gives lie inside this installation and hold its files.
  includedir=$(pkg-config --variable=includedir corvane)
  libdir=$(pkg-config --variable=libdir corvane)
  [ "$(realpath "$includedir")" = "$(realpath "$root")/include/corvane" ] && [ -f "$includedir/YIniDocument.h" ] \
    || { echo "$install: pkg-config includedir $includedir is not inside $root" >&2; exit 1; }
  [[ "$(realpath "$libdir")" == "$(realpath "$root")"/lib* ]] && [ -e "$libdir/libcorvane.so" ] \
    || { echo "$install: pkg-config libdir $libdir is not inside $root" >&2; exit 1; }

  cmake -S "$source" -B "$work/$install-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$root" \
    > "$work/$install-cmake.log" 2>&1 || { cat "$work/$install-cmake.log"; exit 1; }
  cmake --build "$work/$install-cmake" > "$work/$install-cmake-build.log" 2>&1 \
    || { cat "$work/$install-cmake-build.log"; exit 1; }
  check "$install, find_package" "$version" "$work/$install-cmake/consumer"

  # shellcheck disable=SC2046  # pkg-config's output is a list of words
  ${CXX:-c++} "$source/consumer.cpp" -o "$work/$install-pkg-config" \
    $(pkg-config --cflags --libs corvane) -Wl,-rpath,"$libdir"
  check "$install, pkg-config" "$version" "$work/$install-pkg-config"

  # shellcheck disable=SC2046
  ${CXX:-c++} "$source/consumer.cpp" -DCORVANE_CONSUMER_PLUGIN -shared -fPIC -o "$work/$install-plugin.so" \
    $(pkg-config --cflags --libs corvane) -Wl,-rpath,"$libdir"
  ${CC:-cc} "$source/loader.c" -o "$work/$install-loader" -ldl
  check "$install, dlopen" "$version" "$work/$install-loader" "$work/$install-plugin.so"
done
