"""Cases shared by the tests over the simulated fleet and over SOME/IP (vesk-sensord)."""

import time

import pytest

import kov_vesk as kv

# setter name, its arguments, getter name, what the getter returns afterwards.
ROUND_TRIPS = [
    ("set_desired_scan_settings", (kv.DesiredScanSettings(25.0, kv.Interlace.INTERLACE_4, kv.ControlLine.LINE_1, kv.Fill.FILL_ON),),
     "get_desired_scan_settings", kv.DesiredScanSettings(25.0, kv.Interlace(3), kv.ControlLine(1), kv.Fill(1))),
    ("set_desired_scan_settings", (kv.DesiredScanSettings(1, 0, 0, 0),),
     "get_desired_scan_settings", kv.DesiredScanSettings(1.0, kv.Interlace.NONE, kv.ControlLine.LINE_0, kv.Fill.FILL_OFF)),
    ("set_scan_datum", (-7.25,), "get_scan_datum", pytest.approx(-7.25, abs=1e-4)),
    ("set_scan_datum", (10,), "get_scan_datum", pytest.approx(10.0, abs=1e-4)),
    ("set_datapath_destination", ("127.0.0.5", 4000), "get_datapath_destination",
     kv.DatapathDestination("127.0.0.5", 4000)),
    ("set_datapath_destination", ("239.1.2.3", 65535), "get_datapath_destination",
     kv.DatapathDestination(ip="239.1.2.3", port=65535)),
    ("set_scan_pattern", ([kv.Point(-90, -18, 255), kv.Snap(), kv.MinLines(3), kv.Point(90, 10)],),
     "get_scan_pattern_status", kv.ScanPatternStatus.ACCEPTED),
]

# The simulated sensors' software version texts, ISO 8859-1 on the wire (sensor 0x10).
SOFTWARE_VERSION_TEXTS = (
    "VESK-A application 3.2.1",
    "bootloader 1.0.7 \u00a9 2024 Kov\u00e1\u00e7",
    "FPGA r\u00e9v. B\u00bd, calibration \u00b10.05\u00b0",
    "serial VSK-0010 \u00b7 M\u00fcnchen",
)

DEFAULT_DESIRED = kv.DesiredScanSettings(10.0, kv.Interlace.NONE, kv.ControlLine.LINE_0, kv.Fill.FILL_OFF)


def wait_until(predicate, timeout=3.0, what="condition"):
    """Polls `predicate` every 10 ms for at most `timeout` seconds; fails the test naming `what`."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(0.01)
    pytest.fail("not within %.1f s: %s" % (timeout, what))


def check_round_trips(sensor):
    for setter, arguments, getter, expected in ROUND_TRIPS:
        assert getattr(sensor, setter)(*arguments) is None
        assert getattr(sensor, getter)() == expected, (setter, arguments)


def wait_for_mode(sensor, command, mode):
    """Sends `command`; the getter and both events that carry the mode reach `mode`."""
    sensor.set_system_mode(command)
    wait_until(lambda: sensor.get_system_mode() == mode, what="get_system_mode() == %r" % mode)
    wait_until(lambda: sensor.events.system_mode == mode, what="events.system_mode == %r" % mode)
    wait_until(lambda: sensor.events.health.mode == mode, what="events.health.mode == %r" % mode)


def check_mode_and_events(sensor):
    """Scanning (where the achieved settings follow the desired ones), then standby."""
    wait_for_mode(sensor, kv.SystemModeCommand.SCANNING, kv.SystemMode.SCANNING)
    sensor.set_desired_scan_settings(kv.DesiredScanSettings(12.0, kv.Interlace.NONE, kv.ControlLine.LINE_0, kv.Fill.FILL_OFF))
    wait_until(lambda: sensor.events.achieved_scan_settings.value1 == 12.0, what="achieved frame rate 12")
    assert sensor.get_achieved_scan_settings() == sensor.events.achieved_scan_settings
    sensor.set_scan_datum(-3.5)
    wait_until(lambda: sensor.events.scan_datum == pytest.approx(-3.5, abs=1e-4), what="events.scan_datum")
    sensor.set_scan_pattern([kv.Snap()])
    wait_until(lambda: sensor.events.scan_pattern_status == kv.ScanPatternStatus.ACCEPTED, what="pattern status")
    wait_for_mode(sensor, kv.SystemModeCommand.STANDBY, kv.SystemMode.STANDBY)
