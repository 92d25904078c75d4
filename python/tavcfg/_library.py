"""The C library: where it is found, what its functions take, and who may use what it hands out.

Nothing here is for users of the package.
"""

from __future__ import annotations

import contextlib
import ctypes
import math
import os
import threading
import weakref
from collections.abc import Callable, Iterator
from typing import Any, Optional, Union

from .errors import Closed, Code, Error, error_of

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]


class Bytes(ctypes.Structure):
    """TAV_Bytes"""

    _fields_ = [("data", ctypes.c_void_p), ("size", ctypes.c_size_t)]


class ChangeStruct(ctypes.Structure):
    """TAV_Change"""

    _fields_ = [
        ("verb", ctypes.c_uint32),
        ("vs", ctypes.c_uint32),
        ("is_of_record", ctypes.c_uint32),
        ("cid", ctypes.c_uint32),
        ("fields", ctypes.c_char_p),
        ("fields_size", ctypes.c_size_t),
        ("unset", ctypes.POINTER(ctypes.c_uint32)),
        ("unset_count", ctypes.c_size_t),
    ]

    def address_of_fields(self) -> int:
        """Where the fields stand: read as a member they would end at the first zero."""
        return ctypes.c_void_p.from_buffer(self, ChangeStruct.fields.offset).value or 0


class CountsStruct(ctypes.Structure):
    """TAV_ChangeCounts"""

    _fields_ = [(name, ctypes.c_uint64) for name in ("added", "changed", "deleted")]


class ScopeStruct(ctypes.Structure):
    """TAV_DiffScope"""

    _fields_ = [
        ("vs", ctypes.POINTER(ctypes.c_uint32)),
        ("cid", ctypes.POINTER(ctypes.c_uint32)),
        ("ignored", ctypes.POINTER(ctypes.c_uint32)),
        ("ignored_count", ctypes.c_size_t),
    ]


class StateStruct(ctypes.Structure):
    """TAV_HistoryState"""

    _fields_ = [
        ("is_on", ctypes.c_uint32),
        ("keep", ctypes.c_uint32),
        ("commits", ctypes.c_size_t),
        ("checkpoints", ctypes.c_size_t),
    ]


class EntryStruct(ctypes.Structure):
    """TAV_HistoryEntry"""

    _fields_ = [
        ("number", ctypes.c_uint64),
        ("time_ms", ctypes.c_int64),
        ("name", ctypes.c_char_p),
        ("user", ctypes.c_char_p),
        ("program", ctypes.c_char_p),
        ("comment", ctypes.c_char_p),
        ("checksum", ctypes.c_char_p),
        ("added", ctypes.c_uint64),
        ("changed", ctypes.c_uint64),
        ("deleted", ctypes.c_uint64),
    ]


_U32, _I64, _SIZE = ctypes.c_uint32, ctypes.c_int64, ctypes.c_size_t
_TEXT, _IN = ctypes.c_char_p, ctypes.c_void_p
_OUT, _OUT_U32 = ctypes.POINTER(ctypes.c_void_p), ctypes.POINTER(ctypes.c_uint32)
_OUT_BYTES, _CHANGE = ctypes.POINTER(Bytes), ctypes.POINTER(ChangeStruct)

# What each function returns, and then what it takes. Those that return _U32 return a code, but for
# the last ones.
FUNCTIONS: dict[str, tuple[Any, ...]] = {
    "TAV_SessionOpen": (_U32, _TEXT, _TEXT, _U32, _U32, _OUT),
    "TAV_SessionStore": (_IN, _IN),
    "TAV_SessionReplace": (_U32, _IN, _IN),
    "TAV_SessionCommit": (_U32, _IN, _TEXT),
    "TAV_SessionClose": (None, _IN),
    "TAV_SessionRead": (_U32, _TEXT, _TEXT, _U32, _OUT),
    "TAV_SessionLock": (_U32, _TEXT, _U32, _OUT),
    "TAV_SessionUnlock": (None, _IN),
    "TAV_SessionRecover": (_U32, _TEXT, _TEXT, _U32),
    "TAV_SessionErrorText": (_TEXT,),
    "TAV_SessionErrorPlace": (_TEXT,),
    "TAV_BytesFree": (None, _OUT_BYTES),
    "TAV_NamesLoad": (_U32, _TEXT, _OUT),
    "TAV_NamesFree": (None, _IN),
    "TAV_NamesClass": (_U32, _IN, _TEXT, _OUT_U32),
    "TAV_NamesField": (_U32, _IN, _U32, _TEXT, _OUT_U32),
    "TAV_NamesClassText": (_U32, _IN, _U32, _OUT_BYTES),
    "TAV_NamesFieldText": (_U32, _IN, _U32, _U32, _OUT_BYTES),
    "TAV_ValueParse": (_U32, _U32, _TEXT, _SIZE, _OUT_BYTES),
    "TAV_ValueFormat": (_U32, _U32, _TEXT, _SIZE, _OUT_BYTES),
    "TAV_StoreNew": (_U32, _OUT),
    "TAV_StoreListVs": (_U32, _IN, _OUT_BYTES),
    "TAV_StoreListClasses": (_U32, _IN, _U32, _OUT_BYTES),
    "TAV_StoreFind": (_U32, _IN, _U32, _U32, _TEXT, _SIZE, _OUT_BYTES),
    "TAV_StoreRead": (_U32, _IN, _U32, _U32, _TEXT, _SIZE, _SIZE, _OUT_BYTES),
    "TAV_StoreToJson": (_U32, _IN, _U32, _IN, _OUT_BYTES),
    "TAV_StoreFromJson": (_U32, _IN, _U32, _TEXT, _SIZE, _IN, ctypes.POINTER(_SIZE)),
    "TAV_ExtCfgClose": (_U32, _IN),
    "TAV_ChangeMake": (_U32, _CHANGE, _IN),
    "TAV_ChangesNew": (_U32, _OUT),
    "TAV_ChangesFree": (None, _IN),
    "TAV_ChangesAppend": (_U32, _IN, _CHANGE),
    "TAV_ChangesDiff": (_U32, _IN, _IN, ctypes.POINTER(ScopeStruct), _OUT),
    "TAV_ChangesMerge": (_U32, _IN, _IN, _OUT),
    "TAV_ChangesParse": (_U32, _TEXT, _SIZE, _IN, _OUT),
    "TAV_ChangesCount": (_SIZE, _IN),
    "TAV_ChangesGet": (_U32, _IN, _SIZE, _CHANGE),
    "TAV_ChangesCountRecords": (_U32, _IN, ctypes.POINTER(CountsStruct)),
    "TAV_ChangesToScript": (_U32, _IN, _IN, _OUT_BYTES),
    "TAV_ChangesToJson": (_U32, _IN, _IN, _OUT_BYTES),
    "TAV_ChangesApply": (_U32, _IN, _IN, _OUT),
    "TAV_HistoryOpen": (_U32, _TEXT, _OUT),
    "TAV_HistoryClose": (None, _IN),
    "TAV_HistoryGetState": (_U32, _IN, ctypes.POINTER(StateStruct)),
    "TAV_HistoryCommit": (_U32, _IN, _SIZE, ctypes.POINTER(EntryStruct)),
    "TAV_HistoryCheckpoint": (_U32, _IN, _SIZE, ctypes.POINTER(EntryStruct)),
    "TAV_HistoryBefore": (_U32, _IN, _SIZE, _OUT),
    "TAV_HistoryAt": (_U32, _IN, _TEXT, _OUT),
    "TAV_HistoryStart": (_U32, _TEXT, _U32, _U32),
    "TAV_HistoryStop": (_U32, _TEXT, _U32),
    "TAV_HistoryAddCheckpoint": (_U32, _TEXT, _TEXT, _TEXT, _U32),
    "TAV_HistoryRemoveCheckpoint": (_U32, _TEXT, _TEXT, _U32),
    "TAV_WatchOpen": (_U32, _TEXT, _TEXT, _U32, _OUT),
    "TAV_WatchClose": (None, _IN),
    "TAV_WatchWait": (_U32, _IN, _I64),
    "TAV_WatchBefore": (_IN, _IN),
    "TAV_WatchAfter": (_IN, _IN),
    "TAV_WatchDescriptor": (ctypes.c_int, _IN),
    "TAV_ValueKind": (_U32, _U32),
    "TAV_StoreCount": (_U32, _IN, _U32, _U32),
    "TAV_GetExtTlvDataLen": (ctypes.c_uint16, _U32),
    "TAV_GetExtClassKeyFid": (_U32, _U32, _OUT_U32, _U32),
}


def _load() -> Any:
    """Loads the library: from the folder TAV_LIBRARY_PATH; else from beside the package, also when
    both were installed below one prefix; else as the system finds it."""
    given = os.environ.get("TAV_LIBRARY_PATH")
    here = os.path.dirname(os.path.abspath(__file__))
    is_installed = os.path.dirname(here).endswith("-packages")  # below PREFIX/lib/python3
    beside = [here, os.path.normpath(os.path.join(here, "../../.."))] if is_installed else [here]
    reasons = []
    for folder in [given] if given else [*beside, ""]:
        for name in ("libtav_session.so.1", "libtav_session.so"):
            path = os.path.join(folder, name)
            if folder and not os.path.exists(path):
                continue
            try:
                library = ctypes.CDLL(path)
            except OSError as error:
                reasons.append(str(error))
                continue
            for function, (result, *arguments) in FUNCTIONS.items():
                try:
                    bound = getattr(library, function)
                except AttributeError:
                    raise ImportError(
                        f"{path} is too old for this package: it has no {function}"
                    ) from None
                bound.restype, bound.argtypes = result, arguments
            return library
    raise ImportError(
        f"libtav_session.so cannot be loaded: {'; '.join(reasons) or f'it is not in {given}'}"
    )


lib = _load()


def check(code: int, *good: int) -> int:
    """Returns a code that is 0 or one of the good ones, and raises the Error of any other."""
    if code == 0 or code in good:
        return code
    text = (lib.TAV_SessionErrorText() or b"").decode(errors="replace")
    place = (lib.TAV_SessionErrorPlace() or b"").decode(errors="replace")
    raise error_of(code, place, text)


def take(function: Any, *arguments: Any) -> bytes:
    """Calls a function whose last argument receives bytes."""
    out = Bytes()
    try:
        check(function(*arguments, ctypes.byref(out)))
        return ctypes.string_at(out.data, out.size) if out.size else b""
    finally:
        lib.TAV_BytesFree(ctypes.byref(out))


def path_bytes(path: Path) -> bytes:
    """A path as the library takes it."""
    return without_nul(os.fsencode(path), "a path")


def path_text(path: Path) -> str:
    """A path for people."""
    return os.fsdecode(path)


def text_bytes(text: str, what: str) -> bytes:
    """A text as the library takes it."""
    return without_nul(text.encode(), what)


def without_nul(text: bytes, what: str) -> bytes:
    """What ends at a NUL would be cut there."""
    if b"\0" in text:
        raise ValueError(f"{what} cannot hold a NUL")
    return text


def milliseconds(seconds: float) -> int:
    """A waiting time as the library takes it: what is longer than seven weeks is seven weeks."""
    if math.isnan(seconds) or seconds < 0:
        raise ValueError(f"{seconds} is no time to wait")
    return min(math.ceil(min(seconds, 1e9) * 1000), 0xFFFFFFFF)


def word(number: int, what: str) -> int:
    """A number of 32 bits: ctypes would cut others."""
    number = number.__index__()
    if not 0 <= number <= 0xFFFFFFFF:
        raise ValueError(f"{what} is a number from 0 to 4294967295, not {number}")
    return number


def _release(
    box: ctypes.c_void_p, free: Callable[[int], object], lock: Any, owner: Optional[int]
) -> None:
    """Frees what a handle holds, once. Not in a child made by fork, where closing would release the
    parent's lock; and not while a thread that the interpreter leaves behind at its end is still at
    work with it."""
    if owner in (None, os.getpid()) and lock.acquire(blocking=False):
        try:
            pointer, box.value = box.value, None
            if pointer:
                free(pointer)
        finally:
            lock.release()


class Handle:
    """Something of the library's: used by one thread at a time, and freed once, by whoever comes
    first.

    `with handle as pointer:` lends the pointer. It is freed by close(), or when nothing refers to
    the handle any more. What holds a lock or a descriptor is bound to its process: it is also freed
    when the interpreter ends, and a child made by fork can neither use nor close it.
    """

    __slots__ = (
        "_box",
        "_closing",
        "_finalizer",
        "_lock",
        "_owner",
        "_uses",
        "_what",
        "__weakref__",
    )

    def __init__(self, what: str, free: Callable[[int], object], bound: bool) -> None:
        self._what = what
        self._box = ctypes.c_void_p()
        self._lock = threading.RLock()
        self._owner = os.getpid() if bound else None
        self._uses = 0
        self._closing = False
        self._finalizer = weakref.finalize(self, _release, self._box, free, self._lock, self._owner)
        self._finalizer.atexit = bound  # memory alone goes with the process

    @classmethod
    def open(
        cls,
        what: str,
        free: Callable[[int], object],
        function: Any,
        *arguments: Any,
        bound: bool = False,
    ) -> Handle:
        """A handle of what a function gives through its last argument. It is the handle's at once:
        nothing is lost when a signal interrupts."""
        handle = cls(what, free, bound)
        check(function(*arguments, ctypes.byref(handle._box)))
        return handle

    def __enter__(self) -> int:
        if self.is_foreign():
            raise Closed(self._what, "it belongs to the process that opened it")
        self._lock.acquire()
        self._uses += 1
        pointer = self._box.value
        if not pointer:
            self.__exit__()
            raise Closed(self._what)
        return pointer

    def __exit__(self, *_: object) -> None:
        self._uses -= 1
        if self._closing and self._uses == 0:
            self._finalizer()
        self._lock.release()

    def close(self) -> None:
        """Frees it; where a signal handler calls this in the midst of a call, once that has
        ended."""
        if not self.is_foreign():
            with self._lock:
                self._closing = True
                if self._uses == 0:
                    self._finalizer()

    def give_away(self) -> None:
        """Forgets what somebody else has taken over."""
        self._box.value = None

    @property
    def closed(self) -> bool:
        """Whether it was closed, or given away."""
        return self._closing or not self._box.value

    def is_foreign(self) -> bool:
        """Whether this process is a child of the one that it is bound to."""
        return self._owner is not None and self._owner != os.getpid()


@contextlib.contextmanager
def together(*handles: Handle) -> Iterator[list[int]]:
    """Lends several pointers; always in the same order, so that no two threads wait for each
    other."""
    with contextlib.ExitStack() as stack:
        pointers = {id(each): stack.enter_context(each) for each in sorted(handles, key=id)}
        yield [pointers[id(each)] for each in handles]
