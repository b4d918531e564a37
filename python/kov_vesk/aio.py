"""asyncio wrappers: the same fleet and sensors, every blocking call run in a worker thread.

>>> async with kov_vesk.aio.Fleet.simulated() as fleet:
...     ids = await fleet.wait_for_sensors(count=3)
...     mode = await fleet.sensor(ids[0]).get_system_mode()
"""

from __future__ import annotations

import asyncio
from types import TracebackType
import typing
from typing import Callable, Dict, List, Optional, Type, TypeVar, Union

import kov_vesk
from kov_vesk._records import (
    AchievedScanSettings,
    DatapathDestination,
    DesiredScanSettings,
    MinLines,
    Point,
    ScanPatternStatus,
    SensorSoftwareVersion,
    Snap,
    SystemMode,
    SystemModeCommand,
)

_T = TypeVar("_T")


async def _run(call: Callable[..., _T], *args: object) -> _T:
    return await asyncio.to_thread(call, *args)


class Sensor:
    """One sensor (see kov_vesk.Sensor); every method is a coroutine."""

    def __init__(self, sensor: kov_vesk.Sensor) -> None:
        self._sensor = sensor

    @property
    def id(self) -> int:
        """The sensor id (its SOME/IP instance id)."""
        return self._sensor.id

    @property
    def services(self) -> Dict[int, bool]:
        """Dict of service id to availability."""
        return self._sensor.services

    @property
    def events(self) -> kov_vesk.Events:
        """The latest event values; reading them does not block."""
        return self._sensor.events

    async def get_system_mode(self) -> SystemMode:
        """The sensor's system mode."""
        return await _run(self._sensor.get_system_mode)

    async def set_system_mode(self, command: SystemModeCommand) -> None:
        """Asks the sensor to enter a mode."""
        await _run(self._sensor.set_system_mode, command)

    async def get_desired_scan_settings(self) -> DesiredScanSettings:
        """The scan settings asked for."""
        return await _run(self._sensor.get_desired_scan_settings)

    async def set_desired_scan_settings(self, settings: DesiredScanSettings) -> None:
        """Asks for scan settings."""
        await _run(self._sensor.set_desired_scan_settings, settings)

    async def get_achieved_scan_settings(self) -> AchievedScanSettings:
        """The scan settings the sensor achieves."""
        return await _run(self._sensor.get_achieved_scan_settings)

    async def get_scan_datum(self) -> float:
        """The scan datum elevation in degrees."""
        return await _run(self._sensor.get_scan_datum)

    async def set_scan_datum(self, degrees: float) -> None:
        """Sets the scan datum elevation in degrees."""
        await _run(self._sensor.set_scan_datum, degrees)

    async def set_scan_pattern(self, commands: typing.Iterable[Union[Point, Snap, MinLines]]) -> None:
        """Sends a scan pattern of up to 88 commands."""
        await _run(self._sensor.set_scan_pattern, list(commands))

    async def get_scan_pattern_status(self) -> ScanPatternStatus:
        """The outcome of the last scan pattern."""
        return await _run(self._sensor.get_scan_pattern_status)

    async def get_software_version(self) -> SensorSoftwareVersion:
        """The sensor's software version texts."""
        return await _run(self._sensor.get_software_version)

    async def get_datapath_destination(self) -> DatapathDestination:
        """Where the sensor sends its data."""
        return await _run(self._sensor.get_datapath_destination)

    async def set_datapath_destination(self, ip: str, port: int) -> None:
        """Sets where the sensor sends its data."""
        await _run(self._sensor.set_datapath_destination, ip, port)


class Fleet:
    """A fleet (see kov_vesk.Fleet) for `async with`; waits and calls run in worker threads."""

    def __init__(self, fleet: kov_vesk.Fleet) -> None:
        self._fleet = fleet

    @classmethod
    def simulated(cls, sensors: int = 3, legacy: bool = False, call_timeout: float = 0.05) -> "Fleet":
        """A fleet of simulated sensors, as kov_vesk.Fleet.simulated."""
        return cls(kov_vesk.Fleet.simulated(sensors=sensors, legacy=legacy, call_timeout=call_timeout))

    @classmethod
    def someip(
        cls,
        unicast: str,
        sd_multicast: str = "224.224.224.245",
        sd_port: int = 30490,
        call_timeout: float = 1.0,
    ) -> "Fleet":
        """Sensors over SOME/IP, as kov_vesk.Fleet.someip."""
        return cls(
            kov_vesk.Fleet.someip(
                unicast, sd_multicast=sd_multicast, sd_port=sd_port, call_timeout=call_timeout
            )
        )

    @property
    def faults(self) -> kov_vesk.Faults:
        """Fault injection of the simulated fleet."""
        return self._fleet.faults

    async def start(self) -> None:
        """Connects and starts discovery."""
        await _run(self._fleet.start)

    async def close(self) -> None:
        """Stops discovery and shuts the library down."""
        await _run(self._fleet.close)

    async def __aenter__(self) -> "Fleet":
        await self.start()
        return self

    async def __aexit__(
        self,
        exc_type: Optional[Type[BaseException]],
        exc: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.close()

    async def wait_for_sensors(
        self, count: Optional[int] = None, sensor: Optional[int] = None, timeout: float = 5.0
    ) -> List[int]:
        """Waits for sensors as kov_vesk.Fleet.wait_for_sensors, without blocking the loop."""
        return await _run(self._fleet.wait_for_sensors, count, sensor, timeout)

    def sensor_ids(self) -> List[int]:
        """The ids of the sensors discovered so far."""
        return self._fleet.sensor_ids()

    def sensor(self, id: int) -> Sensor:
        """The sensor with this id; KeyError for an unknown id."""
        return Sensor(self._fleet.sensor(id))

    def on_availability(self, callback: Callable[[int, int, bool], object]) -> kov_vesk.AvailabilityHandle:
        """Registers an availability callback (called on the transport's thread)."""
        return self._fleet.on_availability(callback)
