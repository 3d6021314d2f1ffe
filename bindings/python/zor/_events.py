"""Events as they are published and received, and the subscriptions to them."""
import asyncio
import json
from collections import deque
from typing import TYPE_CHECKING, Any, Callable, Deque, Dict, Optional, Tuple

from ._errors import Error, Timeout
from ._native import ffi, lib
from ._values import decode, to_json

if TYPE_CHECKING:
    from ._feeds import Feeds

FIRST = 0x2DA00  # stands for all events
JSON_LAST = 0x2DA63
LAST = 0x2DAFF


class Event:
    """What happened: payload is JSON as Python has it, or an instance of the described type that was asked for; None
    when the body is neither JSON nor items. Then it is in body."""

    __slots__ = ("type", "module", "name", "timestamp", "payload", "source", "word", "body")

    def __init__(self, type: int, word: int, source: str, body: bytes) -> None:
        self.type = type
        self.module = ""
        self.name = ""
        self.timestamp = ""
        self.payload: Any = None
        self.source = source
        self.word = word
        self.body = body

    def __repr__(self) -> str:
        return f"Event({self.type:#x}, {self.module!r}, {self.name!r}, {self.payload!r}, source={self.source!r})"


def _json_of(body: bytes) -> Optional[Dict[str, Any]]:
    try:
        value = json.loads(body.rstrip(b"\0"))
    except (ValueError, RecursionError):
        return None
    return value if isinstance(value, dict) else None


def parse(type: int, word: int, source: str, body: bytes, pointer: Any) -> Event:
    """pointer is the received body, which the library reads the items from."""
    event = Event(type, word, source, body)
    content = _json_of(body) if body[:1] == b"{" else None
    if content is None and type > JSON_LAST and body:
        text = lib.zor_py_event_text(pointer)
        if text != ffi.NULL:
            content = _json_of(ffi.string(text))
            lib.free(text)
    if content is None:
        return event
    event.module = str(content.get("Module", ""))
    event.name = str(content.get("EventType", ""))
    event.timestamp = str(content.get("Timestamp", ""))
    event.payload = content.get("Payload")
    return event


def described(event: Event, message: Any) -> Event:
    """The event with its payload as an instance of a generated class."""
    typed = Event(event.type, event.word, event.source, event.body)
    typed.module, typed.name, typed.timestamp = event.module, event.name, event.timestamp
    body = event.body if event.payload is None else to_json(event.payload)
    typed.payload = decode(message, event.word, body)
    return typed


def envelope(module: str, name: str, payload: Any) -> bytes:
    time = ffi.string(lib.ZOR_UTIL_GetCurrUTCTimeStamp()).decode()
    return to_json({"Method": "notify", "Module": module, "EventType": name, "Timestamp": time, "Payload": payload})


def items(payload: Dict[str, Any]) -> Tuple[bytes, int]:
    """Names and values as texts, each with its NUL, and how many pairs."""
    texts = bytearray()
    for name, value in payload.items():
        for text in (name, value):
            texts += (text.encode() if isinstance(text, str) else to_json(text)).replace(b"\0", b"") + b"\0"
    return bytes(texts), len(payload)


class Feed:
    """The bus's side of a subscription, which outlives nothing but its owner."""

    def __init__(self, type: int, name: Optional[str], message: Any, callback: Optional[Callable[[Event], Any]]) -> None:
        self.type = type
        self.name = name
        self.message = message
        self.callback = callback
        self.open = True
        self.queue: Deque[Event] = deque()
        self.blocked = False
        self.waiter: Optional["asyncio.Future[None]"] = None

    def wants(self, event: Event) -> bool:
        return self.open and (self.name is None or self.name == event.name)

    def put(self, event: Event) -> None:
        self.queue.append(event)
        self.wake()

    def wake(self) -> None:
        if self.blocked:
            lib.zor_py_stop()
        if self.waiter is not None and not self.waiter.done():
            self.waiter.set_result(None)


class Subscription:
    """Events to iterate over, with for or async for. It ends when it is closed or no longer referenced, when the bus is
    closed, and, in a for loop, when the bus is told to stop."""

    def __init__(self, bus: "Feeds", feed: Feed) -> None:
        self._bus = bus
        self._feed = feed

    def close(self) -> None:
        if self._feed.open:
            self._bus._unsubscribe(self._feed)

    def __del__(self) -> None:
        if self._feed.open and self._feed.callback is None:
            self._bus._abandon(self._feed)

    def __enter__(self) -> "Subscription":
        return self

    def __exit__(self, *unused: object) -> None:
        self.close()

    def get(self, timeout: Optional[float] = None) -> Event:
        """The next event, while handlers and timers run. Timeout when there is none in time."""
        event = self._wait(timeout)
        if event is None:
            raise Error("the subscription has ended")
        return event

    def _wait(self, timeout: Optional[float]) -> Optional[Event]:
        feed = self._feed
        if feed.callback is not None:
            raise Error("this subscription has a callback")
        feed.blocked = True
        try:
            if not self._bus._run_until(lambda: bool(feed.queue) or not feed.open, timeout) and not feed.queue:
                raise Timeout("no event in time")
        finally:
            feed.blocked = False
        return feed.queue.popleft() if feed.queue else None

    def __iter__(self) -> "Subscription":
        return self

    def __next__(self) -> Event:
        event = self._wait(None)
        if event is None:
            raise StopIteration
        return event

    def __aiter__(self) -> "Subscription":
        return self

    async def __anext__(self) -> Event:
        feed = self._feed
        loop = self._bus._attach()
        while not feed.queue:
            if not feed.open:
                raise StopAsyncIteration
            feed.waiter = loop.create_future()
            try:
                await feed.waiter
            finally:
                feed.waiter = None
        return feed.queue.popleft()
