#!/usr/bin/env bash
# vesk-sensord and veskctl as two processes on the loopback of a network namespace of their own, each
# on its own 127.x address: discovery, every getter and setter (the mode kept by the daemon between
# veskctl runs), events, the daemon stopped (SIGTERM: StopOffer), restarted, and crashed and restarted at once
# (reboot seen), all beside another SOME/IP program that shares the SD port (sd_neighbour.py). The offer
# TTL running out after a crash is checked across hosts in someip_multihost.sh. veskctl monitor listens
# throughout: it must show the offers, the StopOffers and the offers of the restarted daemon (reboot
# flag), and end on SIGINT with status 0.
# tshark records the loopback meanwhile and someip_capture_check.sh checks that capture.
# Usage: someip_loopback.sh <vesk-sensord> <veskctl>. Needs root; exits 77 (skipped) without it.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/netns_helpers.sh"

take_programs "$@"
command -v tshark >/dev/null || skip "tshark is not installed (scripts/install-deps.sh installs it)"

readonly SENSOR=127.0.0.2 WATCHER=127.0.0.3 CALLER=127.0.0.4 MONITOR=127.0.0.5 NEIGHBOUR=127.0.0.9
readonly PAIRS=6 TTL=2
# Only lo, up, and no routes: as on a user's machine, nothing else is needed, since every SOME/IP
# participant sends its SD multicast out of the interface of its own address.
ns="kovtest-$$"
test_namespaces=("$ns")
clean_up_on_exit
ip netns add "$ns" || skip "cannot create network namespace $ns"
ip -n "$ns" link set lo up

# Another SOME/IP program runs on the host before ours start, holding the SD port on the wildcard
# address and on its own address with address reuse, as widely used stacks do. Ours must start beside
# it, and unicast SD meant for ours must never reach it.
nsx python3 "$here/sd_neighbour.py" "$NEIGHBOUR" 224.224.224.245 30490 "$work/neighbour.out" \
  2> "$work/neighbour.err" &
neighbour_pid=$!
wait_for_text "$work/neighbour.out" "ready" 5000 || fail "the SD neighbour did not start within 5 s"

# veskctl from address $1 on the namespace's loopback; JSON lines, bounded in time. No --sensors, as a
# user runs it: with --sensor it goes on once that sensor is complete, otherwise once discovery settles.
ctl() {
  local address=$1
  shift
  nsx timeout 20 "$veskctl" --transport someip --unicast "$address" --json "$@"
}

# `veskctl ARGS...` from the caller's address, its output in $work/$1.out and $work/$1.err.
call() {
  ctl "$CALLER" "${@:2}" > "$work/$1.out" 2> "$work/$1.err" || fail "veskctl ${*:2} failed"
}

# vesk-sensord, its output in a file of its own per start.
start_daemon() { start_sensord "$ns" "$SENSOR" "sensord-$(now_us).out" --sensors 2 --offer-ttl "$TTL"; }

# Runs `get ARGS...` (the last one an operation name) until the modes it reads are the JSON array $1,
# for at most 5 s. A started or commanded sensor passes through INITIALIZING first.
modes_are() { call get_mode get "${@:2}" && [[ "$(jq -s -c 'map(.value.mode)' "$work/get_mode.out")" == "$1" ]]; }
wait_modes() { retry_for 5000 modes_are "$@" || fail "get ${*:2} did not read the modes $1"; }

# True once the watch printed scan datum events of elevation -1 from both sensors after $set_at.
datum_from_both() {
  [[ $(lines_since "$work/events.out" '"event":"scanDatum","value":\{"elevation":-1\}' "$set_at" |
    grep -oE '"sensor":1[67],' | sort -u | wc -l) == 2 ]]
}

ip netns exec "$ns" tshark -i lo -w "$work/loopback.pcapng" > "$work/tshark.out" 2>&1 &
tshark_pid=$!
wait_for_text "$work/tshark.out" "Capture started." 10000 || fail "tshark did not start capturing within 10 s"
sleep 0.3 # margin: the capture check expects every program's first SD message in the capture

step "veskctl monitor"
# Not through nsx, so that $! is veskctl itself and SIGINT reaches it.
ip netns exec "$ns" "$veskctl" monitor --unicast "$MONITOR" --json --seconds 100 > "$work/monitor.out" 2> "$work/monitor.err" &
monitor_pid=$!

step "discovery"
start_daemon
call list list
# Each sensor with all services at an endpoint on the daemon's address (the endpoint itself is
# checked against the offers in someip_multihost.sh).
jq -s -e --arg sensor "$SENSOR" 'map(select(.operation == "services" and .ok and .value.service0x0002
  and .value.service0x0003 and .value.service0x0004 and (.value.endpoint | startswith($sensor + ":")))
  | .sensorHex) == ["0x0010","0x0011"]' "$work/list.out" > /dev/null ||
  fail "list did not show sensors 0x0010 and 0x0011 with all services on $SENSOR"

step "every setter in one run, every getter in the next; a watch runs"
wait_modes '["STANDBY","STANDBY"]' mode
# `veskctl -v watch` for 15 s, its output timestamped.
ctl "$WATCHER" -v watch --seconds 15 2> "$work/events.err" | stamp_lines > "$work/events.out" &
watch_pid=$!
wait_reported "$work/events.out" 0 true "$PAIRS" 5000 > /dev/null || fail "watch did not see every service available"
call set set --sensor 0x11 --mode scanning --frame-rate 20 --interlace 4 --control-line 1 --fill on \
  --datum -4.5 --pattern point:10:-5:3,snap,minlines:4 --destination 127.0.0.9:40000
# Every getter answers (veskctl exits 1 on a failed one), each call a request and response on the wire.
call get_after_set get all
# The mode command runs through INITIALIZING to SCANNING in the daemon; a later run reads the result.
wait_modes '["SCANNING"]' --sensor 0x11 mode

# Up to here every program was running: unicast SD went to each one's own socket, none to the
# neighbour's wildcard one. (Once the daemon is stopped, the kernel hands what is still sent to its
# address to the only socket left on the port, the neighbour's.)
step "another SOME/IP program beside ours"
grep -qx "224.224.224.245" "$work/neighbour.out" || fail "the SD neighbour heard no SD multicast"
leaked="$(grep -xF -e "$SENSOR" -e "$WATCHER" -e "$CALLER" "$work/neighbour.out" | sort -u | paste -sd ' ')" || true
[[ -z "$leaked" ]] || fail "unicast SD meant for $leaked reached the SD neighbour"

step "SIGTERM: StopOffer makes the sensors unavailable at once"
term_at=$(now_us)
stop_sensord "$sensord_pid"
gone_at=$(wait_reported "$work/events.out" "$term_at" false "$PAIRS" 3000) ||
  fail "watch did not report every service unavailable within 3 s of SIGTERM"
term_ms=$(elapsed_ms "$term_at" "$gone_at")
((gone_at - term_at < 1000000)) || fail "unavailable only ${term_ms} ms after SIGTERM: no StopOffer seen (TTL ${TTL} s)"

step "restart: available again"
restart_at=$(now_us)
start_daemon
wait_reported "$work/events.out" "$restart_at" true "$PAIRS" 5000 > /dev/null ||
  fail "watch did not see every service available again after the restart"

step "crash and restart within the TTL: the reboot is detected"
reboots_before=$(grep -c "SOME/IP-SD peer $SENSOR rebooted" "$work/events.err" || true)
crash_at=$(now_us)
kill -KILL "$sensord_pid"
wait_exit "$sensord_pid" 2000 || true
start_daemon
gone_at=$(wait_reported "$work/events.out" "$crash_at" false "$PAIRS" 3000 first) ||
  fail "the restarted daemon's reboot was not reported (services still available)"
reboot_ms=$(elapsed_ms "$crash_at" "$gone_at")
((gone_at - crash_at < 1500000)) || fail "unavailable only ${reboot_ms} ms after kill and restart: the TTL ran out, the reboot went unseen"
back_at=$(wait_reported "$work/events.out" "$gone_at" true "$PAIRS" 5000) ||
  fail "watch did not see every service available again after the reboot"
set_at=$(now_us)
call set_reboot set --datum -1
retry_for 3000 datum_from_both || fail "no scan datum event -1 from both sensors after the reboot"
# Multicast and unicast SD both show the restart; it is still one reboot.
reboots_final=$(grep -c "SOME/IP-SD peer $SENSOR rebooted" "$work/events.err" || true)
((reboots_final == reboots_before + 1)) ||
  fail "one restart was logged as $((reboots_final - reboots_before)) reboots, expected one 'SOME/IP-SD peer $SENSOR rebooted'"
stop_sensord "$sensord_pid"
wait_exit "$watch_pid" 20000 || fail "veskctl watch did not end"

step "veskctl monitor: the daemon's offers, StopOffers, offers again with the reboot flag; SIGINT ends it"
kill -INT "$monitor_pid"
wait_exit "$monitor_pid" 3000 && [[ "$exit_status" == 0 ]] || fail "veskctl monitor did not end with 0 on SIGINT ($exit_status)"
! grep -q '"type":"malformed"' "$work/monitor.out" || fail "the monitor called a datagram malformed"
# Of the daemon's entries for instance 0x0010: the services offered before the first StopOffer, those
# stopped with TTL 0 and those offered with the reboot flag after it (the endpoints of the offers are
# checked in the capture).
got="$(jq -s -c --arg sender "$SENSOR:30490" 'def services: map(.service) | unique;
  map(select(.sender == $sender and .instance == "0x0010")) | (map(.type) | index("StopOfferService")) as $stop
  | [(.[:$stop] | map(select(.type == "OfferService")) | services),
     (map(select(.type == "StopOfferService" and .ttl == 0)) | services),
     (.[$stop:] | map(select(.type == "OfferService" and .reboot)) | services)]' "$work/monitor.out")"
three='["0x0002","0x0003","0x0004"]'
[[ "$got" == "[$three,$three,$three]" ]] || fail "monitor output (offered, stopped, offered again): $got"

kill -TERM "$neighbour_pid"
wait_exit "$neighbour_pid" 5000 || fail "the SD neighbour did not end"

step "wire format, decoded by tshark"
kill -INT "$tshark_pid"
wait_exit "$tshark_pid" 10000 || fail "tshark did not stop"
bash "$here/someip_capture_check.sh" "$work/loopback.pcapng" "$SENSOR" 0x0010,0x0011 "$TTL" ||
  fail "the capture does not show the SOME/IP traffic that was meant"
echo "PASS: loopback (SIGTERM ${term_ms} ms, reboot ${reboot_ms} ms to unavailable)"
