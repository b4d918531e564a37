"""kov_vesk over SOME/IP against vesk-sensord (the `sensord` fixture of kov_vesk.testing). SD multicast
must stay off the host's network: run_in_netns.sh runs this file inside a network namespace."""

import os
import signal

import pytest

from kov_vesk import Timeout, Unavailable
from sensor_cases import SOFTWARE_VERSION_TEXTS, check_mode_and_events, check_round_trips, wait_until

DISCOVERY_TIMEOUT = 10.0


def all_threads_stopped(pid):
    """Whether every thread of process `pid` is stopped (state T): SIGSTOP takes effect asynchronously."""
    states = []
    for task in os.listdir("/proc/%d/task" % pid):
        with open("/proc/%d/task/%s/stat" % (pid, task)) as stat:
            states.append(stat.read().rpartition(")")[2].split()[0])
    return all(state == "T" for state in states)


def test_every_operation_and_event(sensord):
    with sensord.fleet() as fleet:
        assert fleet.wait_for_sensors(count=3, timeout=DISCOVERY_TIMEOUT) == [0x10, 0x11, 0x12]
        sensor = fleet.sensor(0x10)
        assert tuple(vars(sensor.get_software_version()).values()) == SOFTWARE_VERSION_TEXTS
        check_round_trips(sensor)
        check_mode_and_events(sensor)
    # The daemon kept what was written; a new fleet (another client) reads it.
    with sensord.fleet() as fleet:
        assert fleet.wait_for_sensors(sensor=0x10, timeout=DISCOVERY_TIMEOUT)
        assert fleet.sensor(0x10).get_scan_datum() == pytest.approx(-3.5, abs=1e-4)


def test_timeout_refusal_and_unavailable_sensor(sensord):
    with sensord.fleet(call_timeout=0.3) as fleet:
        fleet.wait_for_sensors(count=3, timeout=DISCOVERY_TIMEOUT)
        sensor = fleet.sensor(0x11)
        with pytest.raises(ValueError, match=r"^Scan datum elevation = 11 degrees: out of range \[-18;10\]$"):
            sensor.set_scan_datum(11)
        os.kill(sensord.process.pid, signal.SIGSTOP)
        try:
            wait_until(lambda: all_threads_stopped(sensord.process.pid), what="vesk-sensord stopped")
            with pytest.raises(Timeout) as raised:
                sensor.get_scan_datum()
        finally:
            os.kill(sensord.process.pid, signal.SIGCONT)
        assert (raised.value.code, raised.value.reason) == (
            1, "cannot call method 0x8003: SOME/IP transport timed out (SOME/IP transport result 0x1: no response "
               "within the call timeout)")
        assert sensor.get_scan_datum() == 0.0
        # SIGTERM: the daemon withdraws its offers.
        sensord.process.terminate()
        sensord.process.wait(timeout=5)
        wait_until(lambda: sensor.services == {2: False, 3: False, 4: False}, timeout=5, what="offers withdrawn")
        with pytest.raises(Unavailable) as raised:
            sensor.get_scan_datum()
        assert (raised.value.code, raised.value.reason) == (None, "Service 0x3 not available")
