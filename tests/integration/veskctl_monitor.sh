#!/usr/bin/env bash
# veskctl monitor beside vesk-sensord on the loopback of a network namespace of its own: the daemon's
# offers of services 0x0002..0x0004 (instance 0x0010), its StopOffers on SIGTERM and, after a restart,
# its offers again with the reboot flag, in that order; monitor ends by itself after --seconds and
# cleanly on SIGINT, exit 0 both times.
# Usage: veskctl_monitor.sh <vesk-sensord> <veskctl>. Needs root; exits 77 (skipped) without it.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source "$here/netns_helpers.sh"

take_programs "$@"
command -v ss >/dev/null || skip "ss (iproute2) is not installed"

readonly SENSOR=127.0.0.2 MONITOR=127.0.0.3
monitor_pid=""
loopback_netns "kovmon-$$"

# True once the monitor's two SD sockets are bound (the group and its own address, port 30490).
monitor_listening() {
  local bound
  bound="$(nsx ss -Hlun 'sport = :30490' 2>/dev/null || true)"
  grep -q "224.224.224.245:30490" <<< "$bound" && grep -q "$MONITOR:30490" <<< "$bound"
}

# The services 0x0002..0x0004 of instance 0x0010 from the daemon, as "$1" entries (JSON lines) after
# the first $2 lines of the monitor's output; true once all three are there.
count_entries() {
  tail -n +"$(($2 + 1))" "$work/monitor.out" | jq -s -e --arg type "$1" --arg sender "$SENSOR:30490" '
    map(select(.type == $type and .sender == $sender and .instance == "0x0010"
               and (.service | IN("0x0002", "0x0003", "0x0004"))) | .service) | unique | length == 3' \
    > /dev/null 2>&1
}
wait_entries() { retry_for "$3" count_entries "$1" "$2"; }

step "--seconds ends the monitor by itself"
started=$(now_us)
nsx "$veskctl" monitor --unicast "$MONITOR" --seconds 0.5 > "$work/short.out" 2> "$work/short.err" ||
  fail "veskctl monitor --seconds 0.5 failed with $?"
took=$(elapsed_ms "$started" "$(now_us)")
(($(now_us) - started < 3000000)) || fail "veskctl monitor --seconds 0.5 took ${took} ms"
echo "ended after ${took} ms"

step "offers, StopOffers on SIGTERM, offers again after the restart"
ip netns exec "$ns" "$veskctl" monitor --unicast "$MONITOR" --json --seconds 60 \
  > "$work/monitor.out" 2> "$work/monitor.err" &
monitor_pid=$!
retry_for 5000 monitor_listening || fail "veskctl monitor did not bind its SD sockets within 5 s"
start_sensord "$ns" "$SENSOR" sensord1.out --sensors 1
wait_entries OfferService 0 5000 || fail "the monitor did not show the offers of all three services"
stop_sensord "$sensord_pid"
wait_entries StopOfferService 0 3000 || fail "the monitor did not show the StopOffers of all three services"
stopped_lines=$(wc -l < "$work/monitor.out")
start_sensord "$ns" "$SENSOR" sensord2.out --sensors 1
wait_entries OfferService "$stopped_lines" 5000 || fail "the monitor did not show the offers after the restart"

kill -INT "$monitor_pid"
wait_exit "$monitor_pid" 3000 || fail "veskctl monitor did not end within 3 s of SIGINT"
[[ "$exit_status" == 0 ]] || fail "veskctl monitor exited with $exit_status after SIGINT, expected 0"
stop_sensord "$sensord_pid"

step "order and fields of the entries"
# Each line a JSON object; the daemon's entries of the three services in order: offers, then the
# StopOffers (TTL 0; an offer already on its way may come between them), then offers again with the
# reboot flag (a new process).
jq -e . "$work/monitor.out" > /dev/null || fail "the monitor wrote lines that are not JSON"
verdict="$(jq -s -r --arg sender "$SENSOR:30490" '
  [.[] | select(.sender == $sender and .instance == "0x0010")] as $mine
  | ($mine | map(.type) | index("StopOfferService")) as $firstStop
  | ($mine | map(.type) | rindex("StopOfferService")) as $lastStop
  | def services: map(.service) | unique;
    if $firstStop == null then "no StopOfferService"
    elif ($mine[:$firstStop] | map(select(.type == "OfferService")) | services) != ["0x0002", "0x0003", "0x0004"]
    then "not every service offered before the StopOffers"
    elif ($mine[$firstStop:$lastStop + 1] | map(select(.ttl == 0)) | services) != ["0x0002", "0x0003", "0x0004"]
    then "not every service stopped with TTL 0"
    elif ($mine[$lastStop + 1:] | map(select(.type == "OfferService" and .reboot)) | services)
         != ["0x0002", "0x0003", "0x0004"]
    then "not every service offered again with the reboot flag"
    elif ($mine | map(select(.type == "OfferService")) | all(.ttl > 0 and (.endpoints | length) == 1
          and (.endpoints[0] | test("^127\\.0\\.0\\.2:[0-9]+/udp$"))) | not)
    then "an offer without TTL or one UDP endpoint on \($sender | split(":")[0])"
    else "ok \($mine | length) entries, StopOffers at \($firstStop)..\($lastStop)" end' "$work/monitor.out")"
[[ "$verdict" == ok* ]] || fail "monitor output: $verdict"
echo "$verdict"
! grep -q '"type":"malformed"' "$work/monitor.out" || fail "the monitor called a datagram of the daemon malformed"
echo "PASS: veskctl monitor"
