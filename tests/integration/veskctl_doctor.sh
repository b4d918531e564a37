#!/usr/bin/env bash
# veskctl doctor against networks broken on purpose, each in network namespaces of its own: a healthy
# loop-back with vesk-sensord, the SD port held without address reuse, multicast off on a veth and
# strict reverse-path filtering against SD from another subnet. Each scenario expects its verdict line
# and exit status: these show that the probes read the facts from a real network; the exact texts and
# fixes drawn from the facts are checked in tests/unit/tools/veskctl_doctor_test.cpp.
# Usage: veskctl_doctor.sh <vesk-sensord> <veskctl>. Needs root; exits 77 (skipped) without it.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/netns_helpers.sh"

take_programs "$@"
command -v python3 >/dev/null || skip "python3 is not installed"

prefix="kovdr-$$"
lo_ns="$prefix-lo"
client_ns="$prefix-c"
sensor_ns="$prefix-s"
readonly SENSOR=198.18.1.1 CLIENT=198.18.1.2

test_namespaces=("$lo_ns" "$client_ns" "$sensor_ns")
clean_up_on_exit

# doctor NAMESPACE OUTPUT ARGS...: runs veskctl doctor (bounded), its exit status in $doctor_status.
doctor_status=0
doctor() {
  local ns=$1 out=$2
  shift 2
  doctor_status=0
  ip netns exec "$ns" timeout 30 "$veskctl" doctor --log-level off "$@" > "$work/$out" 2>&1 || doctor_status=$?
}

# expect OUTPUT STATUS REGEX WHAT: the run ended with STATUS (a regex: "0|1") and printed a line
# matching REGEX.
expect() {
  [[ "$doctor_status" =~ ^($2)$ ]] || fail "$4: doctor exited $doctor_status, expected $2"
  grep -qE -- "$3" "$work/$1" || fail "$4: no line matching '$3'"
}

step "healthy: the loop-back with multicast, vesk-sensord playing two sensors"
ip netns add "$lo_ns" || skip "cannot create network namespace $lo_ns"
ip -n "$lo_ns" link set lo up multicast on
for address in $SENSOR $CLIENT; do
  ip -n "$lo_ns" addr add "$address/32" dev lo
done
ip -n "$lo_ns" route add 224.0.0.0/4 dev lo
start_sensord "$lo_ns" "$SENSOR" sensord-lo.out --sensors 2 --offer-ttl 2
# In JSON: one PASS object per check, without a fix, among them the getter of sensor 0x0011.
doctor "$lo_ns" healthy.json --json --unicast "$CLIENT" --seconds 1.5
[[ "$doctor_status" == 0 ]] && jq -s -e 'length > 5 and all(.[]; .status == "PASS" and (.found | type) == "string"
  and has("fix") == false) and any(.[]; .check == "getter 0x0011"
  and (.found | startswith("getSensorSoftwareVersion answered in")))' "$work/healthy.json" > /dev/null ||
  fail "healthy: doctor exited $doctor_status and printed $(cat "$work/healthy.json")"

step "the SD port held without address reuse"
ip netns exec "$lo_ns" python3 -c '
import socket, sys, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind((sys.argv[1], 30490))
print("ready", flush=True)
time.sleep(30)' "$CLIENT" > "$work/holder.out" 2>&1 &
holder_pid=$!
wait_for_text "$work/holder.out" ready 5000 || fail "the port holder did not start"
doctor "$lo_ns" held.out --unicast "$CLIENT" --seconds 0.3
expect held.out 1 "^FAIL  sd port +cannot bind $CLIENT:30490 .*python3 \(pid $holder_pid\) on $CLIENT:30490 holds the port without address reuse" "port held"
kill -TERM "$holder_pid"
wait_exit "$holder_pid" 5000 || true

stop_sensord "$sensord_pid"

step "a veth with multicast off"
ip netns add "$client_ns"
ip netns add "$sensor_ns"
ip -n "$client_ns" link add eth0 type veth peer name eth0 netns "$sensor_ns"
ip -n "$client_ns" addr add 198.18.2.1/24 dev eth0
ip -n "$sensor_ns" addr add 198.18.2.2/24 dev eth0
for ns in "$client_ns" "$sensor_ns"; do
  ip -n "$ns" link set lo up
  ip -n "$ns" link set eth0 up
  ip -n "$ns" route add 224.0.0.0/4 dev eth0
done
start_sensord "$sensor_ns" 198.18.2.2 sensord-veth.out --sensors 1 --offer-ttl 2
ip -n "$client_ns" link set dev eth0 multicast off
doctor "$client_ns" nomulticast.out --unicast 198.18.2.1 --seconds 1 --discovery-timeout 1
expect nomulticast.out "0|1" "^(WARN|FAIL)  address +198\.18\.2\.1 on eth0 \(UP\) without the MULTICAST flag" "multicast off"
ip -n "$client_ns" link set dev eth0 multicast on
stop_sensord "$sensord_pid"

step "strict rp_filter against SD from another subnet"
# The sensor moves to 198.18.3.0/24; the client's route to it leaves through another interface.
ip -n "$sensor_ns" addr flush dev eth0
ip -n "$sensor_ns" addr add 198.18.3.1/24 dev eth0
ip -n "$sensor_ns" route add 224.0.0.0/4 dev eth0
ip -n "$client_ns" link add side0 type veth peer name side1
ip -n "$client_ns" addr add 198.18.4.1/24 dev side0
ip -n "$client_ns" link set side0 up
ip -n "$client_ns" link set side1 up
ip -n "$client_ns" route add default dev side0
ip netns exec "$client_ns" sysctl -qw net.ipv4.conf.eth0.rp_filter=1
start_sensord "$sensor_ns" 198.18.3.1 sensord-subnet.out --sensors 1 --offer-ttl 2
doctor "$client_ns" rpfilter.out --unicast 198.18.2.1 --seconds 1.5 --discovery-timeout 1
expect rpfilter.out 1 "^(WARN|FAIL)  rp_filter +strict \(eth0 1, all [01]\)" "strict rp_filter"
stop_sensord "$sensord_pid"

echo "PASS: veskctl doctor (4 scenarios)"
