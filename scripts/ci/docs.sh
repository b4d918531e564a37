#!/usr/bin/env bash
# Builds the API reference with Doxygen (the `docs` target of the given build, build/default by
# default); any Doxygen warning fails it.
set -euo pipefail
cd "$(dirname "$0")/../.."
build="${1:-build/default}"
cmake --build "$build" --target docs
echo "API reference: $build/docs/html/index.html"
