#!/usr/bin/env bash
# The preserving save's cost, against the plain save of the same document.
#
# On the 8 MB corpus (bench/compare's generator), each run loads the file,
# sets one value and saves it, once with the plain save and once with the
# preserving save; the save's own time (loading excluded) comes from the
# program, peak RSS of the whole run from compare_measure. A load-only run
# gives the loading peak, and with --baseline REV the same load-only program
# is built against the library at REV (a git revision) and run in the same
# rounds: loading's peak before and after the source record. Runs go round
# robin; the table shows medians.
#
# Usage: bench/preserve/run.sh [--runs N] [--size MB] [--baseline REV] [--build-dir DIR]
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build="$root/build-bench"
runs=7
size=8
baseline=""
while (($#)); do
  case "$1" in
    --runs) runs="$2"; shift ;;
    --size) size="$2"; shift ;;
    --baseline) baseline="$2"; shift ;;
    --build-dir) build="$2"; shift ;;
    -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
    *) echo "unknown argument: $1" >&2; exit 2 ;;
  esac
  shift
done

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_BUILD_BENCH=ON >/dev/null
ninja -C "$build" -j2 compare_corpus compare_measure preserve_save >/dev/null
work="$build/bench-preserve"
mkdir -p "$work"
bytes=$(awk -v mb="$size" 'BEGIN { printf "%d", mb * 1048576 }')
read -r sec key < <("$build/bench/compare/compare_corpus" generate "$bytes" "$work/full.ini" "$work/flat.ini")
input="$work/full.ini"
measure="$build/bench/compare/compare_measure"
program="$build/bench/preserve/preserve_save"

base_program=""
if [[ -n "$baseline" ]]; then
  base="$work/baseline"
  rm -rf "$base"
  git -C "$root" worktree add -q --detach "$base" "$baseline"
  trap 'git -C "$root" worktree remove --force "$base"' EXIT
  cmake -S "$base" -B "$base/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_BUILD_TESTS=OFF \
    -DCORVANE_BUILD_BENCH=OFF >/dev/null
  ninja -C "$base/build" -j2 corvane >/dev/null
  cat > "$work/load_only.cpp" <<'CPP'
#include "YIniDocument+Extensions.h"
#include "YIniStandardElementFactory.h"
int main(int, char** argv) {
  auto document = YIniDocument::documentWithContentsOfFileFactory(YString::fromUTF8(argv[2]),
                                                                  YIniStandardElementFactory::standardFactory());
  return document ? 0 : 1;
}
CPP
  libs=$(find "$base/build" -name '*.so' -printf '%h\n' | sort -u)
  g++ -std=c++20 -O2 "$work/load_only.cpp" -o "$work/load_only" \
    -I"$base/Source" -I"$base/foundation" -I"$base/scanner" \
    $(for d in $libs; do printf -- '-L%s -Wl,-rpath,%s ' "$d" "$d"; done) -lcorvane -ltorvik -lcorvane-foundation
  base_program="$work/load_only"
fi

median() { sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
declare -A rss
rm -f "$work"/times-*
for ((i = 0; i < runs; i++)); do
  for mode in load plain preserved; do
    read -r _ r code < <("$measure" "$program" "$mode" "$input" "$work/out.ini" "$sec" "$key" "edited" \
      "$work/times-$mode")
    [[ "$code" == 0 ]] || { echo "preserve_save $mode failed" >&2; exit 1; }
    rss[$mode]+="$r "
  done
  if [[ -n "$base_program" ]]; then
    read -r _ r code < <("$measure" "$base_program" load "$input")
    rss[baseline]+="$r "
  fi
done
mib() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
T_plain=$(median < "$work/times-plain"); T_pres=$(median < "$work/times-preserved")
R_load=$(printf '%s\n' ${rss[load]} | median); R_plain=$(printf '%s\n' ${rss[plain]} | median)
R_pres=$(printf '%s\n' ${rss[preserved]} | median)
echo
echo "Preserving save of a $(awk -v b="$(stat -c %s "$input")" 'BEGIN { printf "%.2f", b / 1048576 }') MB file, one value changed, median of $runs runs"
echo
echo "| | Save time (s) | Peak RSS (MiB) |"
echo "|---|---:|---:|"
echo "| plain save | $(awk -v t="$T_plain" 'BEGIN { printf "%.4f", t }') | $(mib "$R_plain") |"
echo "| preserving save | $(awk -v t="$T_pres" 'BEGIN { printf "%.4f", t }') | $(mib "$R_pres") |"
echo "| loading only | – | $(mib "$R_load") |"
if [[ -n "$base_program" ]]; then
  R_base=$(printf '%s\n' ${rss[baseline]} | median)
  echo "| loading only, at $baseline | – | $(mib "$R_base") |"
fi
echo
echo "- preserving / plain save time: $(ratio "$T_pres" "$T_plain")× (target ≤ 1.2×)"
echo "- preserving / plain save peak RSS: $(ratio "$R_pres" "$R_plain")× (target ≤ 1.1×)"
if [[ -n "$base_program" ]]; then
  echo "- loading peak RSS, with record / at $baseline: $(ratio "$R_load" "$R_base")× (target ≤ 1.15×)"
fi
# The edit changed exactly one line: one line out, one line in.
changed=$( (diff "$input" "$work/out.ini" || true) | grep -c '^[<>]' || true)
echo "- lines differing from the input after the preserving save: $changed (expected 2)"
rm -f "$work/out.ini"
[[ "$changed" == 2 ]]
