#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UBSan in
# build-fuzz, then runs each for the given number of seconds (default 60) on
# a scratch copy of its seed corpus, so the committed corpus never grows.
# Inputs that fail are kept in build-fuzz/fuzz-artifacts/. Fails if any
# target fails.
# Usage: fuzz/run.sh [seconds] [extra libFuzzer options...]
# CORVANE_WERROR=ON in the environment makes warnings errors (as CI does).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true

scripts/install-deps.sh clang libclang-rt-14-dev

build=build-fuzz
targets=(fuzz_load fuzz_merge fuzz_preserve fuzz_scanner fuzz_recognizer)
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DCORVANE_SANITIZE=ON -DCORVANE_BUILD_FUZZ=ON -DCORVANE_BUILD_TESTS=OFF -DCORVANE_BUILD_BENCH=OFF \
  -DCORVANE_WERROR="${CORVANE_WERROR:-OFF}" \
  > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j 2 --target "${targets[@]}"

# No fill of new blocks and a smaller quarantine: each input allocates and
# frees fresh memory, and these two settings make the runs several times
# faster. Options already set in the environment come last and win.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:max_malloc_fill_size=0:quarantine_size_mb=16${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"

failed=()
summary=()
for target in "${targets[@]}"; do
  echo "== $target: ${seconds}s"
  cp -r "fuzz/corpus/$target" "$scratch/$target"
  log="$scratch/$target.log"
  if "$build/fuzz/$target" "$scratch/$target" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
      -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$artifacts/$target-" "$@" > "$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    summary+=("$target: ${runs:-?} executions, no failure")
  else
    tail -n 60 "$log"
    failed+=("$target")
    summary+=("$target: FAILED (inputs in $artifacts)")
  fi
done
printf '%s\n' "${summary[@]}"
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing failed: ${failed[*]}" >&2
  exit 1
fi
