#!/usr/bin/env bash
# Compares the symbols that the shared libraries export with the lists committed in abi/, so that a
# change of the binary interface is always a visible decision.
#   scripts/ci/symbols.sh [BUILD_DIR]           compare (BUILD_DIR defaults to build/default)
#   scripts/ci/symbols.sh [BUILD_DIR] --update  rewrite the lists after an intended change
# A list holds the demangled names of the strong symbols (code and data, nm types T D B R) that the
# library defines in its dynamic symbol table. Weak symbols (inline functions and template
# instantiations from the headers) are left out: every consumer can make its own copy of them.
set -euo pipefail
cd "$(dirname "$0")/../.."
build="${1:-build/default}"
mode="${2:-check}"

libraries=("$build/src/component/libkov_drivers_lidar_vesk_control_interface.so.0")
if [[ -e "$build/transport/libkov_someip_transport.so.0" ]]; then
  libraries+=("$build/transport/libkov_someip_transport.so.0")
fi

status=0
for library in "${libraries[@]}"; do
  list="abi/$(basename "$library").symbols"
  current="$(nm -D --defined-only "$library" | awk '$2 ~ /^[TDBR]$/ {print $3}' | c++filt | LC_ALL=C sort -u)"
  if [[ "$mode" == "--update" ]]; then
    printf '%s\n' "$current" >"$list"
    echo "wrote $list ($(wc -l <"$list") symbols)"
  elif ! diff -u "$list" <(printf '%s\n' "$current") >"$build/symbols.diff" 2>&1; then
    echo "exported symbols of $(basename "$library") differ from $list (- committed, + built):"
    cat "$build/symbols.diff"
    status=1
  else
    echo "$(basename "$library"): $(wc -l <"$list") exported symbols as committed in $list"
  fi
done
if ((status != 0)); then
  echo "if the change is intended: scripts/ci/symbols.sh $build --update, and commit abi/"
fi
exit "$status"
