#!/usr/bin/env bash
# Decodes a capture of vesk-sensord and veskctl with tshark, an independent SOME/IP decoder, and checks
# that every datagram is SOME/IP or SOME/IP-SD that tshark accepts without an expert warning or error,
# and that ids, types, return codes, SD entries and endpoints are the ones the programs meant to
# send (someip_capture_checks.jq).
# Usage: someip_capture_check.sh <capture> <sensor address> <instance ids, comma separated> <offer TTL>
set -euo pipefail
export LC_ALL=C

capture=$1 sensor=$2 instances=$3 ttl=$4
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
jq -r --arg sensor "$sensor" --arg instances "$instances" --argjson ttl "$ttl" \
  -f "$here/someip_capture_checks.jq" "$scratch/capture.json" > "$scratch/verdict.txt"
if grep -q '^FAIL' "$scratch/verdict.txt"; then
  echo "capture check: $(grep -c '^FAIL' "$scratch/verdict.txt") problems (first 30):"
  grep '^FAIL' "$scratch/verdict.txt" | head -30
  status=1
fi

exit "$status"
