"""Drive VESK lidar sensors from Python: the sensor control library over the built-in simulated
fleet or over SOME/IP.

>>> import kov_vesk
>>> with kov_vesk.Fleet.simulated(sensors=2) as fleet:
...     ids = fleet.wait_for_sensors(count=2)
...     mode = fleet.sensor(ids[0]).get_system_mode()
"""

import atexit as _atexit

from kov_vesk._errors import CallError, Rejected, Timeout, Unavailable
from kov_vesk._native import (
    AvailabilityHandle,
    Events,
    Faults,
    Fleet,
    Sensor,
    disable_logging,
    enable_logging,
)
from kov_vesk._records import (
    AchievedScanSettings,
    ControlLine,
    DatapathDestination,
    DesiredScanSettings,
    Fill,
    Interlace,
    MinLines,
    Point,
    ScanPatternStatus,
    SensorHealthStatus,
    SensorSoftwareVersion,
    Snap,
    SystemMode,
    SystemModeCommand,
)
from kov_vesk import _native

# Transport threads must be stopped while the interpreter can still run their callbacks.
_atexit.register(_native._close_live_fleets)

__all__ = [
    "AchievedScanSettings",
    "AvailabilityHandle",
    "CallError",
    "ControlLine",
    "DatapathDestination",
    "DesiredScanSettings",
    "Events",
    "Faults",
    "Fill",
    "Fleet",
    "Interlace",
    "MinLines",
    "Point",
    "Rejected",
    "ScanPatternStatus",
    "Sensor",
    "SensorHealthStatus",
    "SensorSoftwareVersion",
    "Snap",
    "SystemMode",
    "SystemModeCommand",
    "Timeout",
    "Unavailable",
    "disable_logging",
    "enable_logging",
]
