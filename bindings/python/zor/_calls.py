"""Sending, calling and descriptors: the half of the bus that asks."""
import asyncio
from collections import OrderedDict
from typing import Any, Dict, Optional, Tuple, Type, Union

from ._errors import Argument, Error, PeerGone, Timeout, error_of
from ._loop import Loop, seconds_to_slices
from ._native import ffi, lib
from ._values import Described, Reply, decode, encode, failure_of, name_bytes

_SEND_FAILED = 0x108
_TYPE_MASK = 0xFFFFF
_AGAIN = 2
_FLOODED = 3
_LATE_MAX = 1024

Target = Union[int, Type[Described]]


def number_of(type: Target) -> Tuple[int, Any]:
    number, described = (type, None) if isinstance(type, int) else (getattr(type, "TYPE", None), type)
    if number is None:
        raise Argument(f"{type!r} is no message type: it is a number, or a class that zorgen made")
    if not 0 < number <= _TYPE_MASK:
        raise Argument(f"{number:#x} is no message type")
    return number, described


def _text(field: Any) -> str:
    return ffi.string(field, 12).decode(errors="replace")


def _result(reply: Reply, described: Any, destination: str) -> Any:
    failure = failure_of(reply.word, reply.body) if reply.word >= 0x10000 else None
    if failure is not None:
        raise failure
    return reply if described is None else decode(described.Reply, reply.word, reply.body)


class _Waiting:
    """A request of acall(). One to oneself looks on the wire like its reply, before which it comes back."""

    __slots__ = ("name", "future", "comes_back")

    def __init__(self, name: bytes, future: "asyncio.Future[Reply]", comes_back: bool) -> None:
        self.name = name
        self.future = future
        self.comes_back = comes_back


class Calls(Loop):
    def __init__(self, name: str, own_name: bytes) -> None:
        super().__init__()
        self.name = name
        self._own_name = own_name
        self._waiting: Dict[Tuple[int, int], _Waiting] = {}
        self._late: "OrderedDict[Tuple[int, int], None]" = OrderedDict()
        self._status = ffi.new("uint32_t *")

    def _send(self, destination: bytes, type: int, word: int, sequence: int, body: bytes, to: str) -> None:
        status = lib.zor_py_send(destination, type, word, sequence, body, len(body))
        if status != 0:
            raise error_of(status, f"sending {type:#x} to {to!r}")

    def send(self, destination: str, type: Target, payload: Any = None, word: int = 0) -> None:
        """Sends a message without waiting for anything. An empty destination is the message server. The payload is as the
        result of a handler; word holds unless the payload has one."""
        self._begin(destination, type, payload, word)

    def _begin(self, destination: str, type: Target, payload: Any, word: int) -> Tuple[int, int, bytes, Any]:
        self._check()
        number, described = number_of(type)
        name = name_bytes(destination, "destination")
        own_word, body = encode(payload)
        sequence = lib.zor_py_next()
        self._send(name, number, own_word or encode(word)[0], sequence, body, destination)
        return number, sequence, name, described

    def call(self, destination: str, type: Target, payload: Any = None, word: int = 0, *,
             timeout: Optional[float] = 5.0) -> Any:
        """Sends a request and returns its Reply, or that of a described type as its instance. Raises PeerGone when nobody
        has the name, Timeout, and Failed for an error reply. Messages that come meanwhile are handled later, so calling
        oneself does not work; None waits without limit."""
        if destination == self.name:
            raise Argument("a daemon that waits for itself would wait for ever: await acall()")
        number, sequence, name, described = self._begin(destination, type, payload, word)
        left = seconds_to_slices(timeout)
        status = self._status
        milliseconds = left()
        try:
            while True:
                message = lib.zor_py_await(name, number, sequence, milliseconds, status)
                if message != ffi.NULL:
                    break
                if status[0] == _AGAIN:
                    milliseconds = left()
                    if milliseconds > 0:
                        continue
                raise self._no_reply(number, sequence, destination, status[0])
        except KeyboardInterrupt:
            self._expect_late(number, sequence)
            raise
        finally:
            self._sync()
        reply = Reply(message.data, ffi.buffer(message + 1, message.bodyLength)[:], _text(message.source))
        lib.free(message)
        return _result(reply, described, destination)

    def _no_reply(self, type: int, sequence: int, destination: str, status: int) -> Error:
        self._expect_late(type, sequence)
        what = f"request {type:#x} to {destination!r}"
        if status == _FLOODED:
            return Timeout(f"{what}: too many other messages came first")
        return Timeout(f"{what}: no reply in time") if status == _AGAIN else error_of(status, what)

    def _expect_late(self, type: int, sequence: int) -> None:
        """A reply to this number is dropped: nobody may take it for a request."""
        self._late[type, sequence] = None
        if len(self._late) > _LATE_MAX:
            self._late.popitem(last=False)

    async def acall(self, destination: str, type: Target, payload: Any = None, word: int = 0, *,
                    timeout: Optional[float] = 5.0) -> Any:
        """call() inside asyncio: other coroutines and handlers run meanwhile. Replies of more than 2 MiB do not come."""
        loop = self._attach()
        number, sequence, name, described = self._begin(destination, type, payload, word)
        key = number, sequence
        future: "asyncio.Future[Reply]" = loop.create_future()
        self._waiting[key] = _Waiting(name, future, name == self._own_name)
        try:
            reply = await asyncio.wait_for(future, timeout)
        except asyncio.TimeoutError:
            raise Timeout(f"request {number:#x} to {destination!r}: no reply in time") from None
        finally:
            if self._waiting.pop(key, None) is not None and not future.done() or future.cancelled():
                self._expect_late(number, sequence)
        return _result(reply, described, destination)

    def _take_reply(self, type: int, sequence: int, word: int, source: str, body: bytes) -> bool:
        key = (word & _TYPE_MASK, sequence) if type == _SEND_FAILED else (type, sequence)
        if key in self._late:
            del self._late[key]
            return True
        waiting = self._waiting.get(key)
        if waiting is None:
            return False
        name, future = waiting.name, waiting.future
        if type != _SEND_FAILED and (name and name != source.encode() or waiting.comes_back):
            waiting.comes_back = False
            return False
        del self._waiting[key]
        if future.done():
            return True
        if type == _SEND_FAILED:
            future.set_exception(PeerGone(f"request {key[0]:#x} to {name.decode()!r}: not on the bus"))
        else:
            future.set_result(Reply(word, body, source))
        return True

    def _fail_waiting(self, why: str) -> None:
        waiting, self._waiting = self._waiting, {}
        for (type, _), call in waiting.items():
            if not call.future.done():
                call.future.set_exception(PeerGone(f"request {type:#x} to {call.name.decode()!r}: {why}"))

    # Descriptors

    def send_fd(self, destination: str, type: Target, fd: int, payload: Any = None, word: int = 0) -> None:
        """Sends a message and a descriptor behind it, which stays open here."""
        self.send(destination, type, payload, word)
        status = lib.ZOR_MSG_SendFd(fd)
        if status != 0:
            raise error_of(status, f"passing descriptor {fd} to {destination!r}")

    def _receive_fd(self, timeout: Optional[float]) -> int:
        self._check()
        left = seconds_to_slices(timeout)
        try:
            while True:
                milliseconds = left()
                fd = lib.zor_py_receive_fd(milliseconds, self._status)
                if fd >= 0:
                    return fd
                if self._status[0] != _AGAIN:
                    raise error_of(self._status[0], "receiving a descriptor")
                if milliseconds == 0:
                    raise Timeout("no descriptor in time")
        finally:
            self._sync()
