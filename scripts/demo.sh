#!/usr/bin/env bash
# Builds veskctl and runs its demo against the built-in simulated sensor fleet.
# Extra arguments go to `veskctl demo` (e.g. --sensors 5 --json).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target veskctl
exec build/default/tools/veskctl/veskctl demo "$@"
