#!/usr/bin/env bash
# Instruction-count check of the hot paths. Runs kov_hot_path_benchmark --count=N under callgrind
# (instruction counts are stable on a loaded machine, wall time is not), takes the instructions per
# operation of every library path and of its reference (hand-written code or spdlog), reports each
# ratio against the path's goal (met or MISSED), and fails when a ratio exceeds the path's CI limit
# (the goal, or for a goal already missed the measured ratio plus a margin) or a library path
# allocates on the heap in steady state.
#
#   scripts/ci/perf-check.sh [path/to/kov_hot_path_benchmark]    (default: build/default/benchmarks/...)
#   PERF_CHECK_COUNT=N  operations per path (default 2000)
set -euo pipefail
cd "$(dirname "$0")/../.."

bench="${1:-build/default/benchmarks/kov_hot_path_benchmark}"
count="${PERF_CHECK_COUNT:-2000}"
if [[ ! -x "$bench" ]]; then
  echo "perf-check: $bench not built (configure with -DKOV_BUILD_BENCHMARKS=ON)" >&2
  exit 1
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$work/callgrind.out" \
  "$bench" --count="$count" >"$work/paths.txt" 2>"$work/valgrind.log" || {
  cat "$work/valgrind.log" >&2
  exit 1
}

# Instructions of every dump, by its label ("<index>-library" or "<index>-reference").
declare -A instructions=()
for dump in "$work"/callgrind.out.*; do
  label="$(sed -n 's/^desc: Trigger: Client Request: //p' "$dump")"
  total="$(sed -n 's/^totals: //p' "$dump")"
  [[ -n "$label" && -n "$total" ]] && instructions["$label"]="$total"
done

failed=0
printf '| Path | Reference | Library instr/op | Reference instr/op | Ratio | Goal | CI limit | Library allocs/op |\n'
printf '|---|---|---|---|---|---|---|---|\n'
while read -r _ index goal limit libraryAllocations _ name; do
  library="${instructions["$index-library"]:-}"
  reference="${instructions["$index-reference"]:-}"
  if [[ -z "$library" || -z "$reference" ]]; then
    echo "perf-check: no callgrind counts for path $index ($name)" >&2
    failed=1
    continue
  fi
  verdict="$(awk -v l="$library" -v r="$reference" -v n="$count" -v g="$goal" -v c="$limit" \
    -v a="$libraryAllocations" -v name="$name" '
    BEGIN {
      ratio = l / r
      met = ratio <= g ? "met" : "MISSED"
      printf "| %s | %.0f | %.0f | %.2fx | %.1fx %s | %.2fx | %.2f |\n", name, l / n, r / n, ratio, g, met, c, a
      exit (ratio > c || a > 0) ? 1 : 0
    }')" && ok=1 || ok=0
  printf '%s\n' "$verdict"
  if ((ok == 0)); then
    echo "perf-check: FAILED: $name (ratio above the CI limit ${limit}x or heap allocations in steady state)" >&2
    failed=1
  fi
done <"$work/paths.txt"

if ((failed)); then
  exit 1
fi
echo "perf-check: every path within its CI limit (a MISSED goal is reported above)"
