#!/usr/bin/env bash
# Loading files made of one very long line (not run in CI).
#
# For each size (MB) and each kind of line, a file "[s]", LF, the long line,
# LF, "j=1", LF is loaded by Corvane and by GLib's GKeyFile (keeping
# comments), and Corvane also runs the round trip (load, set j, write all).
# Wall time and peak RSS of each run come from compare_measure (fork + wait4);
# runs go round robin and the table shows medians. GKeyFile refuses a line
# that is not a key-value pair: "refused".
#
# Kinds of line:  value    k=xxx…x        (a long value)
#                 key      xxx…x=v        (a long name: "=" at the end)
#                 unknown  xxx…x          (no "=": unrecognised text)
#                 comment  #xxx…x
#
# Usage: bench/longlines/run.sh [--runs N] [--sizes "MB ..."] [--build-dir DIR]
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build="$root/build-bench"
runs=3
sizes="10 50 200"
while (($#)); do
  case "$1" in
    --runs) runs="$2"; shift ;;
    --sizes) sizes="$2"; shift ;;
    --build-dir) build="$2"; shift ;;
    -h|--help) sed -n '2,16p' "$0"; exit 0 ;;
    *) echo "unknown argument: $1" >&2; exit 2 ;;
  esac
  shift
done

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_BUILD_BENCH=ON >/dev/null
ninja -C "$build" -j2 compare >/dev/null
bin="$build/bench/compare"
work="$build/bench-longlines"
mkdir -p "$work"
trap 'rm -f "$work"/*.ini' EXIT

median() { sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
mib() { awk -v k="$1" 'BEGIN { printf "%.0f", k / 1024 }'; }

# make_file <kind> <MB> <path>
make_file() {
  local kind="$1" bytes=$(($2 * 1048576)) path="$3"
  {
    printf '[s]\n'
    case "$kind" in
      value) printf 'k=' ;;
      comment) printf '#' ;;
    esac
    head -c "$bytes" /dev/zero | tr '\0' 'x'
    [[ "$kind" == key ]] && printf '=v'
    printf '\nj=1\n'
  } > "$path"
}

# measure <program> <input> [load]: "<seconds> <KiB>" or "refused"
measure() {
  local program="$1" input="$2" t r code
  shift 2
  read -r t r code < <("$bin/compare_measure" "$bin/compare_$program" "$input" "$work/out.ini" s j 2 "$@" 2>/dev/null)
  if [[ "$code" != 0 ]]; then echo refused; else echo "$t $r"; fi
}

echo "Files of one long line: \"[s]\", the line, \"j=1\"; median of $runs runs, $(nproc) cores"
echo
echo "| Line | Size (MB) | Corvane load (s) | MB/s | Peak RSS (MiB) | GKeyFile load (s) | Peak RSS (MiB) | Corvane × GKeyFile | Corvane round trip (s) | Peak RSS (MiB) |"
echo "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
for mb in $sizes; do
  for kind in value key unknown comment; do
    file="$work/$kind-$mb.ini"
    make_file "$kind" "$mb" "$file"
    declare -A t=() r=()
    for ((i = 0; i < runs; i++)); do
      for job in corvane-load gkeyfile-load corvane-trip; do
        case "$job" in
          corvane-load) out=$(measure corvane "$file" load) ;;
          gkeyfile-load) out=$(measure gkeyfile "$file" load) ;;
          corvane-trip) out=$(measure corvane "$file") ;;
        esac
        if [[ "$out" == refused ]]; then t[$job]=refused; continue; fi
        [[ "${t[$job]:-}" == refused ]] && continue
        t[$job]+="${out% *} "
        r[$job]+="${out#* } "
      done
    done
    cell() {  # <job> <what: t|r>
      local job="$1" v
      if [[ "${t[$job]:-}" == refused || -z "${t[$job]:-}" ]]; then echo "refused"; return; fi
      if [[ "$2" == t ]]; then v=$(printf '%s\n' ${t[$job]} | median); printf '%.3f' "$v"
      else mib "$(printf '%s\n' ${r[$job]} | median)"; fi
    }
    cl=$(cell corvane-load t)
    gl=$(cell gkeyfile-load t)
    ratio="–"
    [[ "$cl" != refused && "$gl" != refused ]] && ratio=$(awk -v a="$cl" -v b="$gl" 'BEGIN { printf "%.2f", a / b }')
    rate="–"
    [[ "$cl" != refused ]] && rate=$(awk -v s="$(stat -c %s "$file")" -v t="$cl" 'BEGIN { printf "%.0f", s / 1048576 / t }')
    echo "| $kind | $mb | $cl | $rate | $(cell corvane-load r) | $gl | $(cell gkeyfile-load r) | $ratio | $(cell corvane-trip t) | $(cell corvane-trip r) |"
    rm -f "$file"
    unset t r
  done
done
