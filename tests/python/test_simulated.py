"""kov_vesk over the built-in simulated fleet: run with ``pytest -p kov_vesk.testing``."""

import asyncio
import inspect
import logging
import sys
import threading
import time

import pytest

import kov_vesk
import kov_vesk.aio
from kov_vesk import (CallError, DatapathDestination, DesiredScanSettings, Interlace, Point, Rejected, Snap,
                      SystemMode, Timeout, Unavailable)
from sensor_cases import DEFAULT_DESIRED, SOFTWARE_VERSION_TEXTS, check_mode_and_events, check_round_trips, wait_until

SENSOR = 0x10
SCAN_SERVICE, MODE_SERVICE, INFO_SERVICE = 0x0003, 0x0002, 0x0004


def test_fixture_fleet_reads_and_writes_every_operation(simulated_fleet):
    assert simulated_fleet.sensor_ids() == [0x10, 0x11, 0x12]
    sensor = simulated_fleet.sensor(SENSOR)
    assert (sensor.id, sensor.services) == (SENSOR, {2: True, 3: True, 4: True})
    assert sensor.get_desired_scan_settings() == DEFAULT_DESIRED
    assert repr(DEFAULT_DESIRED) == ("DesiredScanSettings(frame_rate=10.0, interlace=<Interlace.NONE: 0>, "
                                     "control_line=<ControlLine.LINE_0: 0>, fill=<Fill.FILL_OFF: 0>)")
    assert tuple(vars(sensor.get_software_version()).values()) == SOFTWARE_VERSION_TEXTS
    assert sensor.get_datapath_destination() == DatapathDestination("239.255.0.1", 51016)
    check_round_trips(sensor)
    check_mode_and_events(sensor)
    # The other sensors kept their own values.
    assert simulated_fleet.sensor(0x11).get_desired_scan_settings() == DEFAULT_DESIRED
    with pytest.raises(KeyError, match="no sensor 0x99"):
        simulated_fleet.sensor(0x99)


@pytest.mark.parametrize("result, error, reason", [
    (1, Timeout, "cannot call method 0x8001: SOME/IP transport timed out (simulator result 0x1: the simulated "
                 "sensor did not answer within the call timeout)"),
    (0x20, Rejected, 'cannot call method 0x8001: SOME/IP transport failed with code "20" (simulator result 0x20: '
                     "the sensor refused a value of the request, out of its range or without a meaning to it)"),
    (3, Rejected, 'cannot call method 0x8001: SOME/IP transport failed with code "3" (simulator result 0x3: '
                  "the service has no method with that id)"),
    (2, Unavailable, 'cannot call method 0x8001: SOME/IP transport failed with code "2" (simulator result 0x2: '
                     "no available instance is known under the called address)"),
    (4, Unavailable, 'cannot call method 0x8001: SOME/IP transport failed with code "4" (simulator result 0x4: '
                     "the transport is not connected)"),
    (7, CallError, 'cannot call method 0x8001: SOME/IP transport failed with code "7" (simulator result 0x7: '
                   "not among the simulator's documented results)"),
])
def test_failed_calls_raise_by_kind_with_the_reason(simulated_fleet, result, error, reason):
    simulated_fleet.faults.fail_next_calls(SENSOR, SCAN_SERVICE, 0x8001, result)
    sensor = simulated_fleet.sensor(SENSOR)
    with pytest.raises(CallError) as raised:
        sensor.get_desired_scan_settings()
    assert (type(raised.value), raised.value.code, raised.value.reason, str(raised.value)) == (
        error, result, reason, reason)
    assert sensor.get_desired_scan_settings() == DEFAULT_DESIRED  # the fault was for one call only


def test_offline_sensor_is_unavailable_and_comes_back(simulated_fleet):
    faults = simulated_fleet.faults
    sensor = simulated_fleet.sensor(0x11)
    faults.set_online(0x11, False)
    wait_until(lambda: sensor.services == {2: False, 3: False, 4: False}, what="services gone")
    with pytest.raises(Unavailable) as raised:
        sensor.get_scan_datum()
    assert (raised.value.code, raised.value.reason) == (None, "Service 0x3 not available")
    with pytest.raises(TimeoutError, match=r"^only 2 of 3 sensors discovered with all services within 0.2 s; "
                                           r"found 0x0010 and 0x0012$"):
        simulated_fleet.wait_for_sensors(count=3, timeout=0.2)
    with pytest.raises(TimeoutError, match=r"^sensor 0x0099 not discovered within 0.1 s: found instead sensors "
                                           r"0x0010 and 0x0012$"):
        simulated_fleet.wait_for_sensors(sensor=0x99, timeout=0.1)
    faults.set_online(0x11, True)
    assert simulated_fleet.wait_for_sensors(sensor=0x11, timeout=3) == [0x10, 0x11, 0x12]
    with pytest.raises(TimeoutError, match=r"^only 3 of 4 sensors discovered with all services within 0.2 s; "
                                           r"found 0x0010, 0x0011 and 0x0012$"):
        simulated_fleet.wait_for_sensors(count=4, timeout=0.2)
    assert sensor.get_scan_datum() == 0.0
    with pytest.raises(KeyError, match="no sensor 0x99 in the fleet"):
        faults.set_online(0x99, False)


@pytest.mark.parametrize("call, service, method, message", [
    (lambda s: s.set_scan_datum(20), SCAN_SERVICE, 0x8004,
     "Scan datum elevation = 20 degrees: out of range [-18;10]"),
    (lambda s: s.set_scan_pattern([Point(0, 0, 256)]), SCAN_SERVICE, 0x8005,
     "point attribute 256 out of range [0;255]"),
    (lambda s: s.set_datapath_destination("::1", 80), INFO_SERVICE, 0x000B,
     "stringToIPAddress - failed to convert IPv4 address (::1) to encoded format"),
    (lambda s: s.set_datapath_destination("192.0.2.1", 65536), INFO_SERVICE, 0x000B,
     "port 65536 out of range [0;65535]"),
    (lambda s: s.set_system_mode(3), MODE_SERVICE, 0x8002, "cannot convert"),
    (lambda s: s.set_scan_datum(float("nan")), SCAN_SERVICE, 0x8004, "degrees must be a finite number"),
])
def test_refused_values_raise_before_anything_is_sent(simulated_fleet, call, service, method, message):
    # A pending fault answers the next call that reaches the transport: after the refused value it must
    # still be pending.
    simulated_fleet.faults.fail_next_calls(SENSOR, service, method, 0x20)
    sensor = simulated_fleet.sensor(SENSOR)
    with pytest.raises(ValueError) as raised:
        call(sensor)
    assert str(raised.value).startswith(message)
    with pytest.raises(Rejected):
        {MODE_SERVICE: lambda: sensor.set_system_mode(1), INFO_SERVICE: lambda: sensor.set_datapath_destination(
            "192.0.2.1", 1), SCAN_SERVICE: lambda: call_valid_scan(sensor, method)}[service]()


def call_valid_scan(sensor, method):
    {0x8004: lambda: sensor.set_scan_datum(0), 0x8005: lambda: sensor.set_scan_pattern([Snap()])}[method]()


@pytest.mark.parametrize("payload, size, mode", [
    (bytes([14]), None, SystemMode.SCANNING),   # wire symbol 14: scanning
    (bytes([99]), None, None),                  # no such symbol: dropped
    (bytes([14, 14]), None, None),              # wrong size: dropped
    (None, 1, None),                            # null payload: dropped
])
def test_injected_mode_events(simulated_fleet, payload, size, mode):
    sensor = simulated_fleet.sensor(SENSOR)
    wait_until(lambda: sensor.events.system_mode == SystemMode.STANDBY, what="booted to standby")
    assert simulated_fleet.faults.inject_event(SENSOR, MODE_SERVICE, 1, payload, size) is True
    assert simulated_fleet.faults.drain(1.0) is True
    assert sensor.events.system_mode == (mode or SystemMode.STANDBY)


def test_other_threads_run_while_a_call_waits():
    with kov_vesk.Fleet.simulated(sensors=1, call_timeout=0.5) as fleet:
        fleet.wait_for_sensors(count=1)
        fleet.faults.fail_next_calls(SENSOR, SCAN_SERVICE, 0x8003, 1)
        ticks = []
        stop = threading.Event()
        ticker = threading.Thread(target=lambda: [ticks.append(time.monotonic()) or stop.wait(0.01)
                                                  for _ in range(500) if not stop.is_set()])
        ticker.start()
        started = time.monotonic()
        with pytest.raises(Timeout):
            fleet.sensor(SENSOR).get_scan_datum()
        ended = time.monotonic()
        stop.set()
        ticker.join(5)
        during = [tick for tick in ticks if started < tick < ended]
        assert ended - started >= 0.45
        assert len(during) >= 10, "the ticker ran %d times during a 0.5 s call" % len(during)


def test_callback_exception_is_reported_and_survived(simulated_fleet, monkeypatch):
    reported, seen = [], []
    monkeypatch.setattr(sys, "unraisablehook", reported.append)

    def failing(sensor, service, available):
        raise RuntimeError("callback failed for 0x%x/0x%x" % (sensor, service))

    failing_handle = simulated_fleet.on_availability(failing)
    handle = simulated_fleet.on_availability(lambda *report: seen.append(report))
    simulated_fleet.faults.set_online(0x12, False)
    gone = [(0x12, service, False) for service in (2, 3, 4)]
    wait_until(lambda: all(report in seen for report in gone), what="0x12 reported gone")
    assert simulated_fleet.faults.drain(1.0)
    # Every report reached both callbacks, the failing one first; each of its exceptions was reported.
    assert [str(entry.exc_value) for entry in reported] == [
        "callback failed for 0x%x/0x%x" % report[:2] for report in seen]
    assert all(type(entry.exc_value) is RuntimeError for entry in reported)
    count = len(seen)
    failing_handle.close()
    handle.close()
    assert handle.closed
    simulated_fleet.faults.set_online(0x12, True)
    assert simulated_fleet.wait_for_sensors(sensor=0x12) == [0x10, 0x11, 0x12]
    assert simulated_fleet.faults.drain(1.0)
    assert (len(seen), len(reported)) == (count, count)  # nothing after close()


def test_callbacks_registered_before_start_see_discovery():
    seen = []
    fleet = kov_vesk.Fleet.simulated(sensors=2, legacy=True)
    handle = fleet.on_availability(lambda *report: seen.append(report))
    fleet.start()
    try:
        # The legacy sensor offers each service under an instance id equal to the service id; its client
        # takes the id of the first of them reported.
        ids = fleet.wait_for_sensors()
        assert ids[1:] == [0x10, 0x11] and ids[0] in (2, 3, 4)
        wait_until(lambda: len(seen) == 9, what="nine reports")
        assert sorted(set(seen)) == sorted((sensor, service, True) for sensor in ids for service in (2, 3, 4))
    finally:
        fleet.close()
    assert handle.closed
    with pytest.raises(ValueError, match="the fleet is closed"):
        fleet.wait_for_sensors()


def test_start_failure_raises_with_the_reason():
    fleet = kov_vesk.Fleet.simulated()
    fleet.faults.fail_next_connect(4)
    with pytest.raises(CallError, match="^cannot connect the transport: SensorControl cannot connect$"):
        fleet.start()
    with pytest.raises(ValueError, match="fault injection needs the simulated fleet"):
        kov_vesk.Fleet.someip("127.0.0.1").faults


def test_library_log_lines_go_to_python_logging(simulated_fleet, caplog):
    caplog.set_level(logging.DEBUG, logger="kov_vesk")
    kov_vesk.enable_logging(logging.INFO)
    try:
        with pytest.raises(ValueError):
            simulated_fleet.sensor(SENSOR).set_scan_datum(-20)
        simulated_fleet.faults.set_online(0x11, False)
        simulated_fleet.faults.drain(1.0)
    finally:
        kov_vesk.disable_logging()
    records = [(r.name, r.levelno, r.getMessage()) for r in caplog.records]
    assert records == [("kov_vesk", logging.ERROR, "Scan datum elevation = -20 degrees: out of range [-18;10]")]


def test_asyncio_wrappers_never_block_the_loop():
    async def scenario():
        ticks = 0

        async def ticker():
            nonlocal ticks
            while True:
                ticks += 1
                await asyncio.sleep(0.01)

        async with kov_vesk.aio.Fleet.simulated(sensors=2, call_timeout=0.3) as fleet:
            assert await fleet.wait_for_sensors(count=2) == [0x10, 0x11]
            sensor = fleet.sensor(0x11)
            await sensor.set_desired_scan_settings(DesiredScanSettings(5.0, Interlace.INTERLACE_2, 0, 0))
            assert (await sensor.get_desired_scan_settings()).interlace is Interlace.INTERLACE_2
            fleet.faults.fail_next_calls(0x11, INFO_SERVICE, 0x0008, 1)
            task = asyncio.create_task(ticker())
            await asyncio.sleep(0)
            with pytest.raises(Timeout):
                await sensor.get_software_version()
            task.cancel()
            return ticks

    assert asyncio.run(scenario()) >= 10


def own_doc(name, item):
    """The docstring of `item` without the signature line that pybind11 puts first."""
    doc = (getattr(item, "__doc__", None) or "").strip()
    if doc.startswith(name + "("):
        doc = doc.partition("\n")[2].strip()
    return doc


def test_public_names_are_documented():
    import kov_vesk.testing

    missing = []
    for module in (kov_vesk, kov_vesk.aio, kov_vesk.testing):
        for name, value in vars(module).items():
            if name.startswith("_") or inspect.ismodule(value) or getattr(value, "__module__", "").split(".")[0] \
                    not in ("kov_vesk",):
                continue
            members = [(name, value)]
            if inspect.isclass(value):
                members += [("%s.%s" % (name, member), attribute) for member, attribute in vars(value).items()
                            if not member.startswith("_") and not isinstance(attribute, int)]
            missing += [label for label, item in members if not own_doc(label.split(".")[-1], item)]
    assert missing == []
