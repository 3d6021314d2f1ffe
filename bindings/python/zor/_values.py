"""What travels: requests, replies, and how values of Python become a data word and a body."""
import json
from typing import TYPE_CHECKING, Any, Optional, Protocol, Tuple, Union

from ._errors import ERROR_WORDS, E_IO, Argument, Error, Failed

if TYPE_CHECKING:
    from ._bus import Bus


class Described(Protocol):
    """A class that zorgen has made: besides these, Request and Reply, or Message; for events MODULE and EVENT."""

    TYPE: int
    NAME: str
    KIND: str


def to_json(value: Any) -> bytes:
    try:
        return json.dumps(value, ensure_ascii=False, separators=(",", ":"), allow_nan=False).encode()
    except (TypeError, ValueError) as error:
        raise Argument(f"cannot be sent: {error}") from error


def encode(value: Any) -> Tuple[int, bytes]:
    """Data word and body of a value: see the manual page of Bus.serve for what becomes what."""
    if value is None:
        return 0, b""
    if isinstance(value, int):
        if not 0 <= value <= 0xFFFFFFFF:
            raise Argument(f"{value} does not fit a data word")
        return int(value), b""
    if isinstance(value, str):
        return 0, value.encode()
    if isinstance(value, (bytes, bytearray, memoryview)):
        return 0, bytes(value)
    if isinstance(value, tuple) and len(value) == 2 and isinstance(value[0], int):
        return encode(value[0])[0], encode(value[1])[1]
    if hasattr(value, "encode") and hasattr(value, "decode"):
        word, body = value.encode()
        return word, body
    return 0, to_json(value)


def decode(message: Any, word: int, body: bytes) -> Any:
    """An instance of a generated message class."""
    try:
        value = message.decode(word, body)
    except Error:
        raise
    except Exception as error:  # whatever the generated code meets in foreign bytes
        raise Argument(f"not a {message.__name__}: {error}") from error
    if value is None:
        raise Argument(f"not a {message.__name__}")
    return value


def name_bytes(name: str, what: str) -> bytes:
    if not isinstance(name, str):
        raise Argument(f"{what} {name!r}: a text is expected")
    encoded = name.encode()
    if len(encoded) > 11 or b"\0" in encoded:
        raise Argument(f"{what} {name!r}: at most 11 bytes")
    return encoded


class Reply:
    """A data word and a body; text and json read the body."""

    __slots__ = ("word", "body", "source")

    def __init__(self, word: int, body: bytes, source: str) -> None:
        self.word = word
        self.body = body
        self.source = source

    @property
    def text(self) -> str:
        return self.body.rstrip(b"\0").decode(errors="replace")

    @property
    def json(self) -> Any:
        try:
            return json.loads(self.text)
        except (ValueError, RecursionError) as error:
            raise Argument(f"the body from {self.source!r} is not JSON: {error}") from error

    def __repr__(self) -> str:
        return f"{type(self).__name__}(word={self.word:#x}, body={self.body[:40]!r}, source={self.source!r})"


def failure_of(word: int, body: bytes) -> Optional[Failed]:
    """The error that a reply stands for, if it is an error reply."""
    if word not in ERROR_WORDS or not body.startswith(b"{"):
        return None
    try:
        value = json.loads(body.rstrip(b"\0").decode(errors="replace"))
    except (ValueError, RecursionError):
        return None
    if not isinstance(value, dict) or not isinstance(value.get("error"), str):
        return None
    return Failed(value["error"], word)


def error_reply(error: BaseException) -> Tuple[int, bytes]:
    """Data word and body of the error reply for an exception."""
    status = getattr(error, "status", E_IO)
    if not isinstance(status, int) or status not in ERROR_WORDS:
        status = E_IO
    try:
        text = str(error)
    except Exception:  # of the exception's own class, whose name has to do
        text = ""
    text = text.encode(errors="backslashreplace").decode()
    return status, to_json({"error": text or type(error).__name__})


class Request(Reply):
    """A message that a handler is called with. The message of a described type is decoded in message."""

    __slots__ = ("type", "sequence", "message", "_bus", "_open", "_deferred")

    def __init__(self, bus: "Bus", type: int, sequence: int, word: int, source: str, body: bytes, oneway: bool) -> None:
        self.word = word
        self.body = body
        self.source = source
        self.type = type
        self.sequence = sequence
        self.message: Any = None
        self._bus = bus
        self._open = not oneway
        self._deferred = False

    def defer(self) -> "Deferred":
        """For a reply later: the handler's result is ignored from now on."""
        if not self._open or self._deferred:
            raise Argument("a one-way message, or replied to or deferred already")
        self._deferred = True
        return Deferred(self)

    def receive_fd(self, timeout: Optional[float] = 5.0) -> int:
        """The descriptor that its sender passes behind the message; the caller's to close. Messages that come before it
        are handled later. An async handler calls this before it first awaits. Of descriptors that nobody has asked for
        yet 64 are kept, later ones closed."""
        return self._bus._receive_fd(timeout)


class Deferred:
    """A reply that is still owed. One reply or failure is sent; a second one raises Argument. Dropped unused, it sends a
    failure, so that nobody waits in vain."""

    __slots__ = ("request",)

    def __init__(self, request: Request) -> None:
        self.request = request

    def __del__(self) -> None:
        if self.request._open:
            self.request._bus._drop(self.request)

    def reply(self, value: Any = None) -> None:
        self.request._bus._answer(self.request, value)

    def fail(self, error: Union[str, BaseException], status: int = E_IO) -> None:
        failure = Failed(error, status) if isinstance(error, str) else error
        self.request._bus._answer(self.request, error_reply(failure))
