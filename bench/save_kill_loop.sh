#!/usr/bin/env bash
# Kills large saves with SIGKILL at random moments and counts what they leave:
# a target that is neither the old nor the new complete file, and temporary
# files beside it (and what the next saves do with those). Then runs saves into
# a file size limit (ulimit -f) with SIGXFSZ at its default and ignored.
# Modes: atomic (unnamed new files, O_TMPFILE), named (O_TMPFILE taken away,
# as on file systems without it), inplace (truncate and write).
# Usage: bench/save_kill_loop.sh [build-dir] [runs] [megabytes] [folder]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
runs=${2:-50}
mb=${3:-64}
base=${4:-${TMPDIR:-/tmp}}
saver="$build/bench/save_loop"
[ -x "$saver" ] || cmake --build "$build" -j 2 --target save_loop

# Complete: MEGABYTES lines of 1 MiB and a last line "END <pid>".
complete() {
  [ -f "$1" ] || return 1
  local size last
  size=$(stat -c %s "$1")
  last=$(tail -c 32 "$1" | tail -n 1)
  [[ $last == END* ]] && [ "$size" -eq $((mb * 1048576 + ${#last} + 1)) ]
}
litter() { find "$1" -mindepth 1 ! -name t.ini -printf '%s\n' | awk '{n++; b+=$1} END {printf "%d files, %.1f MB", n, b/1048576}'; }
now_ms() { echo $(($(date +%s%N) / 1000000)); }

printf '%-8s %6s %10s %12s %-22s %-22s %-22s\n' mode runs "save (ms)" incomplete "left after the kills" "after one more save" "after it is 2 h old"
for mode in atomic named inplace; do
  dir=$(mktemp -d "$base/corvane-kill-XXXXXX")
  "$saver" "$dir/t.ini" "$mb" "$mode"
  start=$(now_ms)
  "$saver" "$dir/t.ini" "$mb" "$mode"
  took=$(($(now_ms) - start))
  incomplete=0
  for ((run = 0; run < runs; run++)); do
    "$saver" "$dir/t.ini" "$mb" "$mode" &
    pid=$!
    delay=$((RANDOM % (took + 1)))
    sleep "$(printf '%d.%03d' $((delay / 1000)) $((delay % 1000)))"
    kill -9 "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    complete "$dir/t.ini" || incomplete=$((incomplete + 1))
  done
  afterKills=$(litter "$dir")
  "$saver" "$dir/t.ini" "$mb" "$mode"
  afterSave=$(litter "$dir")
  find "$dir" -mindepth 1 ! -name t.ini -exec touch -d '2 hours ago' {} +
  "$saver" "$dir/t.ini" "$mb" "$mode"
  afterAging=$(litter "$dir")
  printf '%-8s %6d %10d %12d %-22s %-22s %-22s\n' "$mode" "$runs" "$took" "$incomplete" "$afterKills" "$afterSave" "$afterAging"
  rm -rf "$dir"
done

echo
echo "File size limit of 1 MiB (ulimit -f 1024), a save of 4 MiB over a complete file:"
for mode in atomic named inplace; do
  for signal in default ignored; do
    dir=$(mktemp -d "$base/corvane-kill-XXXXXX")
    "$saver" "$dir/t.ini" 0 "$mode"
    flag=()
    [ "$signal" = ignored ] && flag=(--ignore-sigxfsz)
    status=0
    message=$( (ulimit -f 1024; exec "$saver" "$dir/t.ini" 4 "$mode" "${flag[@]}") 2>&1) || status=$?
    if [ "$status" -gt 128 ]; then outcome="killed by $(kill -l $((status - 128)))"; else outcome="exit $status: $message"; fi
    complete_old=$(mb=0; complete "$dir/t.ini" && echo "target kept" || echo "target damaged")
    printf '%-8s SIGXFSZ %-8s %-70s %s, left %s\n' "$mode" "$signal" "$outcome" "$complete_old" "$(litter "$dir")"
    rm -rf "$dir"
  done
done
