#!/usr/bin/env bash
# Runs the fault list of scripts/mutants.py against a private worktree of HEAD and reports which faults
# the tests catch. Arguments go to mutants.py: --only SUBSTRING, --list, --keep.
set -euo pipefail
cd "$(dirname "$0")/.."
exec python3 scripts/mutants.py "$@"
