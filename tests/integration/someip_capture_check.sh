#!/usr/bin/env bash
# Decodes a capture of vesk-sensord and veskctl with tshark, an independent SOME/IP decoder, and checks
# that every datagram is SOME/IP or SOME/IP-SD that tshark accepts without an expert warning or error,
# and that ids, types, return codes, sizes, SD entries and endpoints are the ones the programs meant to
# send (someip_capture_checks.jq); and that the name tables of tools/wireshark give tshark the names
# of the services, of a method, of two events and of an eventgroup.
# Usage: someip_capture_check.sh <capture> <sensor address> <instance ids, comma separated> <offer TTL>
#        [<instance>=<port>,... as veskctl list printed the endpoints>]
set -euo pipefail
export LC_ALL=C

capture=$1 sensor=$2 instances=$3 ttl=$4 listed=${5:-}
here="$(cd "$(dirname "$0")" && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

# A warning or error in tshark's expert info, or a packet it calls malformed.
expert_filter='_ws.expert.severity >= "Warning" || _ws.malformed'

# The SD port is decoded as SOME/IP; so is every other UDP port in the capture (the daemon's and
# clients' data ports), so that nothing depends on tshark learning them from the SD endpoints.
decode=(-d "udp.port==30490,someip")
while read -r port; do
  decode+=(-d "udp.port==$port,someip")
done < <(tshark -r "$capture" -Y udp -T fields -e udp.srcport -e udp.dstport 2>/dev/null | tr '\t' '\n' | sort -un)

status=0
flagged="$(tshark -r "$capture" "${decode[@]}" -Y "$expert_filter" \
  -T fields -e frame.number -e _ws.expert.severity -e _ws.expert.message 2>/dev/null)"
if [[ -n "$flagged" ]]; then
  echo "FAIL: tshark reports expert warnings or errors (frame, severity, message):"
  echo "$flagged" | head -20
  status=1
fi

tshark -r "$capture" "${decode[@]}" -T json --no-duplicate-keys 2>/dev/null > "$scratch/capture.json"
jq -r --arg sensor "$sensor" --arg instances "$instances" --argjson ttl "$ttl" --arg listed "$listed" \
  -f "$here/someip_capture_checks.jq" "$scratch/capture.json" > "$scratch/verdict.txt"
if grep -q '^FAIL' "$scratch/verdict.txt"; then
  echo "capture check: $(grep -c '^FAIL' "$scratch/verdict.txt") problems (first 30):"
  grep '^FAIL' "$scratch/verdict.txt" | head -30
  status=1
fi
echo "capture: $(grep '^counted' "$scratch/verdict.txt")"

# The name tables of tools/wireshark, read by tshark from a configuration folder of its own: the
# services, a method (in a request), an event (in a notification) and an eventgroup must be named.
mkdir -p "$scratch/config/wireshark"
cp "$here"/../../tools/wireshark/SOMEIP_*_identifiers "$scratch/config/wireshark/"
names_of() {
  XDG_CONFIG_HOME="$scratch/config" tshark -r "$capture" "${decode[@]}" -Y "$1" -T fields -e "$2" 2>/dev/null |
    tr ',' '\n' | sort -u
}
while IFS='|' read -r filter field name; do
  names_of "$filter" "$field" | grep -qxF "$name" ||
    { echo "FAIL: no message matching '$filter' has $field \"$name\" from the tables" && status=1; }
done <<'EOF'
someipsd.entry.type == 0x01|someipsd.entry.servicename|SystemModeService
someipsd.entry.type == 0x01|someipsd.entry.servicename|ScanService
someipsd.entry.type == 0x01|someipsd.entry.servicename|SensorInfoService
someip.serviceid == 0x0003 && someip.methodid == 0x8001 && someip.messagetype == 0x00|someip.methodname|getDesiredScanSettings / event achievedScanSettings
someip.serviceid == 0x0003 && someip.methodid == 0x8002 && someip.messagetype == 0x02|someip.methodname|setDesiredScanSettings / event scanDatum
someip.serviceid == 0x0002 && someip.methodid == 0x8002 && someip.messagetype == 0x02|someip.methodname|setSystemMode / event sensorHealthStatus
someipsd.entry.type == 0x06|someipsd.entry.eventgroupname|ScanEvents
EOF
exit "$status"
