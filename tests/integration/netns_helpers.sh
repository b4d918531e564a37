# Shared by the network tests (sourced): skipping, failing, namespaces, bounded waits and timestamped
# output. Times are wall-clock microseconds from $EPOCHREALTIME; every wait has a deadline.
export LC_ALL=C

readonly SKIP_EXIT_CODE=77

# In CI (CI=true), which has root and every tool, a test that cannot run is a failure.
skip() {
  [[ "${CI:-}" != "true" ]] || fail "cannot run in CI: $*"
  echo "SKIP: $*"
  exit "$SKIP_EXIT_CODE"
}

fail() {
  echo "FAIL: $*"
  exit 1
}

step() { echo "--- $*"; }

now_us() { echo "${EPOCHREALTIME/./}"; }

# Milliseconds from microsecond time $1 to $2, with one decimal.
elapsed_ms() { echo "$((($2 - $1) / 1000)).$(((($2 - $1) % 1000) / 100))"; }

# Skips the test unless this process may create network namespaces.
require_netns() {
  [[ $(id -u) -eq 0 ]] || skip "needs root to create network namespaces (CI runs as root)"
  command -v ip >/dev/null || skip "the ip command (iproute2) is not installed"
  local probe="kovprobe-$$"
  ip netns add "$probe" 2>/dev/null || skip "'ip netns add' is not possible here (no CAP_SYS_ADMIN or no netns support)"
  ip netns del "$probe"
}

# The two programs every network test takes: sets $sensord and $veskctl, then checks for root,
# `ip netns` and jq.
take_programs() {
  (($# == 2)) || fail "usage: $0 <vesk-sensord> <veskctl>"
  sensord="$(realpath "$1")"
  veskctl="$(realpath "$2")"
  require_netns
  command -v jq >/dev/null || skip "jq is not installed (scripts/install-deps.sh installs it)"
}

nsx() { ip netns exec "$ns" "$@"; }

# start_sensord NAMESPACE ADDRESS LOG [ARGS...]: vesk-sensord on ADDRESS in the background, its output
# in $work/LOG and its pid in $sensord_pid once it says it serves.
start_sensord() {
  local ns=$1 address=$2 log=$3
  shift 3
  # Not through a function, so that $! is the daemon itself (ip netns exec execs it).
  ip netns exec "$ns" "$sensord" --unicast "$address" "$@" > "$work/$log" 2>&1 &
  sensord_pid=$!
  wait_for_text "$work/$log" "on $address" 5000 || fail "vesk-sensord on $address did not start serving within 5 s"
}

# Ends vesk-sensord $1 with SIGTERM; it must exit with status 0 within 5 s.
stop_sensord() {
  kill -TERM "$1"
  wait_exit "$1" 5000 && [[ "$exit_status" == 0 ]] || fail "vesk-sensord did not end cleanly on SIGTERM ($exit_status)"
}

# Makes the test's work folder ($work) and, on exit, removes the namespaces listed in the array
# $test_namespaces (set it before creating any), shows the end of each work file when the test failed,
# and removes $work (kept when KOV_KEEP_WORK is set).
clean_up_on_exit() {
  work="$(mktemp -d)"
  trap '_clean_up $?' EXIT
  trap 'exit 1' INT TERM
}

_clean_up() {
  local status=$1 ns log
  for ns in "${test_namespaces[@]}"; do # what still runs there is killed first
    # shellcheck disable=SC2046 # one argument per pid
    kill -KILL $(ip netns pids "$ns" 2>/dev/null) 2>/dev/null || true
    ip netns del "$ns" 2>/dev/null || true
  done
  if ((status != 0 && status != SKIP_EXIT_CODE)); then
    for log in "$work"/*; do
      [[ -s "$log" && "$log" != *.pcapng ]] && { echo "=== $(basename "$log") (last 40 lines)"; tail -40 "$log"; }
    done
  fi
  [[ -n "${KOV_KEEP_WORK:-}" ]] && echo "work files kept in $work" || rm -rf "$work"
  exit "$status"
}

# Copies stdin to stdout, each line prefixed with the wall-clock time it was read (microseconds).
stamp_lines() {
  local line
  while IFS= read -r line; do
    printf '%s %s\n' "$(now_us)" "$line"
  done
}

# Lines of timestamped file $1 that match extended regex $2 and are stamped at or after time $3.
lines_since() { awk -v since="$3" -v pattern="$2" '$1 >= since && $0 ~ pattern' "$1" 2>/dev/null; }

# Runs "${@:2}" every 20 ms until it succeeds (its output shown), for at most $1 ms; false on timeout.
retry_for() {
  local deadline=$(($(now_us) + $1 * 1000))
  until "${@:2}"; do
    (($(now_us) < deadline)) || return 1
    sleep 0.02
  done
}

# Waits until file $1 (not timestamped) contains fixed text $2, for at most $3 ms.
wait_for_text() { retry_for "$3" grep -qsF -- "$2" "$1"; }

# Waits up to $2 ms for child process $1 to end and puts its exit status in $exit_status; when it
# hangs, kills it and returns false.
wait_exit() {
  exit_status=0
  if ! retry_for "$2" _ended "$1"; then
    kill -KILL "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
    exit_status="hung"
    return 1
  fi
  wait "$1" 2>/dev/null || exit_status=$? # no "Killed" job notice on stderr
}
_ended() { ! kill -0 "$1" 2>/dev/null; }

# Prints the time by which every one of $4 (sensor, service) pairs was reported available ($3 = true)
# or unavailable ($3 = false) in timestamped `veskctl --json -v watch` output $1, counting only reports
# stamped at or after $2. With $5 = latest (the default) each pair's latest report must say so; with
# $5 = first each pair's first such report counts, even when later ones say otherwise. False while
# some pair lacks it.
reported_all() {
  lines_since "$1" '"type":"availability"' "$2" |
    jq -R -s -e -r --argjson want "$3" --argjson pairs "$4" --arg which "${5:-latest}" '
    [split("\n")[] | select(length > 0) | capture("^(?<t>[0-9]+) (?<j>.*)$")
     | (.j | fromjson) + {t: (.t | tonumber)}]
    | if $which == "first" then map(select(.available == $want)) else . end
    | group_by("\(.sensorHex)/\(.service)")
    | map(if $which == "first" then first else last end) as $reports
    | if ($reports | length) == $pairs and all($reports[]; .available == $want)
      then ($reports | map(.t) | max) else empty end' 2>/dev/null
}

# reported_all file since want pairs, retried for at most $5 ms; $6 is reported_all's $5.
wait_reported() { retry_for "$5" reported_all "$1" "$2" "$3" "$4" "${6:-latest}"; }
