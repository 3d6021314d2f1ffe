"""Messages of the bus: encode() gives the data word and the body, decode() takes them.

Bodies are hostile: decode() raises ValueError for an invalid one. What a message lacks has its default, and what a newer
version has added is kept in "unknown" and encoded again.
"""
from __future__ import annotations

import dataclasses as _dataclasses
import json as _json
import math as _math
import re as _re
import struct as _struct
import typing as _typing

_FORMATS = {"u8": "=B", "u16": "=H", "u32": "=I", "u64": "=Q", "i8": "=b", "i16": "=h", "i32": "=i", "i64": "=q",
            "f64": "=d"}
_DEPTH = 64
_EXACT = 1 << 53
_SPACE = _re.compile(r"[ \t\n\r]*")


class _Field(_typing.NamedTuple):
    attribute: str
    name: str
    kind: str
    size: int  # 0: a text up to its NUL, or all that is left
    in_data: bool


def _no_constant(text: str) -> _typing.Any:
    raise ValueError(f"{text} is not JSON")


def _integer(text: str) -> _typing.Any:
    """As Python refuses integers of many digits, or takes long over them: those are beyond each type's range anyway."""
    return int(text) if len(text) <= 640 else float(text)


_decoder = _json.JSONDecoder(parse_constant=_no_constant, parse_int=_integer)


def _check(value: _typing.Any, depth: int) -> None:
    """Half surrogate pairs, and containers that lie too deep, are invalid."""
    if isinstance(value, str):
        value.encode()
    elif isinstance(value, (dict, list)):
        if depth >= _DEPTH:
            raise ValueError("nested too deep")
        for name in value if isinstance(value, dict) else ():
            name.encode()
        for each in value.values() if isinstance(value, dict) else value:
            _check(each, depth + 1)


def _value_at(text: str, at: int, depth: int) -> tuple[_typing.Any, int]:
    at = _SPACE.match(text, at).end()  # type: ignore[union-attr]
    try:
        value, end = _decoder.raw_decode(text, at)
    except RecursionError:
        raise ValueError("nested too deep") from None
    _check(value, depth)
    return value, end


def _expect(text: str, at: int, wanted: str) -> tuple[str, int]:
    at = _SPACE.match(text, at).end()  # type: ignore[union-attr]
    found = text[at:at + 1]
    if not found or found not in wanted:
        raise ValueError(f"not JSON: character {at}")
    return found, at + 1


def _members(text: str) -> _typing.Iterator[tuple[str, _typing.Any, str]]:
    """The names, the values and the texts of an object's members."""
    _, at = _expect(text, 0, "{")
    found, end = _expect(text, at, "}\"")
    while found != "}":
        start = end - 1
        name, at = _value_at(text, start, 1)
        _, at = _expect(text, at, ":")
        value, at = _value_at(text, at, 1)
        yield name, value, text[start:at]
        found, end = _expect(text, at, ",}")
        if found == ",":
            found, end = _expect(text, end, "\"")
    if _SPACE.match(text, end).end() != len(text):  # type: ignore[union-attr]
        raise ValueError("not JSON: text follows the object")


def _dumps(value: _typing.Any) -> str:
    return _json.dumps(value, ensure_ascii=False, allow_nan=False, separators=(",", ":"))


def _text_bytes(field: _Field, text: str, errors: str) -> bytes:
    encoded = text.encode("utf-8", errors)
    if field.size and len(encoded) >= field.size:
        raise ValueError(f"{field.name}: longer than {field.size - 1} bytes")
    return encoded


def _bytes_of(field: _Field, value: bytes) -> bytes:
    value = bytes(value)
    if field.size and len(value) > field.size:
        raise ValueError(f"{field.name}: longer than {field.size} bytes")
    return value


def _number(field: _Field, value: _typing.Any) -> _typing.Any:
    """A number of the field's type and range; whole ones may be written 21.0."""
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise ValueError(f"{field.name}: not a number")
    if field.kind == "f64":
        try:
            value = float(value)
        except OverflowError:
            raise ValueError(f"{field.name}: out of range") from None
        if not _math.isfinite(value):
            raise ValueError(f"{field.name}: out of range")
        return value
    if isinstance(value, float):
        if not value.is_integer() or abs(value) > _EXACT:
            raise ValueError(f"{field.name}: not a whole number")
        value = int(value)
    _pack(field, value)
    return value


def _pack(field: _Field, value: _typing.Any) -> bytes:
    try:
        return _struct.pack(_FORMATS[field.kind], value)
    except (_struct.error, OverflowError):
        raise ValueError(f"{field.name}: {value!r} is no {field.kind}") from None


def _put(field: _Field, value: _typing.Any) -> bytes:
    if field.kind in _FORMATS:
        return _pack(field, value)
    if field.kind == "bool":
        return b"\1" if value else b"\0"
    if field.kind == "text":
        encoded = _text_bytes(field, value, "surrogateescape")
        if b"\0" in encoded:
            raise ValueError(f"{field.name}: a NUL ends a text")
        return encoded.ljust(field.size, b"\0") if field.size else encoded + b"\0"
    if field.kind == "json":
        return b"" if value is None else _dumps(value).encode()
    return _bytes_of(field, value).ljust(field.size, b"\0")


def _get(field: _Field, body: bytes) -> tuple[_typing.Any, bytes]:
    """The value at the body's start, and the rest."""
    if field.kind in _FORMATS:
        size = _struct.calcsize(_FORMATS[field.kind])
        if len(body) < size:
            raise ValueError(f"{field.name}: truncated")
        return _struct.unpack_from(_FORMATS[field.kind], body)[0], body[size:]
    if field.kind == "bool":
        return body[0] != 0, body[1:]
    if field.kind == "text":
        end = field.size or body.find(b"\0") + 1 or len(body)
        text = body[:end].split(b"\0", 1)[0]
        if field.size and len(text) == field.size:
            raise ValueError(f"{field.name}: without a NUL")
        return text.decode("utf-8", "surrogateescape"), body[end:]
    if field.kind == "json":
        text = body.decode()
        value, end = _value_at(text, 0, 0)
        if text[end:].strip(" \t\n\r"):
            raise ValueError(f"{field.name}: not JSON")
        return value, b""
    size = field.size or len(body)
    return body[:size], body[size:]


def _put_json(field: _Field, value: _typing.Any) -> str:
    if field.kind in _FORMATS:
        return _dumps(_number(field, value))
    if field.kind == "bool":
        return "true" if value else "false"
    if field.kind == "text":
        _text_bytes(field, value, "strict")
        return _dumps(value)
    if field.kind == "json":
        return _dumps(value)
    return _dumps(_bytes_of(field, value).hex())


def _get_json(field: _Field, value: _typing.Any) -> _typing.Any:
    if field.kind in _FORMATS:
        return _number(field, value)
    if field.kind == "json":
        return value
    if field.kind == "bool":
        if not isinstance(value, bool):
            raise ValueError(f"{field.name}: neither true nor false")
        return value
    if not isinstance(value, str):
        raise ValueError(f"{field.name}: not a text")
    if field.kind == "text":
        _text_bytes(field, value, "strict")
        return value
    if not _re.fullmatch("(?:[0-9a-fA-F]{2})*", value):
        raise ValueError(f"{field.name}: not hexadecimal digits")
    return _bytes_of(field, bytes.fromhex(value))


_Self = _typing.TypeVar("_Self", bound="_Message")


class _Message:
    _fields: _typing.ClassVar[_typing.Tuple[_Field, ...]] = ()
    _is_json: _typing.ClassVar[bool] = False
    unknown: bytes

    def encode(self) -> tuple[int, bytes]:
        """The data word and the body; ValueError if a value cannot be encoded."""
        data = 0
        for field in self._fields:
            if field.in_data:
                data = self._word(field)
        return data, self._json_body() if self._is_json else self._record_body()

    @classmethod
    def decode(cls: type[_Self], data: int, body: bytes) -> _Self:
        """The message; ValueError for an invalid one."""
        message = cls()
        for field in cls._fields:
            if field.in_data:
                message._take_word(field, data)
        if cls._is_json:
            message._take_json(bytes(body).rstrip(b"\0").decode())
        else:
            message._take_record(bytes(body))
        return message

    def _word(self, field: _Field) -> int:
        value = getattr(self, field.attribute)
        if field.kind == "bool":
            return 1 if value else 0
        _pack(field, value)
        return value & 0xffffffff

    def _take_word(self, field: _Field, data: int) -> None:
        value: _typing.Any = data != 0
        if field.kind != "bool":
            value = data - (1 << 32) if field.kind[0] == "i" and data >> 31 else data
            _pack(field, value)
        setattr(self, field.attribute, value)

    def _record_body(self) -> bytes:
        parts = [_put(field, getattr(self, field.attribute)) for field in self._fields if not field.in_data]
        return b"".join(parts) + self.unknown

    def _take_record(self, body: bytes) -> None:
        for field in self._fields:
            if field.kind == "json":
                body = body.rstrip(b"\0")
            if body and not field.in_data:
                value, body = _get(field, body)
                setattr(self, field.attribute, value)
        self.unknown = body

    def _json_body(self) -> bytes:
        fields = [field for field in self._fields if not field.in_data]
        members = [f'"{field.name}":{_put_json(field, getattr(self, field.attribute))}' for field in fields]
        known = {field.name for field in fields}
        kept = _members("{" + self.unknown.decode() + "}")
        members += [text for name, _, text in kept if name not in known]
        return ("{" + ",".join(members) + "}").encode() if members else b""

    def _take_json(self, text: str) -> None:
        fields = {field.name: field for field in self._fields if not field.in_data}
        unknown = []
        for name, value, member in _members(text) if text else ():
            if name not in fields:
                unknown.append(member)
            elif value is not None or fields[name].kind == "json":
                setattr(self, fields[name].attribute, _get_json(fields[name], value))
        self.unknown = ",".join(unknown).encode()
