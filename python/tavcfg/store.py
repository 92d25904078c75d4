"""Stores: virtual systems, classes and records in memory."""

from __future__ import annotations

import ctypes
import struct
from collections.abc import Iterable, Iterator, Mapping
from types import TracebackType
from typing import Any, Optional, TypeVar, Union, overload

from ._library import (
    Handle,
    Path,
    ScopeStruct,
    check,
    lib,
    milliseconds,
    path_bytes,
    path_text,
    take,
    together,
    word,
)
from .changes import ChangeArgument, Changes, open_changes
from .errors import Code, NotFound, Refused
from .names import Names, cid_of, fid_of, names_of, pointer_of
from .records import Key, Record, key_of, pairs_of
from .values import Fields, Value, pack

__all__ = ["Records", "Store", "VirtualSystem", "diff", "snapshot"]

_ROOM = 65536  # bytes of records that are read at a time
_WORD = struct.Struct("=I")
_AnyStore = TypeVar("_AnyStore", bound="Store")


class Store:
    """A store in memory: virtual systems, in them records by classes.

        store[0, 13].set({14: 5, 19: 7})
        for vs in store:
            for records in vs:
                for record in records:
                    print(record[14])

    One that is made by itself is empty and reaches no file; those of files come from `tavcfg.edit`,
    `tavcfg.snapshot` and `tavcfg.History`. A closed one raises Closed; records that were read from
    it stay as they are. Threads may share a store: each call is made as a whole.
    """

    def __init__(self, *, names: Union[Names, Path, None] = None) -> None:
        """Makes an empty store. `names`: names of classes and fields, or their file."""
        self._begin(_open_store("a store", lib.TAV_StoreNew), names_of(names))

    def _begin(self, handle: Handle, names: Optional[Names], read_only: str = "") -> None:
        self._handle = handle
        self._names = names
        self._read_only = read_only  # what was only read
        self._edits = 0

    @property
    def closed(self) -> bool:
        """Whether it was closed."""
        return self._handle.closed

    def close(self) -> None:
        """Frees it. A second call does nothing."""
        self._edits += 1  # ends walks
        self._handle.close()

    def __enter__(self: _AnyStore) -> _AnyStore:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __iter__(self) -> Iterator[VirtualSystem]:
        """The virtual systems, in the order of first use."""
        return (VirtualSystem(self, vs) for vs in self._words(lib.TAV_StoreListVs))

    def __contains__(self, vs: object) -> bool:
        """Whether there is a virtual system of this id."""
        return vs in self._words(lib.TAV_StoreListVs)

    @overload
    def __getitem__(self, place: int) -> VirtualSystem:
        ...

    @overload
    def __getitem__(self, place: tuple[int, Union[int, str]]) -> Records:
        ...

    def __getitem__(
        self, place: Union[int, tuple[int, Union[int, str]]]
    ) -> Union[VirtualSystem, Records]:
        """A virtual system, or the records of a class in one: store[0], store[0, 13]. They need not
        be there yet."""
        if not isinstance(place, tuple):
            return VirtualSystem(self, word(place, "a virtual system"))
        vs, cid = place
        return Records(self, word(vs, "a virtual system"), cid_of(self._names, cid))

    def add_vs(self, vs: int) -> None:
        """Adds a virtual system without records. Raises Invalid when it is there; Refused for what
        was only read."""
        self._make(ChangeArgument("add", vs))

    def delete_vs(self, vs: int) -> None:
        """Deletes a virtual system. Raises NotFound; Invalid while it has records; Refused."""
        self._make(ChangeArgument("del", vs))

    def apply(self, changes: Union[Changes, str]) -> Changes:
        """Makes changes, or those of a script: all of them or none. Returns the changes that take
        the store back.

        Raises NotFound, Invalid or Refused, with the line as its place, and then the store is as it
        was.
        """
        self._require_writable()
        if isinstance(changes, str):
            changes = Changes.parse(changes, names=self._names)
        with together(self._handle, changes._handle) as (pointer, change_pointer):
            self._edits += 1
            inverse = open_changes(lib.TAV_ChangesApply, change_pointer, self._local(pointer))
            return Changes._of(inverse, self._names)

    def to_json(self, *, lines: bool = False) -> str:
        """All of it as JSON: one object, or a record a line."""
        with self._handle as pointer:
            text = take(lib.TAV_StoreToJson, self._local(pointer), lines, pointer_of(self._names))
        return text.decode()

    def load_json(self, text: str, *, lines: bool = False) -> int:
        """Brings in all that a text of to_json holds: records that are there already are set,
        others added; all of it or nothing. Returns the number of records. Raises Invalid with the
        place in the text; Refused.
        """
        self._require_writable()
        encoded = text.encode()
        given = encoded, len(encoded), pointer_of(self._names)
        count = ctypes.c_size_t()
        with Store() as store, together(self._handle, store._handle) as (into, pointer):
            check(lib.TAV_StoreFromJson(pointer, lines, *given, ctypes.byref(count)))
            merge = open_changes(lib.TAV_ChangesMerge, pointer, self._local(into))
            self.apply(Changes._of(merge, self._names))
        return count.value

    def _local(self, pointer: int) -> int:
        """The store that a handle's pointer leads to."""
        return pointer

    def _words(self, function: Any, *arguments: int) -> list[int]:
        """Calls a function that lists ids."""
        with self._handle as pointer:
            return list(memoryview(take(function, self._local(pointer), *arguments)).cast("I"))

    def _make(self, change: ChangeArgument) -> None:
        self._require_writable()
        with self._handle as pointer:
            self._edits += 1
            check(lib.TAV_ChangeMake(change.struct, self._local(pointer)))

    def _require_writable(self) -> None:
        if self._read_only:
            raise Refused(
                Code.REFUSED, self._read_only, "it was only read; tavcfg.edit changes files"
            )


class VirtualSystem:
    """One virtual system of a store. It borrows the store, and need not be there yet.

    id  its id
    """

    __slots__ = ("id", "_store")

    def __init__(self, store: Store, vs: int) -> None:
        """Stores make them: store[0]."""
        self.id = vs
        self._store = store

    def __iter__(self) -> Iterator[Records]:
        """The classes that have records in it, in the order of first use."""
        cids = self._store._words(lib.TAV_StoreListClasses, self.id)
        return (Records(self._store, self.id, cid) for cid in cids)

    def __getitem__(self, cid: Union[int, str]) -> Records:
        """The records of a class."""
        return self._store[self.id, cid]

    def __repr__(self) -> str:
        return f"<VirtualSystem {self.id}>"


class Records:
    """The records of one class in one virtual system. It borrows the store; there need not be any
    records yet.

    vs   id of the virtual system
    cid  id of the class
    """

    __slots__ = ("vs", "cid", "_store")

    def __init__(self, store: Store, vs: int, cid: int) -> None:
        """Stores make them: store[0, 13]."""
        self.vs = vs
        self.cid = cid
        self._store = store

    def __len__(self) -> int:
        """The number of records."""
        store = self._store
        with store._handle as pointer:
            return int(lib.TAV_StoreCount(store._local(pointer), self.vs, self.cid))

    def __iter__(self) -> Iterator[Record]:
        """The records, in the order of their keys. They may be changed meanwhile: the walk goes on
        behind the key that came last, with what is there by then."""
        after: Optional[bytes] = None
        while block := self._read(after):
            edits = self._store._edits
            at = 0
            while at < len(block) and edits == self._store._edits:
                (size,) = _WORD.unpack_from(block, at)
                at += 4 + size
                after = block[at - size : at]
                yield Record(self.vs, self.cid, after, self._store._names)

    def __contains__(self, key: Key) -> bool:
        """Whether there is a record of this key."""
        return self.get(key) is not None

    def __getitem__(self, key: Key) -> Record:
        """The record of a key: store[0, 13][5]. Raises NotFound; Invalid for a value that does not
        suit the field."""
        store = self._store
        packed = key_of(store._names, self.cid, key)
        with store._handle as pointer:
            local = store._local(pointer)
            fields = take(lib.TAV_StoreFind, local, self.vs, self.cid, packed, len(packed))
        return Record(self.vs, self.cid, fields, store._names)

    def get(self, key: Key) -> Optional[Record]:
        """The record of a key, or None."""
        try:
            return self[key]
        except NotFound:
            return None

    @overload
    def add(self, fields: Mapping[Any, Value]) -> None:
        ...

    @overload
    def add(self, fields: Iterable[tuple[Union[int, str], Value]]) -> None:
        ...

    def add(self, fields: Fields) -> None:
        """Adds a record with these fields in this order. Raises Invalid when there is one of its
        key already, or a field is missing or unsuitable; Refused for what was only read."""
        self._make("add", pack(self._pairs(fields)))

    @overload
    def set(self, fields: Mapping[Any, Value]) -> None:
        ...

    @overload
    def set(self, fields: Iterable[tuple[Union[int, str], Value]]) -> None:
        ...

    def set(self, fields: Fields) -> None:
        """Overwrites fields of the record that has the key among these, and adds those that it
        lacks; its others stay. Raises NotFound; Invalid; Refused."""
        self._make("set", pack(self._pairs(fields)))

    def unset(self, key: Key, *fields: Union[int, str]) -> None:
        """Takes fields out of the record of a key. Raises NotFound, also when it lacks one of them;
        Invalid; Refused."""
        names = self._store._names
        self._make(
            "unset", key_of(names, self.cid, key), [fid_of(names, self.cid, fid) for fid in fields]
        )

    def delete(self, key: Key) -> None:
        """Deletes the record of a key. Raises NotFound; Refused."""
        self._make("del", key_of(self._store._names, self.cid, key))

    def __repr__(self) -> str:
        return f"<Records of class {self.cid} in VS {self.vs}>"

    def _pairs(self, fields: Fields) -> list[tuple[int, bytes]]:
        return pairs_of(self._store._names, self.cid, fields)

    def _make(self, verb: str, fields: bytes, unset: Iterable[int] = ()) -> None:
        self._store._make(ChangeArgument(verb, self.vs, self.cid, fields, list(unset)))

    def _read(self, after: Optional[bytes]) -> bytes:
        store = self._store
        with store._handle as pointer:
            local = store._local(pointer)
            return take(
                lib.TAV_StoreRead, local, self.vs, self.cid, after, len(after or b""), _ROOM
            )


def _open_store(what: str, function: Any, *arguments: Any) -> Handle:
    return Handle.open(what, lib.TAV_ExtCfgClose, function, *arguments)


def former_store(what: str, names: Optional[Names], function: Any, *arguments: Any) -> Store:
    """A store that was read, by a function that gives it, and cannot be changed."""
    store = Store.__new__(Store)
    store._begin(_open_store(what, function, *arguments), names, read_only=what)
    return store


def snapshot(
    path: Path,
    *,
    wait: float = 5.0,
    refer: Optional[Path] = None,
    names: Union[Names, Path, None] = None,
) -> Store:
    """Reads a file as it is at some moment, whole, without a lock. It is a store that cannot be
    changed.

    path   the file; an archive when its name ends in ".zip"
    wait   how many seconds to wait at most, for a program that is writing it without a session
    refer  the refer file, given exactly when the file carries a refer checksum
    names  names of classes and fields, or their file

    Raises Missing; Backup; Invalid when it does not load; Error (OPEN) when it cannot be read.
    """
    loaded = names_of(names)
    arguments = path_bytes(path), path_bytes(refer) if refer else None, milliseconds(wait)
    return former_store(path_text(path), loaded, lib.TAV_SessionRead, *arguments)


def diff(
    before: Union[Store, Path],
    after: Union[Store, Path],
    *,
    vs: Optional[int] = None,
    cid: Union[int, str, None] = None,
    ignore: Iterable[Union[int, str]] = (),
    names: Union[Names, Path, None] = None,
) -> Changes:
    """The changes that take one store, or file, to another: once applied to `before`, it has what
    `after` has.

    vs, cid  only this virtual system, only this class
    ignore   fields that make no difference, other than key fields; names need a class
    names    names of classes and fields, or their file, for the changes; for files, too

    Raises what reading a file raises.
    """
    loaded = names_of(names)
    stores = [
        each if isinstance(each, Store) else snapshot(each, names=loaded)
        for each in (before, after)
    ]
    try:
        class_id = None if cid is None else cid_of(loaded, cid)
        fids = [fid_of(loaded, class_id or 0, fid) for fid in ignore]
        scope = ScopeStruct(
            None if vs is None else ctypes.pointer(ctypes.c_uint32(word(vs, "a virtual system"))),
            None if class_id is None else ctypes.pointer(ctypes.c_uint32(class_id)),
            (ctypes.c_uint32 * len(fids))(*fids),
            len(fids),
        )
        with together(stores[0]._handle, stores[1]._handle) as (a, b):
            locals_ = stores[0]._local(a), stores[1]._local(b)
            return Changes._of(
                open_changes(lib.TAV_ChangesDiff, *locals_, ctypes.byref(scope)), loaded
            )
    finally:
        for given, store in zip((before, after), stores):
            if store is not given:
                store.close()
