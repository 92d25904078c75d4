"""Names of classes and fields."""

from __future__ import annotations

import ctypes
from typing import Any, Optional, Union

from ._library import Handle, Path, check, lib, path_bytes, take, text_bytes, word

__all__ = ["Names"]


class Names:
    """Names from a JSON file, `{"13": {"name": "route", "fields": {"14": "id", "18": "address"}}}`.

    Given to a store, they may stand wherever the number of a class or a field does, and scripts and
    JSON show them. They do not change any more: any number of stores and threads may share them.
    """

    def __init__(self, path: Path) -> None:
        """Loads a file. Raises Error (READ) and Invalid."""
        self._handle = Handle.open("names", lib.TAV_NamesFree, lib.TAV_NamesLoad, path_bytes(path))
        self._classes: dict[str, int] = {}
        self._fields: dict[tuple[int, str], int] = {}

    def cid(self, name: str) -> int:
        """The class of a name, or of a number as text. Raises Invalid."""
        if name not in self._classes:
            self._classes[name] = _find(lib.TAV_NamesClass, pointer_of(self), name)
        return self._classes[name]

    def fid(self, cid: int, name: str) -> int:
        """The field of a class that has a name, or of a number as text. Raises Invalid."""
        if (cid, name) not in self._fields:
            self._fields[cid, name] = _find(
                lib.TAV_NamesField, pointer_of(self), word(cid, "a class"), name
            )
        return self._fields[cid, name]

    def of_class(self, cid: int) -> str:
        """The name of a class; its number when it has none."""
        return take(lib.TAV_NamesClassText, pointer_of(self), word(cid, "a class")).decode()

    def of_field(self, cid: int, fid: int) -> str:
        """The name of a field of a class; its number when it has none."""
        return take(
            lib.TAV_NamesFieldText, pointer_of(self), word(cid, "a class"), word(fid, "a field")
        ).decode()


def _find(function: Any, *arguments: Any) -> int:
    """Calls a function that takes a name and then where to put what it finds."""
    *others, name = arguments
    found = ctypes.c_uint32()
    check(function(*others, text_bytes(name, "a name"), ctypes.byref(found)))
    return found.value


def pointer_of(names: Optional[Names]) -> Optional[int]:
    """Names as the library takes them. They live as long as the object, and are never closed."""
    if names is None:
        return None
    with names._handle as pointer:
        return pointer


def names_of(names: Union[Names, Path, None]) -> Optional[Names]:
    """Names that were given as such, or as their file."""
    return names if names is None or isinstance(names, Names) else Names(names)


def cid_of(names: Optional[Names], cid: Union[int, str]) -> int:
    """A class that was given by its number or name."""
    if not isinstance(cid, str):
        return word(cid, "a class")
    return names.cid(cid) if names else _find(lib.TAV_NamesClass, None, cid)


def fid_of(names: Optional[Names], cid: int, fid: Union[int, str]) -> int:
    """A field that was given by its number or name."""
    if not isinstance(fid, str):
        return word(fid, "a field")
    return names.fid(cid, fid) if names else _find(lib.TAV_NamesField, None, cid, fid)
