#!/usr/bin/env bash
# Counts the non-blank, non-comment lines of the product and of its tests, as tracked by git:
#   product  C++ of the library, the transport, the tools and the Python module's bindings, and the
#            Python module's own .py files
#   tests    C++ under tests/, and the test scripts there (.sh, .py, .jq)
# Benchmarks, fuzz targets and examples are counted in neither.
set -euo pipefail
cd "$(dirname "$0")/.."

count() { # count <comment regex> <paths...>: non-blank lines that are not only a comment
  local comment="$1"
  shift
  (("$#" == 0)) && { echo 0; return; }
  cat "$@" | grep -cvE "^\s*(${comment}.*)?$" || true
}
files() { # files <extension regex> <folders...>: tracked files of those folders with those extensions
  local extensions="$1"
  shift
  git ls-files -- "$@" | grep -E "\.(${extensions})$" || true
}

mapfile -t productCpp < <(files 'cpp|hpp|h' common networking platform serialization src tools transport python)
mapfile -t productPy < <(files 'py|pyi' python)
mapfile -t testCpp < <(files 'cpp|hpp|h' tests)
mapfile -t testScripts < <(files 'sh|py|jq' tests)

product=$(($(count '//' "${productCpp[@]}") + $(count '#' "${productPy[@]}")))
tests=$(count '//' "${testCpp[@]}")
scripts=$(count '#' "${testScripts[@]}")
printf 'product C++ and Python  %6d\n' "$product"
printf 'test C++                %6d\n' "$tests"
printf 'test scripts            %6d\n' "$scripts"
awk -v p="$product" -v t="$((tests + scripts))" 'BEGIN { printf "tests + scripts / product: %.1f%%\n", 100 * t / p }'
