"""Errors of the bus by name. Each carries the status of the library that it stands for."""
from typing import Dict, Optional, Tuple, Type

E_ARGUMENT = 0x10001
E_IO = 0x10007
ERROR_WORDS = range(0x10000, 0x20000)  # data words of error replies


class Error(Exception):
    """Anything that failed on the bus."""

    status: int = E_IO

    def __init__(self, text: str = "", status: Optional[int] = None) -> None:
        super().__init__(text)
        if status is not None:
            self.status = status


class NotConnected(Error):
    """There is no message server, or the bus is closed."""

    status = 0x10003


class Argument(Error):
    """A value that cannot be sent or understood."""

    status = E_ARGUMENT


class Refused(Error):
    """The message server granted no name."""

    status = 0x10002


class PeerGone(Error):
    """No client of that name is on the bus, or the message server has gone."""

    status = 0x10004


class Timeout(Error):
    """No reply in time."""

    status = 0x10005


class NoMemory(Error):
    """Out of memory, or a message beyond 8 MiB."""

    status = 0x10006


class Failed(Error):
    """An error reply: its text and status. A handler that raises it sends one, without a traceback.

    A status of its own must be 0x10000 to 0x1FFFF; any other becomes 0x10007.
    """

    @property
    def text(self) -> str:
        return str(self)


_BY_STATUS: Dict[int, Tuple[Type[Error], str]] = {
    0x10000: (NotConnected, "no message server"),
    0x10001: (Argument, "invalid argument"),
    0x10002: (Refused, "the message server granted no name"),
    0x10003: (NotConnected, "not connected"),
    0x10004: (PeerGone, "not on the bus"),
    0x10005: (Timeout, "no reply in time"),
    0x10006: (NoMemory, "out of memory, or too long"),
    0x10008: (Error, "the message server does not accept messages"),
    0x1000D: (Error, "a long body could not be written to its file"),
    1: (Error, "the event could not be made"),
}


def error_of(status: int, what: str) -> Error:
    kind, text = _BY_STATUS.get(status, (Error, f"status {status:#x}"))
    return kind(f"{what}: {text}", status)
