#!/usr/bin/env bash
# Runs a pytest file of kov_vesk inside a network namespace of its own (only lo, up, with the multicast
# route on lo), so that the SOME/IP service discovery multicast of the test never reaches the host.
# Usage: run_in_netns.sh <python> <test file>; PYTHONPATH and KOV_VESK_SENSORD are passed on.
# Needs root; exits 77 (skipped) without it, or fails when CI=true.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/../integration/netns_helpers.sh"

(($# == 2)) || fail "usage: $0 <python> <test file>"
python=$1
test_file="$(realpath "$2")"
require_netns

ns="kovpy-$$"
test_namespaces=("$ns")
clean_up_on_exit

ip netns add "$ns" || skip "cannot create network namespace $ns"
ip netns exec "$ns" ip link set lo up
ip netns exec "$ns" ip route add 224.0.0.0/4 dev lo
step "pytest $(basename "$test_file") in namespace $ns"
cd "$work"
ip netns exec "$ns" timeout 120 "$python" -m pytest -p kov_vesk.testing -p no:cacheprovider -q "$test_file"
