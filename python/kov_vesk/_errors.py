"""The exceptions that failed sensor calls raise."""

from __future__ import annotations

from typing import Optional


class CallError(Exception):
    """A sensor call failed.

    ``reason`` is the library's explanation; ``code`` the transport's result code (as that transport
    documents it) when the call reached the transport and failed there, else ``None``.
    """

    def __init__(self, reason: str, code: Optional[int] = None) -> None:
        super().__init__(reason)
        self.reason = reason
        self.code = code


class Timeout(CallError):
    """The transport gave up waiting for the sensor's response."""


class Unavailable(CallError):
    """The service that the call needs is not available."""


class Rejected(CallError):
    """The sensor answered the call with an error."""
