#!/usr/bin/env bash
# Mutation testing: applies each mutant of tests/mutants/PLACE.txt in turn to
# a copy of the tree, rebuilds that place's test binaries, runs them, and
# reports whether a test noticed (killed) or not (survived). A surviving
# mutant that is a real fault is a missing test.
#
# Usage: scripts/mutate.sh [--all] [--check] [--match TEXT] [PLACE...]
#   PLACE         a list under tests/mutants without ".txt" (default: every list)
#   --all         also run the mutants marked equivalent (to see that none is killed)
#   --check       only check that every mutant's original text occurs once in its file
#   --match TEXT  only the mutants whose description contains TEXT
# Run on demand, not in CI. The work tree is never written: the copy and its
# build live in build-mutate/ (MUTATE_DIR overrides). Results are also
# written to build-mutate/report.txt.
#
# A list holds a "targets:" line (the test binaries to run) and mutants,
# separated by blank lines:
#   @ FILE: what the fault is
#   - original text (exact, on one line; it must occur once in FILE)
#   + replacement text ("+" alone deletes the original)
#   = equivalent: why no test can notice it      (optional)
# Lines starting with "#" are comments.
# A place's test targets are one string, split into words where used.
# shellcheck disable=SC2086
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=${MUTATE_DIR:-$root/build-mutate}
copy=$work/src
build=$work/build

all=false check=false match="" places=()
while [ $# -gt 0 ]; do
  case $1 in
    --all) all=true ;;
    --check) check=true ;;
    --match) match=$2; shift ;;
    -h|--help) sed -n '2,22p' "$0"; exit 0 ;;
    -*) echo "unknown option $1" >&2; exit 2 ;;
    *) places+=("$1") ;;
  esac
  shift
done
if [ ${#places[@]} -eq 0 ]; then
  for list in tests/mutants/*.txt; do places+=("$(basename "$list" .txt)"); done
fi

# ---- reading the lists ----------------------------------------------------
# Parallel arrays, one entry per mutant.
m_place=() m_file=() m_what=() m_from=() m_to=() m_equiv=()
declare -A targets
read_list() {
  local place=$1 list=tests/mutants/$1.txt line n=-1
  [ -f "$list" ] || { echo "no list $list" >&2; exit 2; }
  while IFS= read -r line || [ -n "$line" ]; do
    case $line in
      '#'*|'') ;;
      targets:*) targets[$place]=${line#targets:} ;;
      '@ '*)
        n=${#m_file[@]}
        local head=${line#@ }
        m_place+=("$place") m_file+=("${head%%: *}") m_what+=("${head#*: }") m_from+=("") m_to+=("") m_equiv+=("")
        ;;
      '- '*) m_from[n]=${line#- } ;;
      '+ '*) m_to[n]=${line#+ } ;;
      '+') m_to[n]="" ;;
      '= '*) m_equiv[n]=${line#= } ;;
      *) echo "$list: cannot read the line: $line" >&2; exit 2 ;;
    esac
  done < "$list"
  [ -n "${targets[$place]:-}" ] || { echo "$list: no targets: line" >&2; exit 2; }
}
for place in "${places[@]}"; do read_list "$place"; done

# Number of occurrences of $2 in the content $1.
occurrences() {
  local rest=$1 count=0
  while [[ $rest == *"$2"* ]]; do
    rest=${rest#*"$2"}
    count=$((count + 1))
  done
  echo $count
}

problems=0
for i in "${!m_file[@]}"; do
  file=${m_file[i]}
  if [ ! -f "$file" ]; then
    echo "stale: $file does not exist (${m_what[i]})"; problems=$((problems + 1)); continue
  fi
  if [ -z "${m_from[i]}" ]; then
    echo "invalid: no original text (${m_what[i]})"; problems=$((problems + 1)); continue
  fi
  n=$(occurrences "$(<"$file")" "${m_from[i]}")
  if [ "$n" -ne 1 ]; then
    echo "stale: the original text occurs $n times in $file: ${m_from[i]} (${m_what[i]})"
    problems=$((problems + 1))
  fi
done
if $check || [ $problems -gt 0 ]; then
  echo "${#m_file[@]} mutants, $problems to fix"
  [ $problems -eq 0 ]
  exit
fi

# ---- the copy and its build -----------------------------------------------
mkdir -p "$copy" "$build"
# Copy only files whose content differs, so that unchanged files keep their
# time stamps and the build stays incremental between runs.
mapfile -d '' files < <(git ls-files -z -co --exclude-standard)
declare -A wanted
for f in "${files[@]}"; do
  [ -f "$f" ] || continue
  wanted[$f]=1
  if ! cmp -s "$f" "$copy/$f"; then
    mkdir -p "$copy/$(dirname "$f")"
    cp "$f" "$copy/$f"
  fi
done
while IFS= read -r -d '' f; do
  f=${f#"$copy"/}
  [ -n "${wanted[$f]:-}" ] || rm -f "$copy/$f"
done < <(find "$copy" -type f -print0)

# A warning in a mutant must not stop its build.
cat > "$work/compile.sh" <<'EOF'
#!/bin/sh
exec "$@" -Wno-error
EOF
chmod +x "$work/compile.sh"
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$copy" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$work/compile.sh" -DCORVANE_BUILD_BENCH=OFF > "$work/configure.log" 2>&1 \
    || { cat "$work/configure.log"; exit 1; }
fi

build_targets() { cmake --build "$build" -j 2 --target "$@" > "$work/build.log" 2>&1; }
# Runs every test binary of $@; fails at the first failing test. The time
# limit catches mutants that hang.
run_tests() {
  local limit=$1 t
  shift
  for t in "$@"; do
    timeout "$limit" "$build/tests/$t" --gtest_fail_fast --gtest_brief=1 > "$work/test.log" 2>&1 || return 1
  done
}

report=$work/report.txt
: > "$report"
say() { echo "$@" | tee -a "$report"; }

declare -A limit
for place in "${places[@]}"; do
  build_targets ${targets[$place]} || { cat "$work/build.log"; echo "the unmutated tree does not build" >&2; exit 1; }
  start=$(date +%s)
  run_tests 600 ${targets[$place]} || { cat "$work/test.log"; echo "$place: tests fail without a mutant" >&2; exit 1; }
  limit[$place]=$(( ($(date +%s) - start) * 5 + 20 ))
done

# ---- the mutants ------------------------------------------------------------
saved="" saved_file=""
restore() {
  if [ -n "$saved_file" ]; then
    printf '%s' "$saved" > "$copy/$saved_file"
    saved_file=""
  fi
}
trap restore EXIT

declare -A killed survived equivalent failed
for place in "${places[@]}"; do killed[$place]=0 survived[$place]=0 equivalent[$place]=0 failed[$place]=0; done
for i in "${!m_file[@]}"; do
  place=${m_place[i]} file=${m_file[i]}
  [ -z "$match" ] || [[ ${m_what[i]} == *"$match"* ]] || continue
  label="$place: $file: ${m_what[i]}"
  if [ -n "${m_equiv[i]}" ] && ! $all; then
    equivalent[$place]=$((equivalent[$place] + 1))
    say "EQUIVALENT  $label (${m_equiv[i]#equivalent: })"
    continue
  fi
  # Read with a sentinel so that trailing line ends survive the round trip.
  saved=$(cat "$copy/$file"; printf x)
  saved=${saved%x}
  saved_file=$file
  printf '%s' "${saved/"${m_from[i]}"/"${m_to[i]}"}" > "$copy/$file"
  if ! build_targets ${targets[$place]}; then
    result="NO BUILD" tally=failed
    cp "$work/build.log" "$work/nobuild-$i.log"
  elif run_tests "${limit[$place]}" ${targets[$place]}; then
    result="SURVIVED" tally=survived
  else
    result="killed" tally=killed
  fi
  restore
  if [ -n "${m_equiv[i]}" ]; then
    result="$result (marked equivalent)" tally=equivalent
  fi
  declare -n count=$tally
  # shellcheck disable=SC2004  # the key of an associative array needs its $
  count[$place]=$((count[$place] + 1))
  unset -n count
  say "$(printf '%-11s' "$result") $label"
done

say ""
for place in "${places[@]}"; do
  counted=$((killed[$place] + survived[$place]))
  rate=100
  [ $counted -eq 0 ] || rate=$((100 * killed[$place] / counted))
  say "$place: ${killed[$place]} killed, ${survived[$place]} survived, ${equivalent[$place]} equivalent, ${failed[$place]} did not build: $rate% of non-equivalent mutants killed"
done
