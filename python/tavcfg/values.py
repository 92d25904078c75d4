"""Values of fields: as Python has them, and as a store keeps them."""

from __future__ import annotations

import ctypes
import functools
import ipaddress
import struct
import sys
from collections.abc import Iterable, Iterator, Mapping
from datetime import datetime, timezone
from typing import Any, Union

from ._library import lib, take
from .errors import Code, Invalid

__all__ = ["Fields", "Value"]

Value = Union[int, str, bytes, ipaddress.IPv4Address, ipaddress.IPv6Address, datetime]
"""What a field holds, by its type: int, str, an address, a datetime in UTC; bytes for all other
fields, and for a value that is not as its type wants it. Whoever sets a field may also give,
whatever its type, bytes in the host's order, or a str as people write the value ("192.0.2.1",
"0x10", "hex:0a0b"). A datetime without a time zone is one in UTC."""

Fields = Union[Mapping[Any, Value], Iterable[tuple[Union[int, str], Value]]]
"""Fields and their values: a dict, a record, or pairs, where the same field may come more than
once. Fields are numbers, or names where the store has names."""

_INTEGER, _TEXT, _BYTES, _ADDRESS, _TIME, _OPAQUE = range(6)
_HEAD = struct.Struct("=II")


@functools.lru_cache(maxsize=4096)
def _kind(fid: int) -> tuple[int, int]:
    """What the values of a field are, and how many bytes they have at most."""
    return lib.TAV_ValueKind(fid), lib.TAV_GetExtTlvDataLen(fid)


def _parse(fid: int, text: str) -> bytes:
    encoded = text.encode(errors="surrogateescape")
    try:
        return take(lib.TAV_ValueParse, fid, encoded, len(encoded))
    except Invalid as error:
        raise Invalid(error.code, f"field {fid}", error.sentence) from None


def to_bytes(fid: int, value: Value) -> bytes:
    """A value as the store keeps it."""
    kind, size = _kind(fid)
    if isinstance(value, str):
        return value.encode(errors="surrogateescape") if kind == _TEXT else _parse(fid, value)
    if isinstance(value, (bytes, bytearray, memoryview)):
        return bytes(value)
    if kind == _INTEGER and hasattr(value, "__index__"):
        try:
            return value.__index__().to_bytes(size, sys.byteorder)
        except OverflowError:
            sentence = f"{value} is out of range, the field has {size} bytes"
            raise Invalid(Code.INVALID, f"field {fid}", sentence) from None
    if kind == _ADDRESS and isinstance(value, (ipaddress.IPv4Address, ipaddress.IPv6Address)):
        return _parse(fid, str(value))
    if kind == _TIME and isinstance(value, datetime):
        if value.tzinfo is not None:
            value = value.astimezone(timezone.utc).replace(tzinfo=None)
        return _parse(fid, value.isoformat(timespec="milliseconds"))
    raise TypeError(f"field {fid} cannot take a value of type {type(value).__name__}")


def from_bytes(fid: int, raw: bytes) -> Value:
    """A value of a store as Python has it."""
    kind, size = _kind(fid)
    if kind == _INTEGER and len(raw) == size:
        return int.from_bytes(raw, sys.byteorder)
    if kind == _TEXT:
        return raw.decode(errors="surrogateescape")
    if kind in (_ADDRESS, _TIME) and len(raw) == size:
        text = take(lib.TAV_ValueFormat, fid, raw, len(raw)).decode()
        try:
            return ipaddress.ip_address(text) if kind == _ADDRESS else datetime.fromisoformat(text)
        except ValueError:  # "hex:...": bytes that are none of this type, or more than it shows
            return raw
    return raw


def pack(pairs: Iterable[tuple[int, bytes]]) -> bytes:
    """Fields in bytes, as the library's functions take them."""
    return b"".join(_HEAD.pack(fid, len(raw)) + raw for fid, raw in pairs)


def unpack(fields: bytes) -> Iterator[tuple[int, bytes]]:
    """The opposite of pack."""
    at = 0
    while at < len(fields):
        fid, size = _HEAD.unpack_from(fields, at)
        at += _HEAD.size + size
        yield fid, fields[at - size : at]


@functools.lru_cache(maxsize=1024)
def key_fields(cid: int) -> tuple[int, ...]:
    """The key fields of a class."""
    fids = (ctypes.c_uint32 * 4)()
    return tuple(fids[: lib.TAV_GetExtClassKeyFid(cid, fids, len(fids))])
