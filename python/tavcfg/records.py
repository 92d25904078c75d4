"""Records: fields of a class, copied out of a store."""

from __future__ import annotations

from collections.abc import Iterator, Mapping
from typing import Any, Optional, Union

from .errors import Code, NotFound
from .names import Names, fid_of
from .values import Fields, Value, from_bytes, key_fields, pack, to_bytes, unpack

__all__ = ["Key", "Record"]


class Record(Mapping[int, Value]):
    """One record as it was when it was read: a mapping of its fields to their values, in their
    order.

    It is a copy, which stays as it is whatever becomes of the store. A field that stands in it more
    than once counts as its first value here; `pairs` has all of them.

    vs   id of the virtual system that it was read from
    cid  id of its class
    """

    __slots__ = ("vs", "cid", "_bytes", "_names", "_raw")

    def __init__(self, vs: int, cid: int, fields: bytes, names: Optional[Names] = None) -> None:
        """Stores make records; programs give fields as a dict or pairs."""
        self.vs = vs
        self.cid = cid
        self._bytes = fields
        self._names = names
        self._raw: Optional[tuple[tuple[int, bytes], ...]] = None

    @property
    def raw(self) -> tuple[tuple[int, bytes], ...]:
        """All fields with their values as the store keeps them: bytes in the host's order."""
        if self._raw is None:
            self._raw = tuple(unpack(self._bytes))
        return self._raw

    @property
    def pairs(self) -> tuple[tuple[int, Value], ...]:
        """All fields with their values, also those that come again."""
        return tuple((fid, from_bytes(fid, raw)) for fid, raw in self.raw)

    @property
    def key(self) -> Key:
        """What tells it from its siblings: the value of the key field, or a tuple where the class
        has several."""
        values = tuple(self[fid] for fid in key_fields(self.cid))
        return values[0] if len(values) == 1 else values

    def named(self) -> dict[str, Value]:
        """The fields by their names, or by their numbers as text where they have none."""
        names = self._names
        return {
            names.of_field(self.cid, fid) if names else str(fid): value
            for fid, value in self.items()
        }

    def __getitem__(self, fid: Union[int, str]) -> Value:
        wanted = fid_of(self._names, self.cid, fid)
        for each, raw in self.raw:
            if each == wanted:
                return from_bytes(each, raw)
        raise NotFound(Code.NOT_FOUND, f"class {self.cid}", f"the record has no field {fid}")

    def get(  # type: ignore[override]
        self, fid: Union[int, str], default: Optional[Value] = None
    ) -> Optional[Value]:
        """The value of a field, or the default when the record lacks it."""
        return self[fid] if fid in self else default

    def __contains__(self, fid: object) -> bool:
        if not isinstance(fid, (int, str)):
            return False
        wanted = fid_of(self._names, self.cid, fid)
        return any(each == wanted for each, _ in self.raw)

    def __iter__(self) -> Iterator[int]:
        return iter(dict.fromkeys(fid for fid, _ in self.raw))

    def __len__(self) -> int:
        return len({fid for fid, _ in self.raw})

    def __eq__(self, other: object) -> bool:
        if isinstance(other, Record):
            return self.cid == other.cid and self._bytes == other._bytes
        return super().__eq__(other)

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return f"<Record of class {self.cid} in VS {self.vs}: {dict(self.items())}>"


Key = Union[Value, tuple[Value, ...], Mapping[Any, Value]]
"""What finds a record: the value of its key field, a tuple of them where its class has several, or
fields with all of them, as in a dict or in a record."""


def pairs_of(names: Optional[Names], cid: int, fields: Fields) -> list[tuple[int, bytes]]:
    """Fields with their values as the store keeps them."""
    if isinstance(fields, Record):
        return list(fields.raw)
    given = fields.items() if isinstance(fields, Mapping) else fields
    numbered = [(fid_of(names, cid, fid), value) for fid, value in given]
    return [(fid, to_bytes(fid, value)) for fid, value in numbered]


def key_of(names: Optional[Names], cid: int, key: Key) -> bytes:
    """The key fields in bytes."""
    fids = key_fields(cid)
    if isinstance(key, Mapping):
        return pack((fid, raw) for fid, raw in pairs_of(names, cid, key) if fid in fids)
    values = key if isinstance(key, tuple) else (key,)
    if len(values) != len(fids):
        raise TypeError(f"the key of class {cid} is {len(fids)} values, not {len(values)}")
    return pack((fid, to_bytes(fid, value)) for fid, value in zip(fids, values))
