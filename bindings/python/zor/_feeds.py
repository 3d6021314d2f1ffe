"""Publishing and subscribing: the half of the bus that knows events."""
from typing import Any, Callable, Dict, List, Optional, Tuple, TypeVar, Union

from . import _events, _types
from ._calls import Calls, Target, number_of
from ._errors import Argument, Error, PeerGone, error_of
from ._events import Event, Feed, Subscription
from ._native import ffi, lib

_F = TypeVar("_F", bound=Callable[..., Any])


class Feeds(Calls):
    def __init__(self, name: str, own_name: bytes) -> None:
        super().__init__(name, own_name)
        self._feeds: Dict[int, List[Feed]] = {}
        self._modules: Dict[str, int] = {}

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

    def _event_target(self, target: Union[str, Target]) -> Tuple[int, Any]:
        number, described = (self._module_type(target), None) if isinstance(target, str) else number_of(target)
        if not _events.FIRST <= number <= _events.LAST:
            raise Argument(f"{number:#x} is no type of an event")
        return number, described

    def publish(self, target: Union[str, Target], *arguments: Any) -> None:
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

    def events(self, target: Union[str, Target], name: Optional[str] = None) -> Subscription:
        """Events of a module or type, with that name only if one is given, to iterate over: with for, in which handlers
        run while it waits, or with async for."""
        return self._subscribe(target, name, None)

    def on(self, target: Union[str, Target], function: Optional[Callable[[Event], Any]] = None, *,
           name: Optional[str] = None) -> Any:
        """Calls the function with each such event until the Subscription that it returns is closed. A decorator without a
        function."""
        if function is not None:
            return self._subscribe(target, name, function)

        def decorate(function: _F) -> _F:
            self._subscribe(target, name, function)
            return function

        return decorate

    def _subscribe(self, target: Union[str, Target], name: Optional[str],
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
