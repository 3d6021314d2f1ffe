"""The bus: joining it, serving, calling, events."""
import asyncio
import os
import struct
from collections import OrderedDict
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Tuple, Type, TypeVar, Union, overload

from . import _events, _types
from ._errors import E_ARGUMENT, Argument, Error, Failed, PeerGone, Timeout, error_of
from ._events import Event, Feed, Subscription
from ._loop import Loop, Timer, _get_ident, seconds_to_slices
from ._native import ffi, lib
from ._values import Described, Reply, Request, decode, encode, error_reply, failure_of, name_bytes, to_json

__all__ = ["Bus", "Timer"]

_SEND_FAILED = 0x108
_INTROSPECT = 0x110
_SAFE_EXIT = 0x706
_GAPS = 0xFF010
_GAP = 0xFF011
_TYPE_MASK = 0xFFFFF
_AGAIN = 2
_FLOODED = 3
_LINK_LOST = 1
_LINK_REJOINED = 2
_LATE_MAX = 1024

_Target = Union[int, Type[Described]]
_F = TypeVar("_F", bound=Callable[..., Any])
_current: Optional["Bus"] = None


class _Handler(NamedTuple):
    function: Callable[[Request], Any]
    is_async: bool
    oneway: bool
    described: Any


class _Waiting:
    """A request of acall(). One to oneself looks on the wire like its reply, before which it comes back."""

    __slots__ = ("name", "future", "comes_back")

    def __init__(self, name: bytes, future: "asyncio.Future[Reply]", comes_back: bool) -> None:
        self.name = name
        self.future = future
        self.comes_back = comes_back


class Bus(Loop):
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
        self._own_name = name_bytes(name, "name")
        if not self._own_name:
            raise Argument("a name is needed")
        self.name = name
        status = lib.zor_py_open(self._own_name, int(rejoin))
        if status != 0:
            lib.zor_py_close()
            raise error_of(status, f"joining as {name!r}")
        super().__init__()
        self._handlers: Dict[int, _Handler] = {}
        self._waiting: Dict[Tuple[int, int], _Waiting] = {}
        self._late: "OrderedDict[Tuple[int, int], None]" = OrderedDict()
        self._feeds: Dict[int, List[Feed]] = {}
        self._modules: Dict[str, int] = {}
        self._link_handlers: Dict[int, List[Tuple[Callable[[], Any], bool]]] = {_LINK_LOST: [], _LINK_REJOINED: []}
        self._gap_handlers: List[Tuple[Callable[[int, int], Any], bool]] = []
        self._status = ffi.new("uint32_t *")
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
    def serve(self, type: _Target, function: None = None, *, oneway: bool = False) -> Callable[[_F], _F]: ...

    @overload
    def serve(self, type: _Target, function: _F, *, oneway: bool = False) -> _F: ...

    def serve(self, type: _Target, function: Any = None, *, oneway: bool = False) -> Any:
        """Handles the messages of a type: a number, or a class that zorgen made. A decorator, or called with the function.

        The function gets a Request, and its result becomes the reply: nothing an empty one; an integer the data word;
        text and bytes the body; an object of a described type its encoding; a pair a data word and one of these;
        anything else JSON. An exception becomes an error reply, and goes to on_error. oneway: there is no reply, which
        a described type says by itself. Serving a type again replaces its handler.
        """
        self._check()
        number, described = _number_of(type)
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

    # Sending and calling

    def _send(self, destination: bytes, type: int, word: int, sequence: int, body: bytes, to: str) -> None:
        status = lib.zor_py_send(destination, type, word, sequence, body, len(body))
        if status != 0:
            raise error_of(status, f"sending {type:#x} to {to!r}")

    def send(self, destination: str, type: _Target, payload: Any = None, word: int = 0) -> None:
        """Sends a message without waiting for anything. An empty destination is the message server. The payload is as the
        result of a handler; word holds unless the payload has one."""
        self._begin(destination, type, payload, word)

    def _begin(self, destination: str, type: _Target, payload: Any, word: int) -> Tuple[int, int, bytes, Any]:
        self._check()
        number, described = _number_of(type)
        name = name_bytes(destination, "destination")
        own_word, body = encode(payload)
        sequence = lib.zor_py_next()
        self._send(name, number, own_word or encode(word)[0], sequence, body, destination)
        return number, sequence, name, described

    def call(self, destination: str, type: _Target, payload: Any = None, word: int = 0, *,
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

    async def acall(self, destination: str, type: _Target, payload: Any = None, word: int = 0, *,
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

    def send_fd(self, destination: str, type: _Target, fd: int, payload: Any = None, word: int = 0) -> None:
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

    # Events

    def module(self, name: str, type: int) -> None:
        """Declares the type of a module's events, for modules that neither the library nor a type file knows."""
        if not _events.FIRST < type <= _events.LAST:
            raise Argument(f"{type:#x} is no type of an event")
        self._modules[name] = type

    def _module_type(self, name: str) -> int:
        if name not in self._modules:
            number = lib.ZOR_EVT_GetMsgTypeByEventModuleName(name.encode())
            problems: List[str] = []
            if number == _events.FIRST:
                found, problems = _types.modules()
                number = found.get(name, 0)
            if number == 0:
                raise Argument("; ".join([f"no type is known for module {name!r}: declare it with module()", *problems]))
            self.module(name, number)
        return self._modules[name]

    def _event_target(self, target: Union[str, _Target]) -> Tuple[int, Any]:
        number, described = (self._module_type(target), None) if isinstance(target, str) else _number_of(target)
        if not _events.FIRST <= number <= _events.LAST:
            raise Argument(f"{number:#x} is no type of an event")
        return number, described

    def publish(self, target: Union[str, _Target], *arguments: Any) -> None:
        """publish(module or type, name, payload), or publish(class, message) for a described event."""
        self._check()
        number, described = self._event_target(target)
        if number == _events.FIRST:
            raise Argument("this type stands for all events")
        if described is not None:
            if len(arguments) != 1:
                raise Argument("publish(class, message)")
            message = arguments[0] if not isinstance(arguments[0], dict) else described.Message(**arguments[0])
            self._publish_described(number, described, message)
            return
        if not 1 <= len(arguments) <= 2:
            raise Argument("publish(module or type, name, payload)")
        module = target if isinstance(target, str) else self._module_of(number)
        payload = arguments[1] if len(arguments) == 2 else {}
        self._publish(number, module, str(arguments[0]), {} if payload is None else payload)

    def _module_of(self, number: int) -> str:
        text = lib.ZOR_EVT_GetEventModuleNameByEventType(number)
        if text != ffi.NULL:
            return ffi.string(text).decode()
        known = {**_types.modules()[0], **self._modules}
        return next((name for name, type in known.items() if type == number), "")

    def _publish(self, number: int, module: str, name: str, payload: Any) -> None:
        if number > _events.JSON_LAST and isinstance(payload, dict) and payload:
            texts, count = _events.items(payload)
            status = lib.zor_py_publish_items(number, name.encode(), texts, count)
            if status != 0:
                raise error_of(status, f"publishing {name!r}")
            return
        self._send(b"", number, 0, lib.zor_py_next(), _events.envelope(module, name, payload), "")

    def _publish_described(self, number: int, described: Any, message: Any) -> None:
        word, body = message.encode()
        payload = _events._json_of(body) if body[:1] == b"{" else None
        if payload is None:
            self._send(b"", number, word, lib.zor_py_next(), body, "")
        else:
            self._publish(number, described.MODULE, described.EVENT, payload)

    def events(self, target: Union[str, _Target], name: Optional[str] = None) -> Subscription:
        """Events of a module or type, with that name only if one is given, to iterate over: with for, in which handlers
        run while it waits, or with async for."""
        return self._subscribe(target, name, None)

    def on(self, target: Union[str, _Target], function: Optional[Callable[[Event], Any]] = None, *,
           name: Optional[str] = None) -> Any:
        """Calls the function with each such event until the Subscription that it returns is closed. A decorator without a
        function."""
        if function is not None:
            return self._subscribe(target, name, function)

        def decorate(function: _F) -> _F:
            self._subscribe(target, name, function)
            return function

        return decorate

    def _subscribe(self, target: Union[str, _Target], name: Optional[str],
                   callback: Optional[Callable[[Event], Any]]) -> Subscription:
        self._check()
        number, described = self._event_target(target)
        if described is not None and name is None:
            name = getattr(described, "EVENT", None) or None
        if callback is not None and self._admit(callback):
            callback = self._as_task(callback)
        feed = Feed(number, name, getattr(described, "Message", None), callback)
        feeds = self._feeds.setdefault(number, [])
        feeds.append(feed)
        if len(feeds) == 1:
            status = lib.ZOR_MSG_SubscribeEventForOtherApp(number, self._own_name)
            if status != 0:
                del self._feeds[number]
                raise error_of(status, f"subscribing to {number:#x}")
        return Subscription(self, feed)

    def _as_task(self, function: Callable[[Event], Any]) -> Callable[[Event], Any]:
        return lambda event: self._spawn(function(event), "event handler")

    def _unsubscribe(self, feed: Feed) -> None:
        self._check()
        feed.open = False
        feed.wake()
        feeds = self._feeds.get(feed.type, [])
        feeds.remove(feed)
        if feeds:
            return
        del self._feeds[feed.type]
        status = lib.ZOR_MSG_UnSubscribeEventForOtherApp(feed.type, self._own_name)
        if status not in (0, PeerGone.status):  # a server that has gone has forgotten it
            raise error_of(status, f"unsubscribing from {feed.type:#x}")

    def _abandon(self, feed: Feed) -> None:
        """For a subscription that nobody has any more, in whatever thread the last reference ended."""
        if self._state != "open":
            return
        try:
            self._unsubscribe(feed)
        except Error:
            self.call_soon_threadsafe(lambda: self._unsubscribe(feed) if feed.open else None)

    def _on_event(self, type: int, word: int, source: str, body: bytes, pointer: Any) -> None:
        feeds = self._feeds.get(type, []) + self._feeds.get(_events.FIRST, [])
        if not feeds:
            return
        event = _events.parse(type, word, source, body, pointer)
        for feed in feeds:
            if not feed.wants(event):
                continue
            try:
                wanted = event if feed.message is None else _events.described(event, feed.message)
                if feed.callback is None:
                    feed.put(wanted)
                else:
                    feed.callback(wanted)
            except BaseException as error:
                self._report(error, "event handler")

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


def _number_of(type: _Target) -> Tuple[int, Any]:
    number, described = (type, None) if isinstance(type, int) else (getattr(type, "TYPE", None), type)
    if number is None:
        raise Argument(f"{type!r} is no message type: it is a number, or a class that zorgen made")
    if not 0 < number <= _TYPE_MASK:
        raise Argument(f"{number:#x} is no message type")
    return number, described


def _message_of(described: Any) -> Any:
    return described.Request if hasattr(described, "Request") else described.Message


def _text(field: Any) -> str:
    return ffi.string(field, 12).decode(errors="replace")


def _result(reply: Reply, described: Any, destination: str) -> Any:
    failure = failure_of(reply.word, reply.body) if reply.word >= 0x10000 else None
    if failure is not None:
        raise failure
    return reply if described is None else decode(described.Reply, reply.word, reply.body)


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
