#!/usr/bin/env python3
"""Measures which small faults in the product code the tests catch.

Each entry of FAULTS replaces one exact piece of text (it must occur exactly once in its file) by a
wrong one. The runner works in a private git worktree of HEAD, never in the caller's tree: it builds
there once, checks that every test passes, then for each fault applies it, rebuilds incrementally, runs
ctest and records whether a test failed (killed), none did (survived), the fault does not compile (did
not build) or its text is not found exactly once (stale). A test run that exceeds its time limit counts
as killed: a hang is a caught fault.

    scripts/mutants.sh                 # every fault
    scripts/mutants.sh --only client   # the faults whose name or file contains "client"
    scripts/mutants.sh --list          # print the list, with the stale entries marked
    scripts/mutants.sh --keep          # keep the worktree afterwards (its path is printed)
    MUTANTS_JOBS=1 scripts/mutants.sh  # build and test with one job (2 by default)
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import time

# name: short and unique; file: relative to the repository root; find: exact text, once in the file;
# replace: the faulty text; why: set when no test can reasonably catch the fault (it still runs).
FAULTS = [
    # --- common: logging ---
    dict(name="log-level-name-warn", file="common/src/log_message.cpp",
         find='return "WARN";', replace='return "WARNING";'),
    dict(name="log-default-prefix-separator", file="common/src/log_message.cpp",
         find='<< " - " << data_->getFileName()', replace='<< " -" << data_->getFileName()'),
    dict(name="log-decimal-base", file="common/src/stream_logger.cpp",
         find="value /= 10;", replace="value /= 16;"),
    dict(name="log-newline-not-added", file="common/src/stream_logger.cpp",
         find="if (view.empty() || view.back() != '\\n') {", replace="if (view.empty()) {"),
    dict(name="log-thread-name-unbracketed", file="common/src/stream_logger.cpp",
         find="    out << '(' << threadName << ')';", replace="    out << threadName;"),
    dict(name="log-sink-lock-removed", file="common/src/stream_logger.cpp",
         find="  std::scoped_lock lock(mutex);\n  if (colorize.load()) {", replace="  if (colorize.load()) {",
         why="a data race on the sink's stream: seen by ThreadSanitizer or as rare mixed lines, not by a plain run"),
    dict(name="log-reused-width-kept", file="common/src/log_record_cache.hpp",
         find="  stream.width(0);\n", replace=""),
    dict(name="log-reused-precision-kept", file="common/src/log_record_cache.hpp",
         find="  stream.precision(6);\n", replace=""),
    dict(name="log-reused-fill-kept", file="common/src/log_record_cache.hpp",
         find="  stream.fill(stream.widen(' '));\n", replace=""),
    dict(name="log-reused-tie-kept", file="common/src/log_record_cache.hpp",
         find="  stream.tie(nullptr);\n", replace=""),
    dict(name="log-reused-discarded-kept", file="common/src/log_record_cache.hpp",
         find="      record->discarded = false;\n", replace=""),
    dict(name="log-kept-record-reused", file="common/src/log_record_cache.hpp",
         find="  if (record.use_count() != 1) {", replace="  if (record.use_count() == 0) {"),
    dict(name="log-derived-logger-skips-text", file="common/src/stream_logger.cpp",
         find="      type != typeid(OstreamLogger)) {", replace="      type != typeid(OstreamLogger) && false) {"),
    dict(name="log-shared-record-skips-text", file="common/src/stream_logger.cpp",
         find="if (data.destination != &logger || ", replace="if ("),
    dict(name="log-buffer-capacity-512", file="common/include/common/log/fixed_size_streambuffer.hpp",
         find="static constexpr std::size_t CAPACITY = SIZE - 1;", replace="static constexpr std::size_t CAPACITY = SIZE - 2;"),
    dict(name="log-file-name-backslash-first", file="common/src/log_data.cpp",
         find="std::string::size_type separator = path.rfind('/');", replace="std::string::size_type separator = path.rfind('\\\\');"),
    dict(name="log-sink-exception-escapes", file="common/src/log_message.cpp",
         find="  } catch (const std::exception&) {", replace="  } catch (const std::bad_alloc&) {"),
    dict(name="log-file-append-ignored", file="common/src/stream_logger.cpp",
         find="append ? (std::ios::out | std::ios::app)", replace="append ? (std::ios::out | std::ios::trunc)"),
    dict(name="log-thread-name-cut-16", file="platform/process/src/kov_platform_posix_process.cpp",
         find="name.substr(0, THREAD_NAME_CAPACITY - 1)", replace="name.substr(0, THREAD_NAME_CAPACITY)"),
    dict(name="log-pid-kept-after-fork", file="platform/process/src/kov_platform_posix_process.cpp",
         find="  cachedProcessId.store(getpid(), std::memory_order_relaxed);\n}", replace="}"),
    dict(name="log-observable-dead-entries-kept", file="common/include/common/types/observable.hpp",
         find="        it = subscribers_.erase(it);", replace="        ++it;"),

    # --- networking ---
    dict(name="net-source-port-not-swapped", file="networking/src/common_utils.cpp",
         find="return toHostByteOrder(port);", replace="return port;"),
    dict(name="net-broadcast-and-instead-of-or", file="networking/src/posix/utils.cpp",
         find="broadcast.s_addr = host.s_addr | ~mask.s_addr;", replace="broadcast.s_addr = host.s_addr & ~mask.s_addr;"),
    dict(name="net-parsed-ip-byte-swapped", file="networking/src/posix/utils.cpp",
         find="ip = parsed.s_addr;", replace="ip = toNetworkByteOrder(static_cast<std::uint32_t>(parsed.s_addr));"),
    dict(name="net-close-of-no-socket", file="networking/src/posix/utils.cpp",
         find="if (sock == -1) {\n    return NetworkResult::OK;", replace="if (sock == 0) {\n    return NetworkResult::OK;"),
    dict(name="net-bind-port-not-swapped", file="networking/src/posix/udp_sockets.cpp",
         find="result.sin_port = toNetworkByteOrder(port);", replace="result.sin_port = port;"),
    dict(name="net-empty-datagram-is-data", file="networking/src/posix/udp_sockets.cpp",
         find="return count == 0 ? NetworkResult::NO_DATA : NetworkResult::OK;", replace="return NetworkResult::OK;"),
    dict(name="net-would-block-is-error", file="networking/src/posix/udp_sockets.cpp",
         find="if (code == EAGAIN || code == EWOULDBLOCK) {", replace="if (code == EINTR) {"),

    # --- serialization ---
    dict(name="ser-frame-rate-max-31", file="serialization/src/convert.cpp",
         find="constexpr float MAX_FRAME_RATE = 30.0F;", replace="constexpr float MAX_FRAME_RATE = 31.0F;"),
    dict(name="ser-frame-rate-nan-accepted", file="serialization/src/convert.cpp",
         find="if (!(source.frameRate >= MIN_FRAME_RATE && source.frameRate <= MAX_FRAME_RATE)) {",
         replace="if (source.frameRate < MIN_FRAME_RATE || source.frameRate > MAX_FRAME_RATE) {"),
    dict(name="ser-latin1-lead-byte", file="serialization/src/convert.cpp",
         find="text.push_back(static_cast<char>(0xC0 | (byte >> 6)));",
         replace="text.push_back(static_cast<char>(0xC0 | (byte >> 7)));"),
    dict(name="ser-latin1-limit-off-by-one", file="serialization/src/convert.cpp",
         find="if (static_cast<std::uint32_t>(codePoint) > 0xFF) {", replace="if (static_cast<std::uint32_t>(codePoint) > 0x100) {"),
    dict(name="ser-text-64-bytes-accepted", file="serialization/src/convert.cpp",
         find="if (bytes.size() >= field.size()) {", replace="if (bytes.size() > field.size()) {"),
    dict(name="ser-heartbeat-flag2-from-flag3", file="serialization/src/convert.cpp",
         find="target.flag2 = source.flag2 != 0;", replace="target.flag2 = source.flag3 != 0;"),
    dict(name="ser-datapath-port-not-swapped", file="serialization/src/convert.cpp",
         find="target.port = toHostByteOrder(source.port);", replace="target.port = source.port;"),
    dict(name="ser-datum-sent-in-degrees", file="serialization/src/convert.cpp",
         find="target.elevation = floatToNetworkByteOrder(radians);",
         replace="target.elevation = floatToNetworkByteOrder(source.elevation);"),
    dict(name="ser-pattern-max-commands-refused", file="serialization/src/convert_scan_pattern.cpp",
         find="if (count > MAX_SCAN_PATTERN_COMMANDS) {", replace="if (count >= MAX_SCAN_PATTERN_COMMANDS) {"),
    dict(name="ser-pattern-fraction-accepted", file="serialization/src/convert_scan_pattern.cpp",
         find="if (byteSize % SCAN_PATTERN_COMMAND_SIZE != 0) {", replace="if (byteSize % 2 != 0) {"),
    dict(name="ser-pattern-snap-type", file="serialization/src/convert_scan_pattern.cpp",
         find="slot.type = ScanPatternCmdType::SNAP;", replace="slot.type = ScanPatternCmdType::MIN_LINES;"),
    dict(name="ser-pattern-byte-size-is-count", file="serialization/src/convert_scan_pattern.cpp",
         find="static_cast<std::uint16_t>(count * SCAN_PATTERN_COMMAND_SIZE)", replace="static_cast<std::uint16_t>(count)"),

    # --- sensor control client (ClientA) ---
    dict(name="client-get-datum-method-id", file="src/units/sensor_control_client/src/client_methods.cpp",
         find="constexpr std::uint16_t GET_SCAN_DATUM = 0x8003;", replace="constexpr std::uint16_t GET_SCAN_DATUM = 0x8004;"),
    dict(name="client-getter-ignores-failure", file="src/units/sensor_control_client/src/client_methods.cpp",
         find="if (result != Transport::Result::Ok && !isGoodCallResult(result, methodId)) {",
         replace="if (result != Transport::Result::Ok && isGoodCallResult(result, methodId)) {"),
    dict(name="client-setter-always-true", file="src/units/sensor_control_client/src/client_methods.cpp",
         find="return result == Transport::Result::Ok || isGoodCallResult(result, methodId);", replace="return true;"),
    dict(name="client-heartbeat-event-id", file="src/units/sensor_control_client/src/client_events.cpp",
         find="constexpr std::uint16_t HEARTBEAT_EVENT = 2;", replace="constexpr std::uint16_t HEARTBEAT_EVENT = 3;"),
    dict(name="client-scan-event-group", file="src/units/sensor_control_client/src/client_events.cpp",
         find="constexpr std::uint16_t SCAN_EVENT_GROUP = 3;", replace="constexpr std::uint16_t SCAN_EVENT_GROUP = 2;"),
    dict(name="client-event-store-unlocked", file="src/units/sensor_control_client/src/client_events.cpp",
         find="  std::lock_guard<std::mutex> lock(eventMutex_);\n  entry = received;", replace="  entry = received;",
         why="a data race on a cache record: a plain run rarely sees a torn copy; under ThreadSanitizer "
             "(CI's tsan workflow) the stress test's readers of the scan datum report it on every run"),
    dict(name="client-copy-achieved-skipped", file="src/units/sensor_control_client/src/client_events.cpp",
         find="  copyEntry(achievedScanSettingsEvent_, out);\n", replace=""),
    dict(name="client-copy-datum-skipped", file="src/units/sensor_control_client/src/client_events.cpp",
         find="  copyEntry(scanDatumEvent_, out);\n", replace=""),
    dict(name="client-reset-keeps-datum", file="src/units/sensor_control_client/src/client_events.cpp",
         find="  scanDatumEvent_ = types::ScanDatum{};\n", replace=""),
    dict(name="client-available-unsubscribes", file="src/units/sensor_control_client/src/sensor_control_client.cpp",
         find="    subscribeToEvents(address.serviceId);\n  } else {", replace="    unsubscribeFromEvents(address.serviceId);\n  } else {"),
    dict(name="client-set-all-reports-nothing", file="src/units/sensor_control_client/src/sensor_control_client.cpp",
         find="    changed.insert(serviceId);\n", replace=""),

    # --- sensor control (SensorControl) ---
    dict(name="sc-legacy-range-off-by-one", file="src/units/sensor_control/src/sensor_control.cpp",
         find="return offset <= 2U && address.instanceId == address.serviceId;",
         replace="return offset < 2U && address.instanceId == address.serviceId;"),
    dict(name="sc-wildcard-instance-accepted", file="src/units/sensor_control/src/sensor_control.cpp",
         find="if (address.instanceId == ISomeIpTransport::ANY_INSTANCE) {", replace="if (false) {"),
    dict(name="sc-availability-not-published", file="src/units/sensor_control/src/sensor_control.cpp",
         find="  observable_.updateValue(client, std::unordered_set<std::uint16_t>{address.serviceId});\n", replace=""),
    dict(name="sc-release-failure-hidden", file="src/units/sensor_control/src/sensor_control.cpp",
         find="      allReleased = false;\n", replace=""),
    dict(name="sc-failed-client-kept", file="src/units/sensor_control/src/sensor_control.cpp",
         find="    clients_.erase(entry);\n", replace=""),
    dict(name="sc-stop-second-pass-dropped", file="src/units/sensor_control/src/sensor_control.cpp",
         find="  closeAvailabilityHandler();\n  markAllUnavailable();\n  started_ = false;",
         replace="  closeAvailabilityHandler();\n  started_ = false;"),
    dict(name="sc-availability-forced-true", file="src/units/sensor_control/src/sensor_control.cpp",
         find="static_cast<void>(client->setAvailable(address, available));",
         replace="static_cast<void>(client->setAvailable(address, true));"),
    dict(name="sc-availability-legacy-address", file="src/units/sensor_control/src/sensor_control.cpp",
         find="static_cast<void>(client->setAvailable(address, available));",
         replace="static_cast<void>(client->setAvailable({address.serviceId, address.serviceId}, available));"),
    dict(name="sc-racing-creation-overwrites", file="src/units/sensor_control/src/sensor_control.cpp",
         find="  if (!inserted) {\n", replace="  if (false) {\n"),
    dict(name="sc-legacy-client-not-cached", file="src/units/sensor_control/src/sensor_control.cpp",
         find="      legacyClient_ = entry.second;\n      return legacyClient_;", replace="      return entry.second;",
         why="the scan finds the same client again; the two differ only if a report arrives while a new client "
             "without any address sits in the map, a window no test can hold open"),

    # --- SOME/IP transport ---
    dict(name="tr-length-below-8-accepted", file="transport/src/message.cpp",
         find="if (length < LENGTH_COVERED_HEADER) {", replace="if (length < LENGTH_COVERED_HEADER - 1) {"),
    dict(name="tr-length-beyond-off-by-one", file="transport/src/message.cpp",
         find="if (length > size - 8) {", replace="if (length > size - 7) {"),
    dict(name="tr-header-client-session-swapped", file="transport/src/message.cpp",
         find="write16(out + 8, header.clientId);\n  write16(out + 10, header.sessionId);",
         replace="write16(out + 8, header.sessionId);\n  write16(out + 10, header.clientId);"),
    dict(name="tr-sd-counter-high-nibble", file="transport/src/sd_message.cpp",
         find="entry.counter = p[13] & 0x0F;", replace="entry.counter = p[13] >> 4;"),
    dict(name="tr-sd-ttl-16-bit", file="transport/src/sd_message.cpp",
         find="entry.ttl = read24(p + 9);", replace="entry.ttl = read24(p + 9) & 0xFFFF;"),
    dict(name="tr-pending-call-limit", file="transport/src/client_side.cpp",
         find="if (pendingCalls_.size() >= options_.maxPendingCalls ||", replace="if (pendingCalls_.size() > options_.maxPendingCalls ||"),
    dict(name="tr-short-response-accepted", file="transport/src/client_side.cpp",
         find="if (call->payload.size() != responseSize) {", replace="if (call->payload.size() < responseSize) {"),
    dict(name="tr-response-client-id-unchecked", file="transport/src/receive_loop.cpp",
         find="if (h.clientId != options_.clientId || it == pendingCalls_.end() ||", replace="if (it == pendingCalls_.end() ||"),
    dict(name="tr-dispatch-backlog-limit", file="transport/src/dispatch_queue.cpp",
         find="if (tasks_.size() >= maxTasks ||", replace="if (tasks_.size() > maxTasks ||"),
    dict(name="tr-unsubscribe-slot-left-open", file="transport/src/client_side.cpp",
         find="  slot->close();\n  return true;\n}\n\nstd::optional<Endpoint>",
         replace="  return true;\n}\n\nstd::optional<Endpoint>"),
    dict(name="tr-dispatch-bytes-never-freed", file="transport/src/dispatch_queue.cpp",
         find="    queuedBytes_ -= tasks_.front().second;\n", replace=""),
    dict(name="tr-options-class-e-multicast", file="transport/src/transport_options.cpp",
         find="(ip >> 28) != 0xE", replace="(ip >> 28) < 0xE"),
    dict(name="tr-stop-offer-ignored", file="transport/src/discovery_client.cpp",
         find="if (entry.ttl == 0) {", replace="if (entry.ttl == 0xFFFFFFFF) {"),
    dict(name="tr-renew-after-expiry", file="transport/src/event_subscriptions.cpp",
         find="now + (expiry - now) / 2;", replace="now + (expiry - now) * 2;"),
    dict(name="tr-subscribers-per-peer", file="transport/src/discovery_server.cpp",
         find="if (fromPeer >= options_.maxSubscribersPerPeer) {", replace="if (fromPeer > options_.maxSubscribersPerPeer) {"),
    dict(name="tr-header-interface-from-protocol", file="transport/src/message.cpp",
         find="out[13] = header.interfaceVersion;", replace="out[13] = header.protocolVersion;"),
    dict(name="tr-sd-minor-not-written", file="transport/src/sd_message.cpp",
         find="write32(p + 12, entry.minorVersion);", replace="write32(p + 12, 0);"),
    dict(name="tr-offer-never-stops-finding", file="transport/src/discovery_client.cpp",
         find="    find->second.finish();\n", replace=""),
    dict(name="tr-offer-before-find-stops-finding", file="transport/src/discovery_client.cpp",
         find="find != finds_.end() && find->second.anySent()", replace="find != finds_.end()"),
    dict(name="tr-usable-unicast-port-zero", file="transport/src/sd_outbox.hpp",
         find="!multicastOrReserved && option.port != 0;", replace="!multicastOrReserved;"),
    dict(name="tr-offer-endpoint-unchecked", file="transport/src/discovery_client.cpp",
         find="if (endpoint == nullptr || !isUsableUnicast(*endpoint)) {", replace="if (endpoint == nullptr) {"),

    # --- tools: veskctl, simulator ---
    dict(name="tool-port-zero-accepted", file="tools/veskctl/src/value_parsers.cpp",
         find="if (!value || *value < 1 || *value > 65535) {", replace="if (!value || *value > 65535) {"),
    dict(name="tool-octet-256-accepted", file="tools/veskctl/src/value_parsers.cpp",
         find="if (!value || *value > 255) {", replace="if (!value || *value > 256) {"),
    dict(name="tool-plus-sign-refused", file="tools/veskctl/src/value_parsers.cpp",
         find="(text[0] == '-' || text[0] == '+')", replace="(text[0] == '-')"),
    dict(name="tool-interlace-3-name", file="tools/veskctl/src/record_fields.cpp",
         find='return "INTERLACE_3";', replace='return "INTERLACE_4";'),
    dict(name="tool-json-control-char-1f", file="tools/veskctl/src/printer.cpp",
         find="if (static_cast<unsigned char>(c) < 0x20) {", replace="if (static_cast<unsigned char>(c) < 0x1F) {"),
    dict(name="tool-result-code-range", file="tools/veskctl/src/result_texts.cpp",
         find="if (returnCode >= 0x01 && returnCode <= 0x0a) {", replace="if (returnCode >= 0x01 && returnCode <= 0x09) {"),
    dict(name="tool-sim-frame-rate-max", file="tools/simulator/src/simulated_sensor.cpp",
         find="settings.frameRate <= 30.0F)) {", replace="settings.frameRate <= 31.0F)) {"),
    dict(name="tool-text-field-unquoted", file="tools/veskctl/src/printer.cpp",
         find="const bool spaced = field.quoted && (field.text.empty() || field.text.find(' ') != std::string::npos);",
         replace="const bool spaced = field.quoted && field.text.empty();"),
    dict(name="tool-text-status-column", file="tools/veskctl/src/printer.cpp",
         find='<< std::setw(8) << (ok ? "ok" : "FAILED")', replace='<< std::setw(7) << (ok ? "ok" : "FAILED")'),
    dict(name="tool-json-failed-value-kept", file="tools/veskctl/src/printer.cpp",
         find="jsonFields(ok ? fields : Fields{})", replace="jsonFields(fields)"),
    dict(name="tool-sim-version-ascii", file="tools/simulator/src/simulated_sensor.cpp",
         find='<< " \\u00b7 M\\u00fcnchen";', replace='<< " - Munchen";'),
    dict(name="tool-sim-call-fault-kept", file="tools/simulator/src/simulated_fleet.cpp",
         find="if (--fault->second.remaining == 0) {", replace="if (--fault->second.remaining == 1) {"),
    dict(name="tool-sim-call-fault-ignored", file="tools/simulator/src/simulated_fleet.cpp",
         find="injected = fault->second.result;", replace="injected = std::nullopt;"),
    dict(name="tool-sim-mode-change-late", file="tools/simulator/src/mode_sequencer.cpp",
         find="while (nextChange_ && *nextChange_ <= now) {", replace="while (nextChange_ && *nextChange_ < now) {"),
    # --- tools: veskctl doctor and monitor (their texts are checked by the unit tests only) ---
    dict(name="tool-doctor-multicast-fix", file="tools/veskctl/src/doctor_verdicts.cpp",
         find='" multicast on";', replace='" multicast off";'),
    dict(name="tool-doctor-rp-filter-fix", file="tools/veskctl/src/doctor_verdicts.cpp",
         find='".rp_filter=2";', replace='".rp_filter=0";'),
    dict(name="tool-doctor-lacks-text", file="tools/veskctl/src/doctor_verdicts.cpp",
         find='"; lacks service "', replace='"; lacks "'),
    dict(name="tool-monitor-stop-offer-named-offer", file="tools/veskctl/src/monitor_command.cpp",
         find="const bool stop = entry.ttl == 0;", replace="const bool stop = false;"),
    dict(name="tool-monitor-reboot-flag-dropped", file="tools/veskctl/src/monitor_command.cpp",
         find="entryLine(context, entry, sd.reboot())", replace="entryLine(context, entry, false)"),
]

MODULES = [
    ("common/", "logging"),
    ("networking/", "networking"),
    ("serialization/", "serialization"),
    ("src/units/sensor_control_client/", "client"),
    ("src/units/sensor_control/", "sensor control"),
    ("transport/", "transport"),
    ("tools/", "tools"),
]

CONFIGURE_FLAGS = [
    "-G", "Ninja",
    "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
    "-DKOV_WERROR=OFF",
    "-DKOV_BUILD_BENCHMARKS=OFF",
    "-DKOV_NETWORK_TESTS=OFF",
]
BUILD_JOBS = os.environ.get("MUTANTS_JOBS", "2")  # parallel build and test jobs
TEST_TIMEOUT_S = 120  # per test, given to ctest
SUITE_TIMEOUT_S = 900  # the whole ctest run; beyond it the run is killed and the fault counts as caught
BUILD_TIMEOUT_S = 3600

KILLED, SURVIVED, NO_BUILD, STALE = "killed", "survived", "did not build", "stale"


class Interrupted(Exception):
    pass


def on_signal(signum, _frame):
    raise Interrupted(signal.Signals(signum).name)


def module_of(path):
    for prefix, module in MODULES:
        if path.startswith(prefix):
            return module
    return "other"


def interleaved(faults):
    """The faults taken one module at a time in turn, so that a run stopped early has touched every module."""
    queues = {}
    for fault in faults:
        queues.setdefault(module_of(fault["file"]), []).append(fault)
    ordered = []
    while any(queues.values()):
        for queue in queues.values():
            if queue:
                ordered.append(queue.pop(0))
    return ordered


def stop(proc):
    """Ends the process group that `proc` leads. SIGTERM first: ninja and ctest start their jobs in
    process groups of their own and end them only when they are told to stop themselves."""
    try:
        os.killpg(proc.pid, signal.SIGTERM)
        proc.wait(timeout=20)
    except subprocess.TimeoutExpired:
        pass
    except ProcessLookupError:
        return
    try:
        os.killpg(proc.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    proc.wait()


def run(args, cwd, log_path, timeout):
    """Runs `args` in its own process group, output to `log_path`; returns (exit status, timed out).
    The group is stopped on a timeout or when this script is interrupted."""
    with open(log_path, "w") as log:
        proc = subprocess.Popen(args, cwd=cwd, stdout=log, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            return proc.wait(timeout=timeout), False
        except subprocess.TimeoutExpired:
            stop(proc)
            return None, True
        except BaseException:
            stop(proc)
            raise


def failed_tests(log_path):
    """The test names under ctest's "The following tests FAILED:" line."""
    names = []
    try:
        with open(log_path, errors="replace") as log:
            text = log.read()
    except OSError:
        return names
    _, found, rest = text.partition("The following tests FAILED:")
    if found:
        for line in rest.splitlines():
            match = re.match(r"\s*\d+\s+-\s+(\S+)\s+\((.*)\)", line)
            if match:
                names.append(match.group(1) + ("(timeout)" if "Timeout" in match.group(2) else ""))
    return names


def occurrences(root, fault):
    try:
        with open(os.path.join(root, fault["file"]), encoding="utf-8") as source:
            return source.read().count(fault["find"])
    except OSError:
        return 0


def write_text(path, text):
    with open(path, "w", encoding="utf-8") as target:
        target.write(text)
    # A fresh modification time, so that the incremental build sees every change, however quick.
    now = time.time_ns()
    os.utime(path, ns=(now, now))


def committed_occurrences(repo, fault):
    """How often the fault's text occurs in the file as HEAD has it, which is what a run mutates."""
    shown = subprocess.run(["git", "show", f"HEAD:{fault['file']}"], cwd=repo, capture_output=True)
    return shown.stdout.decode("utf-8", "replace").count(fault["find"]) if shown.returncode == 0 else 0


def print_list(faults, repo):
    for fault in faults:
        count = committed_occurrences(repo, fault)
        state = "" if count == 1 else f"  [stale: found {count} times]"
        print(f"{fault['name']:<34} {module_of(fault['file']):<15} {fault['file']}{state}")
        print(f"    - {fault['find']!r}")
        print(f"    + {fault['replace']!r}")
        if fault.get("why"):
            print(f"    hard to catch: {fault['why']}")
    print(f"{len(faults)} faults")


def print_report(results):
    print()
    print(f"{'fault':<34} {'module':<15} {'result':<14} {'time':>6}  failing tests")
    for fault, result, seconds, tests in results:
        shown = ", ".join(tests[:3]) + (f" (+{len(tests) - 3})" if len(tests) > 3 else "")
        print(f"{fault['name']:<34} {module_of(fault['file']):<15} {result:<14} {seconds:>5.0f}s  {shown}")
    counts = {state: sum(1 for _, r, _, _ in results if r == state) for state in (KILLED, SURVIVED, NO_BUILD, STALE)}
    judged = counts[KILLED] + counts[SURVIVED]
    rate = f"{100.0 * counts[KILLED] / judged:.1f}%" if judged else "n/a"
    print()
    print(f"killed {counts[KILLED]}, survived {counts[SURVIVED]}, did not build {counts[NO_BUILD]}, "
          f"stale {counts[STALE]}; kill rate {counts[KILLED]}/{judged} = {rate}")
    by_module = {}
    for fault, result, _, _ in results:
        entry = by_module.setdefault(module_of(fault["file"]), [0, 0])
        if result == KILLED:
            entry[0] += 1
        if result in (KILLED, SURVIVED):
            entry[1] += 1
    print("per module: " + ", ".join(f"{m} {k}/{n}" for m, (k, n) in by_module.items()))
    survivors = [fault for fault, result, _, _ in results if result == SURVIVED]
    if survivors:
        print("survivors:")
        for fault in survivors:
            note = f"  (hard to catch: {fault['why']})" if fault.get("why") else ""
            print(f"  {fault['name']}: {fault['file']}{note}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", metavar="SUBSTRING", help="run only the faults whose name or file contains it")
    parser.add_argument("--list", action="store_true", help="print the list and exit")
    parser.add_argument("--keep", action="store_true", help="keep the worktree afterwards")
    options = parser.parse_args()

    repo = subprocess.run(["git", "rev-parse", "--show-toplevel"], cwd=os.path.dirname(os.path.abspath(__file__)),
                          check=True, capture_output=True, text=True).stdout.strip()
    names = [fault["name"] for fault in FAULTS]
    duplicates = sorted({name for name in names if names.count(name) > 1})
    if duplicates:
        sys.exit(f"duplicate fault names: {', '.join(duplicates)}")
    faults = interleaved([f for f in FAULTS if not options.only or options.only in f["name"] or options.only in f["file"]])
    if options.list:
        print_list(faults, repo)
        return 0
    if not faults:
        sys.exit(f"no fault matches --only {options.only!r}")

    for signum in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(signum, on_signal)

    scratch = tempfile.mkdtemp(prefix="kov-mutants-")
    tree = os.path.join(scratch, "tree")
    build = os.path.join(tree, "build-mutants")
    logs = os.path.join(scratch, "logs")
    os.makedirs(logs)
    results = []
    added = False
    try:
        subprocess.run(["git", "worktree", "add", "--detach", tree, "HEAD"], cwd=repo, check=True,
                       stdout=subprocess.DEVNULL)
        added = True
        print(f"worktree {tree} at {subprocess.run(['git', 'rev-parse', '--short', 'HEAD'], cwd=tree, capture_output=True, text=True).stdout.strip()}; logs in {logs}", flush=True)

        started = time.monotonic()
        status, _ = run(["cmake", "-S", tree, "-B", build] + CONFIGURE_FLAGS, tree,
                        os.path.join(logs, "configure.log"), BUILD_TIMEOUT_S)
        if status != 0:
            print(f"configure failed, see {logs}/configure.log", flush=True)
            return 2
        status, _ = run(["cmake", "--build", build, "-j", BUILD_JOBS], tree, os.path.join(logs, "build.log"),
                        BUILD_TIMEOUT_S)
        if status != 0:
            print(f"the unmodified tree does not build, see {logs}/build.log", flush=True)
            return 2
        print(f"built in {time.monotonic() - started:.0f} s", flush=True)
        ctest = ["ctest", "--test-dir", build, "-j", BUILD_JOBS, "--timeout", str(TEST_TIMEOUT_S)]
        started = time.monotonic()
        status, timed_out = run(ctest, tree, os.path.join(logs, "baseline-tests.log"), SUITE_TIMEOUT_S)
        if status != 0 or timed_out:
            print(f"the unmodified tree fails its tests: {failed_tests(os.path.join(logs, 'baseline-tests.log'))}; "
                  f"see {logs}/baseline-tests.log", flush=True)
            return 2
        print(f"baseline tests pass in {time.monotonic() - started:.0f} s; {len(faults)} faults to run", flush=True)

        for index, fault in enumerate(faults, 1):
            started = time.monotonic()
            path = os.path.join(tree, fault["file"])
            tests = []
            if occurrences(tree, fault) != 1:
                result = STALE
            else:
                with open(path, encoding="utf-8") as source:
                    original = source.read()
                try:
                    write_text(path, original.replace(fault["find"], fault["replace"], 1))
                    build_log = os.path.join(logs, f"{fault['name']}.build.log")
                    status, _ = run(["cmake", "--build", build, "-j", BUILD_JOBS], tree, build_log, BUILD_TIMEOUT_S)
                    if status != 0:
                        result = NO_BUILD
                    else:
                        test_log = os.path.join(logs, f"{fault['name']}.test.log")
                        status, timed_out = run(ctest, tree, test_log, SUITE_TIMEOUT_S)
                        tests = ["(suite timeout)"] if timed_out else failed_tests(test_log)
                        result = KILLED if timed_out or status != 0 else SURVIVED
                finally:
                    write_text(path, original)
            seconds = time.monotonic() - started
            results.append((fault, result, seconds, tests))
            print(f"[{index}/{len(faults)}] {fault['name']:<34} {result:<14} {seconds:5.0f}s  {', '.join(tests[:3])}",
                  flush=True)
    except Interrupted as signal_name:
        print(f"interrupted ({signal_name}) after {len(results)} faults", flush=True)
    finally:
        for signum in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(signum, signal.SIG_IGN)
        if results:
            print_report(results)
        if added and not options.keep:
            subprocess.run(["git", "worktree", "remove", "--force", tree], cwd=repo)
            print(f"worktree removed; logs kept in {logs}", flush=True)
        elif added:
            print(f"worktree kept: {tree} (remove with: git worktree remove --force {tree})", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
