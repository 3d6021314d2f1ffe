"""The bus: joining it, serving, calling, events."""
import asyncio
import os
import struct
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Tuple, TypeVar, overload

from . import _events
from ._calls import Target, number_of
from ._errors import Argument, Error, Failed, error_of
from ._feeds import Feeds
from ._loop import Timer, _get_ident
from ._native import ffi, lib
from ._values import Request, decode, encode, error_reply, name_bytes

__all__ = ["Bus", "Timer"]

_INTROSPECT = 0x110
_SAFE_EXIT = 0x706
_GAPS = 0xFF010
_GAP = 0xFF011
_LINK_LOST = 1
_LINK_REJOINED = 2

_F = TypeVar("_F", bound=Callable[..., Any])
_current: Optional["Bus"] = None


class _Handler(NamedTuple):
    function: Callable[[Request], Any]
    is_async: bool
    oneway: bool
    described: Any


class Bus(Feeds):
    """Membership of the message bus under a name of at most 11 bytes; one per process at a time. Belongs to the thread
    that makes it. Use it with "with", or "async with" inside asyncio.

    rejoin: connect again when the message server has gone. safe_exit: stop when the bus asks for it. introspect: answer
    the request for what this daemon handles.
    """

    name: str

    def __init__(self, name: str, *, rejoin: bool = True, safe_exit: bool = True, introspect: bool = True) -> None:
        global _current
        if _current is not None:
            raise Error(f"this process is on the bus already, as {_current.name!r}")
        own_name = name_bytes(name, "name")
        if not own_name:
            raise Argument("a name is needed")
        status = lib.zor_py_open(own_name, int(rejoin))
        if status != 0:
            lib.zor_py_close()
            raise error_of(status, f"joining as {name!r}")
        super().__init__(name, own_name)
        self._handlers: Dict[int, _Handler] = {}
        self._link_handlers: Dict[int, List[Tuple[Callable[[], Any], bool]]] = {_LINK_LOST: [], _LINK_REJOINED: []}
        self._gap_handlers: List[Tuple[Callable[[int, int], Any], bool]] = []
        self._builtin: Dict[int, Callable[[Request], Any]] = {}
        if safe_exit:
            self._builtin[_SAFE_EXIT] = self._exit_safely
        if introspect:
            self._builtin[_INTROSPECT] = self._introspect
        _current = self

    # Lifetime

    def close(self) -> None:
        """Leaves the bus. Nothing of it is called any more; what waits for a reply gets PeerGone."""
        global _current
        if self._state != "open":
            return
        self._check()
        for feeds in list(self._feeds.values()):
            for feed in feeds:
                feed.open = False
                feed.wake()
        self._fail_waiting("the bus was closed")
        self._close_loop("closed")
        lib.zor_py_close()
        _current = None

    def __enter__(self) -> "Bus":
        self._check()
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()

    async def __aenter__(self) -> "Bus":
        self._attach()
        return self

    async def __aexit__(self, *unused: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<zor.Bus {self.name!r}, {self._state}>"

    # Serving

    @overload
    def serve(self, type: Target, function: None = None, *, oneway: bool = False) -> Callable[[_F], _F]: ...

    @overload
    def serve(self, type: Target, function: _F, *, oneway: bool = False) -> _F: ...

    def serve(self, type: Target, function: Any = None, *, oneway: bool = False) -> Any:
        """Handles the messages of a type: a number, or a class that zorgen made. A decorator, or called with the function.

        The function gets a Request, and its result becomes the reply: nothing an empty one; an integer the data word;
        text and bytes the body; an object of a described type its encoding; a pair a data word and one of these;
        anything else JSON. An exception becomes an error reply, and goes to on_error. oneway: there is no reply, which
        a described type says by itself. Serving a type again replaces its handler.
        """
        self._check()
        number, described = number_of(type)
        silent = oneway or getattr(described, "KIND", "") in ("oneway", "notice")

        def register(function: _F) -> _F:
            self._handlers[number] = _Handler(function, self._admit(function), silent, described)
            return function

        return register if function is None else register(function)

    def _exit_safely(self, request: Request) -> None:
        if request.source != self.name:
            self.stop(0)

    def _introspect(self, request: Request) -> Dict[str, Any]:
        handles = []
        for number, handler in sorted(self._handlers.items()):
            row: Dict[str, Any] = {"type": number, "kind": "oneway" if handler.oneway else "request"}
            if handler.described is not None:
                row["name"] = handler.described.NAME
            handles.append(row)
        events = [{"type": number} for number in sorted(self._feeds)]
        return {"name": self.name, "face": "python", "pid": os.getpid(), "handles": handles, "events": events}

    def _on_message(self, type: int, sequence: int, word: int, source: str, body: bytes, pointer: Any) -> None:
        if (self._waiting or self._late) and self._take_reply(type, sequence, word, source, body):
            return
        handler = self._handlers.get(type)
        if handler is not None:
            self._handle(handler, Request(self, type, sequence, word, source, body, handler.oneway))
        elif _events.FIRST < type <= _events.LAST:
            self._on_event(type, word, source, body, pointer)
        elif type in self._builtin:
            builtin = _Handler(self._builtin[type], False, False, None)
            self._handle(builtin, Request(self, type, sequence, word, source, body, False))
        elif type == _GAP:
            self._on_gap(body)

    def _handle(self, handler: _Handler, request: Request) -> None:
        try:
            if handler.described is not None:
                request.message = decode(_message_of(handler.described), request.word, request.body)
            result = handler.function(request)
            if handler.is_async:
                self._spawn(result, "handler", lambda task: self._end_async(handler, request, task))
                return
            if not request._deferred:
                self._answer_typed(handler, request, result)
        except BaseException as error:
            self._fail(request, error)

    def _end_async(self, handler: _Handler, request: Request, task: "asyncio.Task[Any]") -> None:
        try:
            result = task.result()
            if not request._deferred:
                self._answer_typed(handler, request, result)
        except asyncio.CancelledError:
            if self._state == "open":
                self._fail(request, Failed("the handler was cancelled"))
        except BaseException as error:
            self._fail(request, error)

    def _answer_typed(self, handler: _Handler, request: Request, result: Any) -> None:
        if not request._open:
            return
        reply = getattr(handler.described, "Reply", None)
        if reply is not None and isinstance(result, dict):
            result = reply(**result)
        self._answer(request, result)

    def _answer(self, request: Request, value: Any) -> None:
        self._check()
        word, body = encode(value)
        if not request._open:
            raise Argument("a one-way message, or replied to already")
        request._open = False
        self._send(request.source.encode(), request.type, word, request.sequence, body, request.source)

    def _fail(self, request: Request, error: BaseException) -> None:
        answers = request._open and self._state == "open"
        if not (answers and isinstance(error, Failed)):
            self._report(error, "handler")
        if answers:
            try:
                self._answer(request, error_reply(error))
            except Error as second:
                self._report(second, "handler")

    def _drop(self, request: Request) -> None:
        """For a deferred reply that nobody has any more, in whatever thread the last reference ended."""
        if self._state != "open":
            return
        failure = Failed("the request was dropped without a reply")
        if _get_ident() == self._thread:
            self._report(failure, "deferred reply")
            self._fail(request, failure)
        else:
            self.call_soon_threadsafe(lambda: self._drop(request))

    # The connection

    def on_lost(self, function: _F) -> _F:
        """Called when the message server has gone."""
        self._check()
        self._link_handlers[_LINK_LOST].append((function, self._admit(function)))
        return function

    def on_rejoined(self, function: _F) -> _F:
        """Called when the name is back on the bus, with all subscriptions."""
        self._check()
        self._link_handlers[_LINK_REJOINED].append((function, self._admit(function)))
        return function

    def on_gap(self, function: _F) -> _F:
        """Asks the server to tell which events this daemon missed because it did not read in time. Called with a type and a
        number of events, before the next event; type 0x2DA00 stands for those that the server could not tell apart."""
        self._check()
        self._gap_handlers.append((function, self._admit(function)))
        if len(self._gap_handlers) == 1:
            self._ask_for_gaps()
        return function

    def _ask_for_gaps(self) -> None:
        self._send(b"", _GAPS, 1, lib.zor_py_next(), b"", "")

    def _on_gap(self, body: bytes) -> None:
        head = struct.Struct("=QII")
        if len(body) < head.size:
            return
        _, rest, types = head.unpack_from(body)
        rows = list(struct.iter_unpack("=II", body[head.size:head.size + min(types, (len(body) - head.size) // 8) * 8]))
        rest -= sum(count for _, count in rows)
        for type, count in rows + ([(_events.FIRST, rest)] if rest > 0 else []):
            for function, is_async in list(self._gap_handlers):
                self._invoke(function, is_async, "gap handler", type, count)

    def _on_link(self, event: int) -> None:
        if event == _LINK_LOST:
            self._fail_waiting("the message server has gone")
        if event == _LINK_REJOINED and self._gap_handlers:
            try:
                self._ask_for_gaps()
            except Error as error:
                self._report(error, "connection")
        for function, is_async in list(self._link_handlers.get(event, [])):
            self._invoke(function, is_async, "connection handler")


def _message_of(described: Any) -> Any:
    return described.Request if hasattr(described, "Request") else described.Message


def _on_escape(kind: Any, error: BaseException, trace: Any) -> None:
    """An exception between a callback's first instruction and its own handling, as a signal may cause."""
    if _current is not None:
        _current._report(error, "callback")


@ffi.def_extern(onerror=_on_escape)
def zor_py_on_message(type: int, sequence: int, word: int, source: Any, body: Any, length: int) -> None:
    bus = _current
    if bus is not None:
        bus._on_message(type, sequence, word, ffi.string(source).decode(errors="replace"), ffi.unpack(body, length), body)


@ffi.def_extern(onerror=_on_escape)
def zor_py_on_link(event: int) -> None:
    if _current is not None:
        _current._on_link(event)


@ffi.def_extern(onerror=_on_escape)
def zor_py_on_timer(number: int) -> None:
    function = None if _current is None else _current._ids.get(number)
    if function is not None:
        function()


@ffi.def_extern(onerror=_on_escape)
def zor_py_on_readable(number: int) -> None:
    function = None if _current is None else _current._ids.get(number)
    if function is not None:
        function()


def _after_fork() -> None:
    global _current
    bus, _current = _current, None
    if bus is not None:
        bus._forget_loop()


os.register_at_fork(after_in_child=_after_fork)
