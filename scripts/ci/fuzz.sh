#!/usr/bin/env bash
# Runs every libFuzzer program of the clang build (fuzz/bin, built with KOV_BUILD_FUZZERS=ON) for a
# bounded time, each from a scratch copy of its committed seed corpus fuzz/corpus/<name>/, and prints
# the executions per program. Any crash, property violation, sanitizer report or leak fails the run;
# the input that caused it is kept under build/fuzz-artifacts/.
#
#   scripts/ci/fuzz.sh [build dir]        (default: build/clang)
#   FUZZ_SECONDS=N  time per program (default 15)
set -euo pipefail
cd "$(dirname "$0")/../.."

bin="${1:-build/clang}/fuzz/bin"
seconds="${FUZZ_SECONDS:-15}"
artifacts="build/fuzz-artifacts"
shopt -s nullglob
fuzzers=("$bin"/*)
if [[ ${#fuzzers[@]} -eq 0 ]]; then
  echo "fuzz: no fuzzers in $bin (configure with -DKOV_BUILD_FUZZERS=ON and clang)" >&2
  exit 1
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$artifacts"
for fuzzer in "${fuzzers[@]}"; do
  name="$(basename "$fuzzer")"
  mkdir -p "$work/$name"
  if [[ -d "fuzz/corpus/$name" ]]; then
    cp fuzz/corpus/"$name"/* "$work/$name/"
  fi
  if ! "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$artifacts/$name-" "$work/$name" >"$work/$name.log" 2>&1; then
    tail -n 60 "$work/$name.log" >&2
    echo "fuzz: $name failed; the input is under $artifacts/" >&2
    exit 1
  fi
  runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$name.log")"
  inputs="$(find "$work/$name" -type f | wc -l)"
  echo "fuzz: $name: ${runs:-?} executions in ${seconds} s, corpus grew to $inputs inputs"
done
