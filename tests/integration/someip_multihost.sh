#!/usr/bin/env bash
# Three sensor hosts and one client host, each a network namespace with a veth link to a bridge that
# sits in a namespace of its own; addresses from 198.18.0.0/15, SOME/IP-SD over multicast across the
# bridge. Each sensor host runs vesk-sensord with three sensors (first ids 0x10, 0x20, 0x30); the client
# host's veskctl must discover all nine, lose one host's three when its link goes down (after the offer
# TTL) while the others stay, and see them again when the link comes back.
# Usage: someip_multihost.sh <vesk-sensord> <veskctl>. Needs root; exits 77 (skipped) without it.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/netns_helpers.sh"

take_programs "$@"

readonly TTL=2 PER_HOST=3
readonly CLIENT_ADDRESS=198.18.0.100
prefix="kovmh-$$"
bridge_ns="$prefix-br"
daemon_pids=()

test_namespaces=("$prefix-c" "$prefix-s1" "$prefix-s2" "$prefix-s3" "$bridge_ns")
clean_up_on_exit

# Host namespace $1 with address $2, linked to the bridge through port $3 of the bridge namespace.
# The veth pair is made inside the namespaces: nothing on the machine's own network changes.
add_host() {
  local ns=$1 address=$2 port=$3
  ip netns add "$ns"
  ip -n "$bridge_ns" link add "$port" type veth peer name eth0 netns "$ns"
  ip -n "$bridge_ns" link set "$port" master br0 up
  ip -n "$ns" link set lo up
  ip -n "$ns" addr add "$address/24" dev eth0
  ip -n "$ns" link set eth0 up
  ip -n "$ns" route add 224.0.0.0/4 dev eth0
}

step "four hosts on a bridge"
ip netns add "$bridge_ns" || skip "cannot create network namespace $bridge_ns"
# Without an IGMP querier on the segment, snooping could hold back the SD group: flood multicast.
ip -n "$bridge_ns" link add br0 type bridge mcast_snooping 0
ip -n "$bridge_ns" link set br0 up
add_host "$prefix-c" "$CLIENT_ADDRESS" c
for i in 1 2 3; do # host s$i at 198.18.0.1$i, its sensors from 0x${i}0
  add_host "$prefix-s$i" "198.18.0.1$i" "s$i"
  start_sensord "$prefix-s$i" "198.18.0.1$i" "sensord-s$i.out" --sensors "$PER_HOST" --first-id "0x${i}0" --offer-ttl "$TTL"
  daemon_pids+=("$sensord_pid")
done

ctl() {
  ip netns exec "$prefix-c" timeout 20 "$veskctl" --transport someip --unicast "$CLIENT_ADDRESS" \
    --sensors $((3 * PER_HOST)) --json "$@"
}

step "the client discovers all nine sensors across the bridge"
ctl list > "$work/list.out" 2> "$work/list.err" || fail "veskctl list did not find nine sensors"
# Each sensor with all three services, offered from its own host: 0x1N on s1 (198.18.0.11) and so on.
ids="$(jq -s -c 'map(select(.operation == "services" and .ok and .value.service0x0002 and .value.service0x0003
         and .value.service0x0004 and (.sensor as $s | .value.endpoint | startswith("198.18.0.\(10 + ($s / 16 | floor)):"))))
       | map(.sensor) | sort' "$work/list.out")"
[[ "$ids" == "[16,17,18,32,33,34,48,49,50]" ]] ||
  fail "list showed sensors $ids with all services on their hosts' addresses, expected 0x10-0x12, 0x20-0x22, 0x30-0x32"
ctl get --sensor 0x31 version > "$work/get.out" 2> "$work/get.err" || fail "veskctl get from host s3 failed"
[[ "$(jq -r 'select(.sensor == 49) | .value.text4' "$work/get.out")" == "serial VSK-0031 · München" ]] ||
  fail "get version of sensor 0x31 did not answer with its own serial"

step "host s2's link down: its sensors go unavailable after the TTL, the others stay"
ctl -v watch --seconds 12 2> "$work/watch.err" | stamp_lines > "$work/watch.out" &
watch_pid=$!
wait_reported "$work/watch.out" 0 true 27 6000 > /dev/null || fail "watch did not see all nine sensors available"
down_at=$(now_us)
ip -n "$bridge_ns" link set s2 down
# Prints the time by which s2's nine (sensor, service) pairs were reported available ($2 = true) or
# unavailable (false) since time $1; false until then.
s2_reported() {
  grep -E '"sensor":(32|33|34),' "$work/watch.out" > "$work/watch-s2.out" || true
  reported_all "$work/watch-s2.out" "$1" "$2" 9
}
gone_at=$(retry_for $((TTL * 1000 + 2000)) s2_reported "$down_at" false) ||
  fail "host s2's sensors were not reported unavailable within the TTL (${TTL} s) + 2 s of link down"
down_ms=$(elapsed_ms "$down_at" "$gone_at")
((gone_at - down_at >= 800000)) || fail "s2's sensors unavailable ${down_ms} ms after link down: before the TTL could have run out"

step "host s2's link up: its sensors come back"
up_at=$(now_us)
ip -n "$bridge_ns" link set s2 up
back_at=$(retry_for 5000 s2_reported "$up_at" true) || fail "host s2's sensors did not come back within 5 s of link up"
up_ms=$(elapsed_ms "$up_at" "$back_at")
others="$(lines_since "$work/watch.out" '"available":false' "$down_at" | grep -vE '"sensor":(32|33|34),' | awk -v end="$back_at" '$1 <= end')" || true
[[ -z "$others" ]] || fail "sensors of s1 or s3 were reported unavailable while s2's link was down: $others"

step "every daemon ends cleanly"
for pid in "${daemon_pids[@]}"; do
  stop_sensord "$pid"
done
wait_exit "$watch_pid" 15000 || fail "veskctl watch did not end"
echo "PASS: multihost (link down ${down_ms} ms to unavailable, link up ${up_ms} ms to available)"
