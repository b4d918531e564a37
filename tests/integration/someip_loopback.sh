#!/usr/bin/env bash
# vesk-sensord and veskctl as two processes on the loopback of a network namespace of their own, each
# on its own 127.x address: discovery, every getter and setter (state kept by the daemon between veskctl
# runs), events, the daemon stopped (SIGTERM: StopOffer), killed (SIGKILL: gone after the offer TTL),
# restarted and crashed-and-restarted (reboot seen), all beside another SOME/IP program that shares the
# SD port (sd_neighbour.py). tshark records the loopback meanwhile and
# someip_capture_check.sh checks that capture.
# Usage: someip_loopback.sh <vesk-sensord> <veskctl>. Needs root; exits 77 (skipped) without it.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/netns_helpers.sh"

take_programs "$@"

readonly SENSOR=127.0.0.2 WATCHER=127.0.0.3 CALLER=127.0.0.4
readonly SENSORS=2 PAIRS=6 TTL=2
generation=0
# Only lo, up, and no routes: as on a user's machine, nothing else is needed, since every SOME/IP
# participant sends its SD multicast out of the interface of its own address.
loopback_netns "kovtest-$$"

# Another SOME/IP program runs on the host before ours start, holding the SD port on the wildcard
# address and on its own address with address reuse, as widely used stacks do. Ours must start beside
# it, and unicast SD meant for ours must never reach it.
readonly NEIGHBOUR=127.0.0.9
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

start_daemon() {
  generation=$((generation + 1))
  start_sensord "$ns" "$SENSOR" "sensord$generation.out" --sensors "$SENSORS" --offer-ttl "$TTL"
}

# `veskctl -v watch` for $2 seconds into $work/$1.out (timestamped) and $work/$1.err.
start_watch() {
  ctl "$WATCHER" -v watch --seconds "$2" 2> "$work/$1.err" | stamp_lines > "$work/$1.out" &
  watch_pid=$!
}

# Field $3 (a jq path) of operation $2 of sensor $1 in the JSON lines of file $4.
value_of() { jq -r --argjson s "$1" --arg op "$2" "select(.sensor == \$s and .operation == \$op) | .value$3" "$4"; }

expect_value() {
  local got
  got="$(value_of "$1" "$2" "$3" "$4")"
  [[ "$got" == "$5" ]] || fail "sensor $1 $2$3: got '$got', expected '$5'"
}

# Runs `get ARGS...` (the last one an operation name) up to 25 times, 0.2 s apart, until the modes it
# reads are the JSON array $1. A started or commanded sensor passes through INITIALIZING first.
wait_modes() {
  local want=$1 _
  shift
  for _ in $(seq 1 25); do
    ctl "$CALLER" get "$@" > "$work/get_mode.out" 2> "$work/get_mode.err" || fail "veskctl get $* failed"
    [[ "$(jq -s -c 'map(.value.mode)' "$work/get_mode.out")" == "$want" ]] && return 0
    sleep 0.2
  done
  fail "get $* did not read the modes $want"
}

# Scan datum events of elevation $2 from both sensors in the watch output $1, stamped after $3.
expect_datum_events() {
  local sensor
  for sensor in 16 17; do
    wait_for_lines "$1" "\"sensor\":$sensor.*\"event\":\"scanDatum\",\"value\":\\{\"elevation\":$2\\}" 1 "$3" 3000 \
      > /dev/null || fail "no scan datum event $2 of sensor $sensor in $(basename "$1")"
  done
}

if command -v tshark >/dev/null; then
  ip netns exec "$ns" tshark -i lo -w "$work/loopback.pcapng" > "$work/tshark.out" 2>&1 &
  tshark_pid=$!
  wait_for_text "$work/tshark.out" "Capture started." 10000 || fail "tshark did not start capturing within 10 s"
  sleep 0.3 # margin: the capture check expects every program's first SD message in the capture
else
  tshark_pid=""
  echo "tshark is not installed: the run is not captured and the wire format is not checked"
fi

step "discovery"
start_daemon
ctl "$CALLER" list > "$work/list.out" 2> "$work/list.err" || fail "veskctl list failed"
[[ "$(jq -s -c 'map(select(.operation == "services" and .ok and .value.service0x0002 and .value.service0x0003
        and .value.service0x0004) | .sensor)' "$work/list.out")" == "[16,17]" ]] ||
  fail "list did not show sensors 0x0010 and 0x0011 with all services"
# The endpoint each sensor offered, as list prints it; the capture check finds it in the offers.
listed="$(jq -r -s --arg sensor "$SENSOR" 'map(select(.operation == "services") | .value.endpoint as $e
  | if ($e | split(":")[0]) == $sensor then "\(.sensorHex)=\($e | split(":")[1])" else "bad" end) | join(",")' "$work/list.out")"
[[ "$listed" =~ ^0x0010=[0-9]+,0x0011=[0-9]+$ ]] || fail "list did not show each sensor's endpoint on $SENSOR: $listed"

step "every getter, defaults"
wait_modes '["STANDBY","STANDBY"]' mode
ctl "$CALLER" get all > "$work/get_defaults.out" 2> "$work/get_defaults.err" || fail "veskctl get all failed"
(($(jq -s 'map(select(.ok)) | length' "$work/get_defaults.out") == 14)) || fail "get all: not 7 successful getters per sensor"
for sensor in 16 17; do
  expect_value "$sensor" getSystemModeStatus .mode "$work/get_defaults.out" STANDBY
  expect_value "$sensor" getDesiredScanSettings '|"\(.frameRate) \(.interlace) \(.controlLine) \(.fill)"' \
    "$work/get_defaults.out" "10 NONE LINE_0 FILL_OFF"
  expect_value "$sensor" getScanDatum .elevation "$work/get_defaults.out" 0
  expect_value "$sensor" getScanPatternCommandStatus .status "$work/get_defaults.out" ACCEPTED
  expect_value "$sensor" getSensorSoftwareVersion .text4 "$work/get_defaults.out" "serial VSK-00$(printf %x "$sensor") · München"
done
expect_value 17 getDatapathDestinationInfo '|"\(.ipAddress):\(.port)"' "$work/get_defaults.out" "239.255.0.1:51017"

step "every setter in one run, read back in later runs; events while a watch runs"
start_watch events 6
wait_reported "$work/events.out" 0 true "$PAIRS" 5000 > /dev/null || fail "watch did not see every service available"
set_at=$(now_us)
ctl "$CALLER" set --sensor 0x11 --mode scanning --frame-rate 20 --interlace 4 --control-line 1 --fill on \
  --datum -4.5 --pattern point:10:-5:3,snap,minlines:4 --destination 127.0.0.9:40000 \
  > "$work/set.out" 2> "$work/set.err" || fail "veskctl set failed"
(($(jq -s 'map(select(.ok and .sensor == 17)) | length' "$work/set.out") == 5)) || fail "set: not 5 successful setters"
ctl "$CALLER" get all > "$work/get_after_set.out" 2> "$work/get_after_set.err" || fail "veskctl get all after set failed"
expect_value 17 getDesiredScanSettings '|"\(.frameRate) \(.interlace) \(.controlLine) \(.fill)"' \
  "$work/get_after_set.out" "20 INTERLACE_4 LINE_1 FILL_ON"
expect_value 17 getScanDatum .elevation "$work/get_after_set.out" -4.5
expect_value 17 getDatapathDestinationInfo '|"\(.ipAddress):\(.port)"' "$work/get_after_set.out" "127.0.0.9:40000"
expect_value 17 getScanPatternCommandStatus .status "$work/get_after_set.out" ACCEPTED
# The other sensor kept its own state.
expect_value 16 getDesiredScanSettings .frameRate "$work/get_after_set.out" 10
expect_value 16 getScanDatum .elevation "$work/get_after_set.out" 0
expect_value 16 getDatapathDestinationInfo .port "$work/get_after_set.out" 51016
# The mode command runs through INITIALIZING to SCANNING in the daemon; a later run reads the result.
wait_modes '["SCANNING"]' --sensor 0x11 mode
for event in '"event":"scanDatum","value":\{"elevation":-4.5\}' '"event":"systemModeStatus","value":\{"mode":"SCANNING"\}' \
  '"event":"achievedScanSettings","value":\{"value1":20,' '"event":"sensorHealthStatus","value":\{"mode":"SCANNING".*"flag1":true'; do
  wait_for_lines "$work/events.out" "\"sensor\":17.*$event" 1 "$set_at" 3000 > /dev/null ||
    fail "watch did not print the event $event of sensor 0x0011 after the set"
done
lines_since "$work/events.out" '"sensor":16.*"event":"scanDatum"' "$set_at" | grep -q . &&
  fail "sensor 0x0010 sent a scan datum event although only 0x0011 was set"

# Up to here every program was running: unicast SD went to each one's own socket, none to the
# neighbour's wildcard one. (Once the daemon is stopped, the kernel hands what is still sent to its
# address to the only socket left on the port, the neighbour's.)
step "another SOME/IP program beside ours"
grep -qx "224.224.224.245" "$work/neighbour.out" || fail "the SD neighbour heard no SD multicast"
for own in "$SENSOR" "$WATCHER" "$CALLER"; do
  ! grep -qx "$own" "$work/neighbour.out" || fail "unicast SD meant for $own reached the SD neighbour"
done
echo "the neighbour heard $(grep -cx 224.224.224.245 "$work/neighbour.out") SD multicast datagrams and no unicast SD of ours"

step "SIGTERM: StopOffer makes the sensors unavailable at once"
term_at=$(now_us)
stop_sensord "$sensord_pid"
gone_at=$(wait_reported "$work/events.out" "$term_at" false "$PAIRS" 3000) ||
  fail "watch did not report every service unavailable within 3 s of SIGTERM"
grep -q "SIGTERM, withdrawing offers" "$work/sensord$generation.out" || fail "vesk-sensord did not say it withdrew its offers"
term_ms=$(elapsed_ms "$term_at" "$gone_at")
echo "unavailable ${term_ms} ms after SIGTERM"
((gone_at - term_at < 1000000)) || fail "unavailable only ${term_ms} ms after SIGTERM: no StopOffer seen (TTL ${TTL} s)"
wait_exit "$watch_pid" 15000 || fail "veskctl watch did not end"

step "SIGKILL: no StopOffer, unavailable after the offer TTL"
start_daemon
start_watch crashes 12
wait_reported "$work/crashes.out" 0 true "$PAIRS" 5000 > /dev/null || fail "watch did not see every service available"
kill_at=$(now_us)
kill -KILL "$sensord_pid"
wait_exit "$sensord_pid" 2000 || true
gone_at=$(wait_reported "$work/crashes.out" "$kill_at" false "$PAIRS" $((TTL * 1000 + 1500))) ||
  fail "watch did not report every service unavailable within the TTL (${TTL} s) + 1.5 s of SIGKILL"
kill_ms=$(elapsed_ms "$kill_at" "$gone_at")
echo "unavailable ${kill_ms} ms after SIGKILL (offer TTL ${TTL} s, offers every 1 s)"
# The last offer went out at most one cyclic delay (1 s) before the kill, so the TTL runs out 1 to 2 s later.
((gone_at - kill_at >= 800000)) || fail "unavailable ${kill_ms} ms after SIGKILL: before the TTL could have run out"

step "restart: available again, events resume"
restart_at=$(now_us)
start_daemon
back_at=$(wait_reported "$work/crashes.out" "$restart_at" true "$PAIRS" 5000) ||
  fail "watch did not see every service available again after the restart"
echo "available again $(elapsed_ms "$restart_at" "$back_at") ms after the restart"
set_at=$(now_us)
ctl "$CALLER" set --datum 2.5 > "$work/set_restart.out" 2> "$work/set_restart.err" || fail "veskctl set --datum failed after the restart"
expect_datum_events "$work/crashes.out" 2.5 "$set_at"

step "crash and restart within the TTL: the reboot is detected"
reboots_before=$(grep -c "SOME/IP-SD peer $SENSOR rebooted" "$work/crashes.err" || true)
crash_at=$(now_us)
kill -KILL "$sensord_pid"
wait_exit "$sensord_pid" 2000 || true
start_daemon
gone_at=$(wait_reported "$work/crashes.out" "$crash_at" false "$PAIRS" 3000 first) ||
  fail "the restarted daemon's reboot was not reported (services still available)"
reboot_ms=$(elapsed_ms "$crash_at" "$gone_at")
echo "unavailable ${reboot_ms} ms after kill and restart (reboot detection)"
((gone_at - crash_at < 1500000)) || fail "unavailable only ${reboot_ms} ms after kill and restart: the TTL ran out, the reboot went unseen"
reboots_after=$(grep -c "SOME/IP-SD peer $SENSOR rebooted" "$work/crashes.err" || true)
((reboots_after > reboots_before)) || fail "veskctl did not log 'SOME/IP-SD peer $SENSOR rebooted'"
back_at=$(wait_reported "$work/crashes.out" "$gone_at" true "$PAIRS" 5000) ||
  fail "watch did not see every service available again after the reboot"
set_at=$(now_us)
ctl "$CALLER" set --datum -1 > "$work/set_reboot.out" 2> "$work/set_reboot.err" || fail "veskctl set --datum failed after the reboot"
expect_datum_events "$work/crashes.out" -1 "$set_at"
# Multicast and unicast SD both show the restart; it is still one reboot.
reboots_final=$(grep -c "SOME/IP-SD peer $SENSOR rebooted" "$work/crashes.err" || true)
((reboots_final == reboots_before + 1)) ||
  fail "one restart was logged as $((reboots_final - reboots_before)) reboots"
stop_sensord "$sensord_pid"
wait_exit "$watch_pid" 15000 || fail "veskctl watch did not end"

kill -TERM "$neighbour_pid"
wait_exit "$neighbour_pid" 5000 || fail "the SD neighbour did not end"

if [[ -z "$tshark_pid" ]]; then
  skip "tshark is not installed: behaviour checked, wire format not (scripts/install-deps.sh installs tshark)"
fi
step "wire format, decoded by tshark"
kill -INT "$tshark_pid"
wait_exit "$tshark_pid" 10000 || fail "tshark did not stop"
bash "$here/someip_capture_check.sh" "$work/loopback.pcapng" "$SENSOR" 0x0010,0x0011 "$TTL" "$listed" ||
  fail "the capture does not show the SOME/IP traffic that was meant"
echo "PASS: loopback (SIGTERM ${term_ms} ms, SIGKILL ${kill_ms} ms, reboot ${reboot_ms} ms to unavailable)"
