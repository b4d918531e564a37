#!/usr/bin/env bash
# The README's demo command with --json: stdout must hold only JSON lines (the build reports on stderr).
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/demo.sh --sensors 5 --json | python3 -c '
import json, sys
lines = [json.loads(line) for line in sys.stdin]
assert lines and lines[-1]["message"].startswith("demo finished: 5 sensors"), lines[-1]
print(f"demo --json: {len(lines)} JSON lines")'
