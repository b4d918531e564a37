"""The sensor's records and enumerations, as immutable Python values.

Field names are those of the library's typed records in snake case; enumeration values are the
library's numeric values, so ``Interlace(2)`` is the library's ``INTERLACE_3``.
"""

from __future__ import annotations

import enum
from dataclasses import dataclass


class Interlace(enum.IntEnum):
    """Horizontal interlacing of the scan lines."""

    NONE = 0
    INTERLACE_2 = 1
    INTERLACE_3 = 2
    INTERLACE_4 = 3
    INTERLACE_8 = 4


class ControlLine(enum.IntEnum):
    """Which control line drives the scan."""

    LINE_0 = 0
    LINE_1 = 1


class Fill(enum.IntEnum):
    """How gaps in the scan are filled."""

    FILL_OFF = 0
    FILL_ON = 1


class SystemModeCommand(enum.IntEnum):
    """The mode the application asks the sensor to enter."""

    STANDBY = 0
    SCANNING = 1
    SHUTDOWN = 2


class SystemMode(enum.IntEnum):
    """The mode the sensor reports; UNKNOWN until the first report."""

    UNKNOWN = 0
    INITIALIZING = 1
    STANDBY = 2
    SCANNING = 3


class ScanPatternStatus(enum.IntEnum):
    """Outcome of the last scan pattern; UNKNOWN until the first report."""

    UNKNOWN = 0
    ACCEPTED = 1
    REJECTED = 2


@dataclass(frozen=True)
class DesiredScanSettings:
    """Scan settings asked for: frame rate in hertz (the library accepts 1 to 30) and three modes."""

    frame_rate: float
    interlace: Interlace
    control_line: ControlLine
    fill: Fill


@dataclass(frozen=True)
class AchievedScanSettings:
    """Scan settings the sensor reports, carried without interpretation."""

    value1: float
    value2: float


@dataclass(frozen=True)
class SensorHealthStatus:
    """The health heartbeat: three values, the sensor's mode and five flags."""

    value1: float
    value2: float
    value3: float
    mode: SystemMode
    flag1: bool
    flag2: bool
    flag3: bool
    flag4: bool
    flag5: bool


@dataclass(frozen=True)
class SensorSoftwareVersion:
    """The sensor's four software version texts."""

    text1: str
    text2: str
    text3: str
    text4: str


@dataclass(frozen=True)
class DatapathDestination:
    """Where the sensor sends its data: IPv4 address in dotted decimal and UDP port."""

    ip: str
    port: int


@dataclass(frozen=True)
class Point:
    """Scan pattern command: aim at azimuth [-90, 90] and elevation [-18, 10] degrees."""

    azimuth: float
    elevation: float
    attribute: int = 0


@dataclass(frozen=True, match_args=False)
class Snap:
    """Scan pattern command: snap to the next position."""


@dataclass(frozen=True)
class MinLines:
    """Scan pattern command: minimum number of lines."""

    min_lines: float
