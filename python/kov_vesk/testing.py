"""pytest fixtures for tests that drive sensors without hardware: ``pytest -p kov_vesk.testing``.

- ``simulated_fleet``: a started kov_vesk.Fleet.simulated() whose three sensors were discovered.
- ``sensord``: a vesk-sensord serving simulated sensors over SOME/IP on a free loopback address and
  SD port, stopped afterwards; ``sensord.fleet()`` makes a SOME/IP fleet that reaches it. The program
  is $KOV_VESK_SENSORD, else vesk-sensord on the PATH.
"""

from __future__ import annotations

import errno
import os
import random
import selectors
import shutil
import socket
import subprocess
import time
from dataclasses import dataclass
from collections.abc import Iterator
from typing import List, Optional

import pytest

import kov_vesk

#: How long vesk-sensord may take to start serving, and to end after SIGTERM, in seconds.
START_TIMEOUT = 5.0
STOP_TIMEOUT = 5.0
#: How many loopback addresses are tried for a free one.
ADDRESS_ATTEMPTS = 50


def free_loopback_address(exclude: Optional[List[str]] = None) -> str:
    """A random 127.x.y.z address that `exclude` does not hold (every 127/8 address is the loopback)."""
    for _ in range(ADDRESS_ATTEMPTS):
        address = "127.%d.%d.%d" % (random.randint(1, 254), random.randint(0, 255), random.randint(2, 254))
        if exclude and address in exclude:
            continue
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            try:
                probe.bind((address, 0))
            except OSError as error:
                if error.errno == errno.EADDRNOTAVAIL:
                    raise RuntimeError("loopback addresses other than 127.0.0.1 are not usable here") from error
                continue
            return address
    raise RuntimeError("no free loopback address found in %d attempts" % ADDRESS_ATTEMPTS)


def free_udp_port(address: str) -> int:
    """A UDP port that nothing holds on `address` now."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind((address, 0))
        return int(probe.getsockname()[1])


@dataclass
class SensordServer:
    """A running vesk-sensord: where it serves and how to reach it."""

    unicast: str
    sd_multicast: str
    sd_port: int
    sensors: int
    process: "subprocess.Popen[str]"

    def fleet(self, call_timeout: float = 1.0) -> kov_vesk.Fleet:
        """A SOME/IP fleet on another free loopback address, with this server's SD group and port."""
        return kov_vesk.Fleet.someip(
            free_loopback_address(exclude=[self.unicast]),
            sd_multicast=self.sd_multicast,
            sd_port=self.sd_port,
            call_timeout=call_timeout,
        )


def _wait_for_line(process: "subprocess.Popen[str]", text: str, timeout: float) -> str:
    """Reads the process's output until a line contains `text`; what was read on failure."""
    assert process.stdout is not None
    seen = ""
    deadline = time.monotonic() + timeout
    with selectors.DefaultSelector() as selector:
        selector.register(process.stdout, selectors.EVENT_READ)
        while time.monotonic() < deadline:
            if not selector.select(timeout=max(0.0, deadline - time.monotonic())):
                break
            line = process.stdout.readline()
            if not line:
                break
            seen += line
            if text in line:
                return ""
    return seen or "(no output)"


def start_sensord(sensors: int = 3, sd_multicast: str = "224.224.224.245") -> SensordServer:
    """Starts vesk-sensord on a free loopback address and SD port; waits until it serves."""
    program = os.environ.get("KOV_VESK_SENSORD") or shutil.which("vesk-sensord")
    if not program:
        pytest.skip("vesk-sensord not found: set KOV_VESK_SENSORD or put it on the PATH")
    unicast = free_loopback_address()
    sd_port = free_udp_port(unicast)
    command = [program, "--unicast", unicast, "--sensors", str(sensors), "--sd-multicast", sd_multicast,
               "--sd-port", str(sd_port)]
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    problem = _wait_for_line(process, "vesk-sensord: %d sensor" % sensors, START_TIMEOUT)
    if problem:
        stop_sensord(process)
        raise RuntimeError("vesk-sensord did not start serving within %.0f s: %s" % (START_TIMEOUT, problem))
    return SensordServer(unicast, sd_multicast, sd_port, sensors, process)


def stop_sensord(process: "subprocess.Popen[str]") -> None:
    """Stops vesk-sensord (SIGTERM, then SIGKILL after STOP_TIMEOUT)."""
    process.terminate()
    try:
        process.wait(timeout=STOP_TIMEOUT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait(timeout=STOP_TIMEOUT)
    for stream in (process.stdout, process.stderr):
        if stream is not None:
            stream.close()


@pytest.fixture
def simulated_fleet() -> Iterator[kov_vesk.Fleet]:
    """A started simulated fleet of three sensors, all discovered; closed afterwards."""
    with kov_vesk.Fleet.simulated(sensors=3) as fleet:
        fleet.wait_for_sensors(count=3)
        yield fleet


@pytest.fixture
def sensord() -> Iterator[SensordServer]:
    """vesk-sensord with three sensors on a free loopback address; stopped afterwards."""
    server = start_sensord()
    try:
        yield server
    finally:
        stop_sensord(server.process)
