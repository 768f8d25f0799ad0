#!/usr/bin/env bash
# The corvane tool's speed: `get` and `set` on a 1 KB file against crudini,
# and `set` against `get` on the 8 MB corpus (bench/compare's generator).
#
# Every command is one process, timed with its peak RSS by compare_measure
# (fork + wait4). The runs go round robin over all commands, so a burst of
# load from elsewhere spreads over all of them; the tables show medians.
# Each `set` changes the value (two values in turn), so that it writes.
# crudini is installed with apt-get when missing, or skipped.
#
# Usage: bench/tool/run.sh [--runs N] [--size MB] [--build-dir DIR] [--no-install]
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build="$root/build-bench"
runs=21
size=8
install=1
while (($#)); do
  case "$1" in
    --runs) runs="$2"; shift ;;
    --size) size="$2"; shift ;;
    --build-dir) build="$2"; shift ;;
    --no-install) install=0 ;;
    -h|--help) sed -n '2,11p' "$0"; exit 0 ;;
    *) echo "unknown argument: $1" >&2; exit 2 ;;
  esac
  shift
done

if ((install)) && ! command -v crudini >/dev/null; then
  "$root/scripts/install-deps.sh" crudini >&2 || echo "could not install crudini: it is skipped" >&2
fi
crudini=$(command -v crudini || true)

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_BUILD_BENCH=ON >/dev/null
ninja -C "$build" -j2 corvane-tool compare_corpus compare_measure tool_floor >/dev/null
floor="$build/bench/tool/tool_floor"
tool="$build/tools/corvane"
measure="$build/bench/compare/compare_measure"
work="$build/bench-tool"
mkdir -p "$work"

# A 1 KB configuration file in the style of the packaged ones.
small="$work/small.ini"
cat > "$small" <<'EOF'
# Application settings, edited by hand

[main]
name = Corvane demo
description = A demonstration of reading and editing INI files
    from shell scripts, kept as they were written
log_level = info
data_dir = /var/lib/corvane

[network]
host = example.org
port = 8080
timeout = 30
retries = 5
# proxy = http://proxy.example.org:3128

[database]
driver = postgresql
host = db.example.org
port = 5432
name = corvane
user = corvane
pool_size = 10

[cache]
enabled = true
size = 256
ttl = 3600
path = /var/cache/corvane

[paths]
plugins = /usr/lib/corvane/plugins
templates = /usr/share/corvane/templates
locale = /usr/share/locale

[logging]
# Where the log goes and how much of it is kept.
file = /var/log/corvane/corvane.log
rotate = daily
keep = 14
compress = yes

[features]
experimental = false
telemetry = false
auto_update = true
themes = light, dark, high-contrast
EOF
cp "$small" "$work/small-corvane.ini"
cp "$small" "$work/small-crudini.ini"
cp "$small" "$work/small-floor.ini"
bytes=$(awk -v mb="$size" 'BEGIN { printf "%d", mb * 1048576 }')
read -r sec key < <("$build/bench/compare/compare_corpus" generate "$bytes" "$work/corpus.ini" "$work/corpus-flat.ini")
corpus="$work/corpus.ini"

median() { sort -g | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
declare -A times rss
# run <job> <command...>: one measured run, appended to the job's samples.
run() {
  local job="$1" t r code
  shift
  read -r t r code < <("$measure" "$@")
  if [[ "$code" != 0 ]]; then
    echo "$job failed (exit $code): $*" >&2
    exit 1
  fi
  times[$job]+="$t "
  rss[$job]+="$r "
}

for ((i = 0; i < runs; i++)); do
  value="v$((i % 2))"
  run get-corvane "$tool" get "$work/small-corvane.ini" network port
  run set-corvane "$tool" set "$work/small-corvane.ini" network port "$value"
  if [[ -n "$crudini" ]]; then
    run get-crudini "$crudini" --get "$work/small-crudini.ini" network port
    run set-crudini "$crudini" --set "$work/small-crudini.ini" network port "$value"
  fi
  run floor-durable "$floor" "$work/small-floor.ini" durable
  run floor-plain "$floor" "$work/small-floor.ini" plain
  run get-corpus "$tool" get "$corpus" "$sec" "$key"
  run set-corpus "$tool" set "$corpus" "$sec" "$key" "$value"
done

declare -A T R
for job in "${!times[@]}"; do
  T[$job]=$(printf '%s\n' ${times[$job]} | median)
  R[$job]=$(printf '%s\n' ${rss[$job]} | median)
done
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (a == "" || b == "" || b == 0) print "–"; else printf "%.2f", a / b }'; }
ms() { awk -v t="$1" 'BEGIN { printf "%.1f", t * 1000 }'; }
mib() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }

echo
echo "corvane against crudini on a $(stat -c %s "$small")-byte file, median of $runs interleaved runs, $(nproc) cores"
echo
echo "| Command | corvane (ms) | crudini (ms) | corvane / crudini | corvane RSS (MiB) | crudini RSS (MiB) |"
echo "|---|---:|---:|---:|---:|---:|"
for verb in get set; do
  c=${T[$verb-crudini]:-}
  echo "| $verb | $(ms "${T[$verb-corvane]}") | $([[ -n $c ]] && ms "$c" || echo –) | $(ratio "${T[$verb-corvane]}" "$c") |" \
       "$(mib "${R[$verb-corvane]}") | $([[ -n $c ]] && mib "${R[$verb-crudini]}" || echo –) |"
done
echo
echo "The floor under set: reading the file and replacing it atomically, flushed to disk (file and folder)"
echo "as corvane does: $(ms "${T[floor-durable]}") ms; not flushed: $(ms "${T[floor-plain]}") ms."
echo
echo "corvane on the $(awk -v b="$(stat -c %s "$corpus")" 'BEGIN { printf "%.2f", b / 1048576 }') MB corpus, median of $runs runs"
echo
echo "| Command | Time (s) | Peak RSS (MiB) |"
echo "|---|---:|---:|"
for verb in get set; do
  echo "| $verb | $(awk -v t="${T[$verb-corpus]}" 'BEGIN { printf "%.3f", t }') | $(mib "${R[$verb-corpus]}") |"
done
echo
if [[ -n "$crudini" ]]; then
  echo "- get: $(ratio "${T[get-corvane]}" "${T[get-crudini]}")× crudini's time (target ≤ 0.2×)"
  echo "- set: $(ratio "${T[set-corvane]}" "${T[set-crudini]}")× crudini's time (target ≤ 0.2×);" \
       "the durable-replace floor alone: $(ratio "${T[floor-durable]}" "${T[set-crudini]}")×"
else
  echo "- crudini not installed: the 1 KB comparison was skipped"
fi
echo "- 8 MB set / get: $(ratio "${T[set-corpus]}" "${T[get-corpus]}")× time (target ≤ 1.3×)," \
     "$(ratio "${R[set-corpus]}" "${R[get-corpus]}")× peak RSS (target ≤ 1.5×)"
