#!/usr/bin/env bash
# Builds veskctl and vesk-sensord and runs veskctl's demo against the built-in simulated sensor fleet.
# Extra arguments go to `veskctl demo` (e.g. --sensors 5 --json). Only the demo writes to stdout;
# the package installation and the build report on stderr, so that `--json` output can be piped.
set -euo pipefail
cd "$(dirname "$0")/.."
{
  scripts/install-deps.sh
  cmake --preset default >/dev/null
  cmake --build --preset default --target veskctl vesk-sensord
} 1>&2
exec build/default/tools/veskctl/veskctl demo "$@"
