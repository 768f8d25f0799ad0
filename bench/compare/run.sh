#!/usr/bin/env bash
# Round-trip comparison of Corvane with other INI libraries.
#
# Each program loads the same INI file, sets one option's value and writes the
# whole text back to another file (inih only parses: it is the parsing floor;
# the plain copy reads and writes the bytes: the I/O floor). Wall time and
# peak RSS of each run are measured by compare_measure (fork + wait4); the
# table shows the medians of several runs and the ratios to GKeyFile and to
# the copy. Corvane's output is then checked line by line: without the edit it
# must equal the input rewritten by the writing rules, and the edit must change
# exactly the edited line.
#
# The floor model (compare_floor) is the element contract's own cost: plain C++
# doing only the work the contract requires (the text kept, one object per
# element from a bump arena, counted strings copied out of the text, or with
# --slices referring to it), timed beside the others; its output passes the
# same check.
# compare_small_floor runs the same model on the small file in process, beside
# compare_small_corvane and compare_small_gkeyfile.
#
# Corvane's pool faults its memory in small pages unless the environment asks
# for huge pages (CORVANE_POOL_HUGE_PAGES=1); the scaling series also runs it
# so, to show what huge pages give or cost on the machine at hand.
#
# GKeyFile refuses continuation lines, so the peers run on the corpus without
# its continuation lines ("flat"); Corvane also runs on the full corpus, which
# the scaling series uses.
#
# Usage: bench/compare/run.sh [--quick] [--runs N] [--size MB] [--scale "MB ..."]
#                             [--build-dir DIR] [--work-dir DIR] [--no-install]
# (the build dir defaults to build-bench in the source tree)
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build="$root/build-bench"
work=""
runs=5
size=8
scale="0.5 2 8 32"
install=1

while (($#)); do
  case "$1" in
    --quick) runs=3; scale="8 32" ;;
    --runs) runs="$2"; shift ;;
    --size) size="$2"; shift ;;
    --scale) scale="$2"; shift ;;
    --build-dir) build="$2"; shift ;;
    --work-dir) work="$2"; shift ;;
    --no-install) install=0 ;;
    -h|--help) sed -n '2,31p' "$0"; exit 0 ;;
    *) echo "unknown argument: $1" >&2; exit 2 ;;
  esac
  shift
done
work=${work:-$build/bench-compare}

# ---- peers: install the Debian packages when missing ----------------------
if ((install)); then
  "$root/scripts/install-deps.sh" libglib2.0-dev libsimpleini-dev libinih-dev >&2 \
    || echo "could not install the peers: missing ones are skipped" >&2
fi

# ---- build ------------------------------------------------------------------
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_BUILD_BENCH=ON >/dev/null
ninja -C "$build" -j2 compare >/dev/null
bin="$build/bench/compare"

# ---- corpora ----------------------------------------------------------------
mkdir -p "$work"
bytes_of() { awk -v mb="$1" 'BEGIN { printf "%d", mb * 1048576 }'; }
declare -A target_section target_key
for mb in $(printf '%s\n' $size $scale | sort -u); do
  read -r sec key < <("$bin/compare_corpus" generate "$(bytes_of "$mb")" "$work/full-$mb.ini" "$work/flat-$mb.ini")
  target_section[$mb]=$sec
  target_key[$mb]=$key
done
value="edited/value"

# ---- measuring ----------------------------------------------------------------
# The runs go round-robin over all jobs, so a burst of load from elsewhere on
# the machine spreads over the programs instead of hitting one of them.
median() { sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

declare -A times rss failed
# A job's program is compare_<binary> with its flags (the floor model runs twice).
declare -A binary=([floor-slices]=floor [corvane-huge-pages]=corvane) flags=([floor-slices]=--slices)
# The environment a job runs in: Corvane also runs with huge pages asked for.
declare -A environment=([corvane-huge-pages]=CORVANE_POOL_HUGE_PAGES=1)
program_of() { echo "$bin/compare_${binary[$1]:-$1}"; }
# run_once <job> <program> <input> <mb>: one measured run, appended to the job's samples.
run_once() {
  local job="$1" program="$2" input="$3" mb="$4" t r code
  [[ -n "${failed[$job]:-}" ]] && return 0
  # shellcheck disable=SC2086 # the flags are words
  read -r t r code < <(env ${environment[$program]:-} "$bin/compare_measure" "$(program_of "$program")" ${flags[$program]:-} "$input" \
    "$work/out-$program.ini" "${target_section[$mb]}" "${target_key[$mb]}" "$value")
  if [[ "$code" != 0 ]]; then
    echo "compare_$program failed on $input (exit $code)" >&2
    failed[$job]=1
    return 0
  fi
  times[$job]+="$t "
  rss[$job]+="$r "
}

programs=(corvane gkeyfile simpleini inih copy floor floor-slices)
declare -A label=(
  [corvane]="Corvane"
  [gkeyfile]="GLib GKeyFile (keep comments)"
  [simpleini]="SimpleIni"
  [inih]="inih (parse only)"
  [copy]="read + write copy"
  [floor]="floor model (strings copied)"
  [floor-slices]="floor model (strings slice the text)"
)
loaders=(corvane gkeyfile floor floor-slices)
flat="$work/flat-$size.ini"
full="$work/full-$size.ini"
# load_once <job> <program>: loading alone (the sixth argument).
load_once() {
  local job="$1" program="$2" t r code
  [[ -n "${failed[$job]:-}" ]] && return 0
  # shellcheck disable=SC2086
  read -r t r code < <("$bin/compare_measure" "$(program_of "$program")" ${flags[$program]:-} "$flat" \
    "$work/out-$program.ini" "${target_section[$size]}" "${target_key[$size]}" "$value" load)
  if [[ "$code" != 0 ]]; then failed[$job]=1; return 0; fi
  times[$job]+="$t "
  rss[$job]+="$r "
}
# small_once <program>: the small file in process, seconds per round trip.
small="$here/small.ini"
small_key=$(grep -A2 '^\[section3\]' "$small" | sed -n 3p | cut -d' ' -f1)
declare -A small_times
smalls=(corvane gkeyfile floor floor-slices)
small_once() {
  local job="$1" program t
  program="$bin/compare_small_${binary[$job]:-$job}"
  [[ -x "$program" ]] || return 0
  # shellcheck disable=SC2086
  read -r t _ < <("$program" ${flags[$job]:-} "$small" section3 "$small_key" 10000)
  small_times[$job]+="$t "
}
# destroy_once: the share of the in-process round trip spent destroying the
# document, Corvane's and the floor model's (strings copied and sliced), on
# the corpus and on the small file.
declare -A destroy_shares
share_of() { awk -v d="$2" -v t="$1" 'BEGIN { print d / t }'; }
destroy_once() {
  local total destroying per flag
  read -r total destroying < <("$bin/compare_corvane" "$flat" "$work/out-phases.ini" "${target_section[$size]}" \
    "${target_key[$size]}" "$value" phases) || return 0
  destroy_shares[corpus]+="$(share_of "$total" "$destroying") "
  read -r per _ destroying < <("$bin/compare_small_corvane" "$small" section3 "$small_key" 10000 phases) || return 0
  destroy_shares[small]+="$(share_of "$per" "$destroying") "
  [[ -x "$bin/compare_small_floor" ]] || return 0
  for flag in "" --slices; do
    # shellcheck disable=SC2086
    read -r total destroying < <("$bin/compare_floor" $flag "$flat" "$work/out-phases.ini" "${target_section[$size]}" \
      "${target_key[$size]}" "$value" phases) || continue
    destroy_shares[floor-corpus$flag]+="$(share_of "$total" "$destroying") "
    # shellcheck disable=SC2086
    read -r per _ destroying < <("$bin/compare_small_floor" $flag "$small" section3 "$small_key" 10000 phases) || continue
    destroy_shares[floor$flag]+="$(share_of "$per" "$destroying") "
  done
}
for ((i = 0; i < runs; i++)); do
  # Each round starts with the next program, so that every program takes
  # every place in the order equally often (the first of a round runs right
  # after the previous round's in-process loops).
  for ((k = 0; k < ${#programs[@]}; k++)); do
    p=${programs[(k + i) % ${#programs[@]}]}
    if [[ -x "$(program_of "$p")" ]]; then run_once "$p" "$p" "$flat" "$size"; fi
  done
  for mb in $(printf '%s\n' $size $scale | sort -u); do run_once "full-$mb" corvane "$work/full-$mb.ini" "$mb"; done
  # The same with huge pages asked for.
  for mb in $scale; do run_once "full-huge-pages-$mb" corvane-huge-pages "$work/full-$mb.ini" "$mb"; done
  # The floor model and GKeyFile over the same sizes, for their own scaling.
  for mb in $scale; do
    for p in floor gkeyfile; do
      if [[ -x "$(program_of "$p")" ]]; then run_once "scale-$p-$mb" "$p" "$work/flat-$mb.ini" "$mb"; fi
    done
  done
  destroy_once
  for p in "${loaders[@]}"; do
    if [[ -x "$(program_of "$p")" ]]; then load_once "load-$p" "$p"; fi
  done
  for p in "${smalls[@]}"; do small_once "$p"; done
done

declare -A T R
for job in "${!times[@]}"; do
  [[ -n "${failed[$job]:-}" ]] && continue
  T[$job]=$(printf '%s\n' ${times[$job]} | median)
  R[$job]=$(printf '%s\n' ${rss[$job]} | median)
done

declare -A S
for p in "${!small_times[@]}"; do S[$p]=$(printf '%s\n' ${small_times[$p]} | median); done

# ---- output check -----------------------------------------------------------
# check <input> <mb> [job]: Corvane's output (or the job's) by the writing rules.
check() {
  local input="$1" mb="$2" job="${3:-corvane}" program
  program=$(program_of "$job")
  # shellcheck disable=SC2086
  "$program" ${flags[$job]:-} "$input" "$work/check-unedited.ini" "${target_section[$mb]}" "${target_key[$mb]}" - &&
    "$program" ${flags[$job]:-} "$input" "$work/check-edited.ini" "${target_section[$mb]}" "${target_key[$mb]}" \
      "$value" &&
    "$bin/compare_corpus" check "$input" "$work/check-unedited.ini" "$work/check-edited.ini" \
      "${target_section[$mb]}" "${target_key[$mb]}" "$value"
}
check_full=$(check "$full" "$size" || true)
check_flat=$(check "$flat" "$size" || true)
check_floor=$(check "$flat" "$size" floor || true)
check_slices=$(check "$flat" "$size" floor-slices || true)

# ---- report -----------------------------------------------------------------
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (a == "" || b == "" || b == 0) print "–"; else printf "%.2f", a / b }'; }
mib() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }
filesize() { awk -v b="$(stat -c %s "$1")" 'BEGIN { printf "%.2f", b / 1048576 }'; }
gk=${T[gkeyfile]:-}; gkr=${R[gkeyfile]:-}; cp=${T[copy]:-}
echo
echo "Round trip (load, set one value, write all) of a $(filesize "$flat") MB file, median of $runs runs, $(nproc) cores"
echo
echo "| Program | Time (s) | × GKeyFile | × copy | Peak RSS (MiB) | × GKeyFile |"
echo "|---|---:|---:|---:|---:|---:|"
row() {
  local name="$1" t="$2" r="$3"
  if [[ -z "$t" ]]; then echo "| $name | – | – | – | – | – |"; return; fi
  echo "| $name | $(awk -v t="$t" 'BEGIN { printf "%.3f", t }') | $(ratio "$t" "$gk") | $(ratio "$t" "$cp") | $(mib "$r") | $(ratio "$r" "$gkr") |"
}
for p in "${programs[@]}"; do row "${label[$p]}" "${T[$p]:-}" "${R[$p]:-}"; done
row "Corvane, full corpus ($(filesize "$full") MB, with continuation lines)" "${T[full-$size]:-}" "${R[full-$size]:-}"
echo
echo "Loading alone (the same file, comments kept):"
echo
echo "| Program | Time (s) | × GKeyFile | Peak RSS (MiB) |"
echo "|---|---:|---:|---:|"
for p in "${loaders[@]}"; do
  t=${T[load-$p]:-}; [[ -n "$t" ]] || continue
  echo "| ${label[$p]} | $(awk -v t="$t" 'BEGIN { printf "%.3f", t }') | $(ratio "$t" "${T[load-gkeyfile]:-}") | $(mib "${R[load-$p]}") |"
done
echo
echo "A typical small file ($(stat -c %s "$small") bytes, 10 sections, 80 options), loaded from a string, one value set, text taken, in process:"
echo
echo "| Program | µs per round trip | × GKeyFile |"
echo "|---|---:|---:|"
for p in "${smalls[@]}"; do
  t=${S[$p]:-}; [[ -n "$t" ]] || continue
  echo "| ${label[$p]} | $(awk -v t="$t" 'BEGIN { printf "%.1f", t * 1e6 }') | $(ratio "$t" "${S[gkeyfile]:-}") |"
done
echo
echo "Corvane scaling (full corpus):"
echo
echo "| Size (MB) | Time (s) | MB/s | Peak RSS (MiB) |"
echo "|---:|---:|---:|---:|"
for mb in $scale; do
  t=${T[full-$mb]:-}
  [[ -n "$t" ]] || continue
  echo "| $(filesize "$work/full-$mb.ini") | $(awk -v t="$t" 'BEGIN { printf "%.3f", t }') | $(awk -v s="$(stat -c %s "$work/full-$mb.ini")" -v t="$t" \
    'BEGIN { printf "%.1f", s / 1048576 / t }') | $(mib "${R[full-$mb]}") |"
done
echo
if [[ -n "${T[full-32]:-}" && -n "${T[full-8]:-}" ]]; then
  echo "- Scaling 32 MB / 8 MB: $(ratio "${T[full-32]}" "${T[full-8]}")× (target ≤ 4.2×);" \
    "on the flat corpus the floor model $(ratio "${T[scale-floor-32]:-}" "${T[scale-floor-8]:-}")×," \
    "GKeyFile $(ratio "${T[scale-gkeyfile-32]:-}" "${T[scale-gkeyfile-8]:-}")×"
  if [[ -n "${T[full-huge-pages-32]:-}" && -n "${T[full-huge-pages-8]:-}" ]]; then
    echo "  with huge pages asked for (CORVANE_POOL_HUGE_PAGES=1): $(ratio "${T[full-huge-pages-32]}" "${T[full-huge-pages-8]}")×," \
      "8 MB in $(awk -v t="${T[full-huge-pages-8]}" 'BEGIN { printf "%.3f", t }') s" \
      "($(ratio "${T[full-huge-pages-8]}" "${T[full-8]}")× the time without)," \
      "32 MB in $(awk -v t="${T[full-huge-pages-32]}" 'BEGIN { printf "%.3f", t }') s ($(ratio "${T[full-huge-pages-32]}" "${T[full-32]}")×)"
  fi
fi
# percent <key>: the median of a destroy_shares entry, as a percentage.
# shellcheck disable=SC2086 # the samples are words
percent() { printf '%s\n' ${destroy_shares[$1]:-0} | median | awk '{ printf "%.1f%%", $1 * 100 }'; }
if [[ -n "${destroy_shares[corpus]:-}" ]]; then
  echo "- Destroying the document, share of the in-process round trip (target ≤ 10%):" \
    "$(percent corpus) on the corpus, $(percent small) on the small file"
  if [[ -n "${destroy_shares[floor]:-}" ]]; then
    echo "  the floor model's: copied $(percent floor-corpus) on the corpus, $(percent floor) on the small file;" \
      "sliced $(percent floor-corpus--slices) and $(percent floor--slices)"
  fi
fi
if [[ -n "${T[corvane]:-}" ]]; then
  echo "- Time vs GKeyFile: $(ratio "${T[corvane]}" "$gk")× (target ≤ 0.5×); vs copy: $(ratio "${T[corvane]}" "$cp")× (target ≤ 6×)"
  echo "- Peak memory vs GKeyFile: $(ratio "${R[corvane]}" "$gkr")× (target ≤ 1×)"
fi
for p in floor floor-slices; do
  [[ -n "${T[$p]:-}" ]] || continue
  echo "- ${label[$p]} vs GKeyFile: time $(ratio "${T[$p]}" "$gk")×, peak memory $(ratio "${R[$p]}" "$gkr")×;" \
    "Corvane vs it: time $(ratio "${T[corvane]:-}" "${T[$p]}")×, peak memory $(ratio "${R[corvane]:-}" "${R[$p]}")×"
done
if [[ -n "${T[load-corvane]:-}" ]]; then
  echo "- Loading vs GKeyFile's loading: $(ratio "${T[load-corvane]}" "${T[load-gkeyfile]:-}")× (target ≤ 0.5×)"
fi
if [[ -n "${S[corvane]:-}" ]]; then
  echo "- Small file vs GKeyFile: $(ratio "${S[corvane]}" "${S[gkeyfile]:-}")× (target ≤ 0.5×)"
fi
for p in floor floor-slices; do
  [[ -n "${S[$p]:-}" ]] || continue
  echo "- Small file, ${label[$p]} vs GKeyFile: $(ratio "${S[$p]}" "${S[gkeyfile]:-}")×;" \
    "Corvane vs it: $(ratio "${S[corvane]:-}" "${S[$p]}")×"
done
# The figures for bench/compare/chart.py.
{
  for p in "${programs[@]}"; do
    [[ -n "${T[$p]:-}" ]] && echo "roundtrip ${p} ${T[$p]} ${R[$p]}"
  done
  for p in "${loaders[@]}"; do
    [[ -n "${T[load-$p]:-}" ]] && echo "load ${p} ${T[load-$p]} ${R[load-$p]}"
  done
  for p in "${smalls[@]}"; do
    [[ -n "${S[$p]:-}" ]] && echo "small ${p} ${S[$p]} 0"
  done
  for mb in $scale; do [[ -n "${T[full-$mb]:-}" ]] && echo "scale $mb ${T[full-$mb]} ${R[full-$mb]}"; done
  for mb in $scale; do
    [[ -n "${T[full-huge-pages-$mb]:-}" ]] &&
      echo "scale-huge-pages $mb ${T[full-huge-pages-$mb]} ${R[full-huge-pages-$mb]}"
  done
} > "$build/bench-compare.dat"
echo "- Figures for the chart: $build/bench-compare.dat (bench/compare/chart.py makes the SVG)"
echo "- Output check, full corpus: ${check_full:-FAIL: no output}"
echo "- Output check, flat corpus: ${check_flat:-FAIL: no output}"
echo "- Output check, floor model: ${check_floor:-FAIL: no output}"
echo "- Output check, floor model with slices: ${check_slices:-FAIL: no output}"
rm -f "$work"/out-*.ini "$work"/check-*.ini
[[ "$check_full" == ok:* && "$check_flat" == ok:* && "$check_floor" == ok:* && "$check_slices" == ok:* ]]
