"""Changes of stores: their difference, scripts of one change a line, all applied or none."""

from __future__ import annotations

import ctypes
from collections.abc import Iterable, Iterator, Sequence
from typing import NamedTuple, Optional, Union, overload

from ._library import ChangeStruct, CountsStruct, Handle, Path, check, lib, take, word
from .names import Names, cid_of, fid_of, names_of, pointer_of
from .records import pairs_of
from .values import Fields, Value, from_bytes, pack, unpack

__all__ = ["Change", "Changes", "Counts"]

_VERBS = ("add", "set", "unset", "del")


class Counts(NamedTuple):
    """How many records changes add, change and delete."""

    added: int
    changed: int
    deleted: int


class Change(NamedTuple):
    """One change of a record, or of a virtual system.

    verb    "add": a record that is not there yet, or a virtual system; "set": overwrites fields of
            a record and adds those that it lacks; "unset": takes fields out; "del": deletes a
            record, or a virtual system without records
    vs      id of the virtual system
    cid     class of the record; None when the change is one of the virtual system itself
    fields  add: all fields, in order. set: the key fields and the new values. Otherwise the key
            fields
    unset   unset: the fields to take out
    """

    verb: str
    vs: int
    cid: Optional[int] = None
    fields: tuple[tuple[int, Value], ...] = ()
    unset: tuple[int, ...] = ()

    def __str__(self) -> str:
        """The line of a script."""
        return str(Changes([self])).rstrip("\n")


class ChangeArgument:
    """A change as the library takes it, with what the structure points at."""

    def __init__(
        self,
        verb: str,
        vs: int,
        cid: Optional[int] = None,
        fields: bytes = b"",
        unset: Sequence[int] = (),
    ) -> None:
        self._fields = fields
        self._unset = (ctypes.c_uint32 * len(unset))(*unset)
        self.struct = ChangeStruct(
            verb=_VERBS.index(verb),
            vs=word(vs, "a virtual system"),
            is_of_record=cid is not None,
            cid=cid or 0,
            fields=fields,
            fields_size=len(fields),
            unset=self._unset,
            unset_count=len(unset),
        )


class Changes(Sequence[Change]):
    """Changes in the order in which they are to be made. str() of them is a script; they do not
    change any more."""

    def __init__(
        self, changes: Iterable[Change] = (), *, names: Union[Names, Path, None] = None
    ) -> None:
        """Makes a list of changes; classes and fields may be given by name as well. Raises
        Invalid."""
        self._names = names_of(names)
        self._handle = open_changes(lib.TAV_ChangesNew)
        with self._handle as pointer:
            for change in changes:
                check(
                    lib.TAV_ChangesAppend(pointer, _argument(self._names, Change(*change)).struct)
                )

    @classmethod
    def parse(cls, script: str, *, names: Union[Names, Path, None] = None) -> Changes:
        """Reads a script, one change a line: `set 0 13 14=5 18=192.0.2.1`. Raises Invalid with the
        line as its place."""
        loaded = names_of(names)
        text = script.encode(errors="surrogateescape")
        return cls._of(
            open_changes(lib.TAV_ChangesParse, text, len(text), pointer_of(loaded)), loaded
        )

    @classmethod
    def _of(cls, handle: Handle, names: Optional[Names]) -> Changes:
        """Changes that the library has made."""
        changes = cls.__new__(cls)
        changes._handle = handle
        changes._names = names
        return changes

    def __len__(self) -> int:
        with self._handle as pointer:
            return int(lib.TAV_ChangesCount(pointer))

    @overload
    def __getitem__(self, index: int) -> Change:
        ...

    @overload
    def __getitem__(self, index: slice) -> list[Change]:
        ...

    def __getitem__(self, index: Union[int, slice]) -> Union[Change, list[Change]]:
        if isinstance(index, slice):
            return [self[i] for i in range(*index.indices(len(self)))]
        at = index.__index__()
        if at < 0:
            at += len(self)
        if not 0 <= at < len(self):
            raise IndexError("there are not so many changes")
        struct = ChangeStruct()
        with self._handle as pointer:
            check(lib.TAV_ChangesGet(pointer, at, ctypes.byref(struct)))
            fields = ctypes.string_at(struct.address_of_fields(), struct.fields_size)
            unset = struct.unset[: struct.unset_count] if struct.unset_count else ()
            return Change(
                _VERBS[struct.verb],
                struct.vs,
                struct.cid if struct.is_of_record else None,
                tuple((fid, from_bytes(fid, raw)) for fid, raw in unpack(fields)),
                tuple(unset),
            )

    def __iter__(self) -> Iterator[Change]:
        return (self[i] for i in range(len(self)))

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Changes) and list(self) == list(other)

    __hash__ = None  # type: ignore[assignment]

    @property
    def counts(self) -> Counts:
        """How many records they add, change and delete."""
        counts = CountsStruct()
        with self._handle as pointer:
            check(lib.TAV_ChangesCountRecords(pointer, ctypes.byref(counts)))
        return Counts(counts.added, counts.changed, counts.deleted)

    def __str__(self) -> str:
        """The script, which `parse` reads."""
        return self._written(lib.TAV_ChangesToScript)

    def to_json(self) -> str:
        """The changes as JSON, one a line."""
        return self._written(lib.TAV_ChangesToJson)

    def _written(self, function: object) -> str:
        with self._handle as pointer:
            return take(function, pointer, pointer_of(self._names)).decode(errors="surrogateescape")

    def __repr__(self) -> str:
        return f"<Changes: {len(self)}>"


def open_changes(function: object, *arguments: object) -> Handle:
    """A handle of changes that a function gives."""
    return Handle.open("the changes", lib.TAV_ChangesFree, function, *arguments)


def _argument(names: Optional[Names], change: Change) -> ChangeArgument:
    if change.verb not in _VERBS:
        raise ValueError(f"{change.verb!r} is none of {', '.join(_VERBS)}")
    if change.cid is None:
        return ChangeArgument(change.verb, change.vs)
    cid = cid_of(names, change.cid)
    fields = pack(pairs_of(names, cid, change.fields))
    return ChangeArgument(
        change.verb, change.vs, cid, fields, [fid_of(names, cid, fid) for fid in change.unset]
    )
