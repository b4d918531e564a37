#!/usr/bin/env bash
# Builds the library, the tools and every test (GCC, warnings as errors) and runs the tests.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --workflow --preset default
