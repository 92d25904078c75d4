"""The history of a file: what it held before each of its last commits, and named checkpoints."""

from __future__ import annotations

import ctypes
from datetime import datetime, timedelta, timezone
from typing import Any, NamedTuple, Optional, Union

from ._library import (
    EntryStruct,
    Handle,
    Path,
    StateStruct,
    check,
    lib,
    milliseconds,
    path_bytes,
    text_bytes,
)
from .changes import Counts
from .errors import Code
from .names import Names, names_of
from .session import edit
from .store import Store, former_store

__all__ = ["Checkpoint", "Commit", "History"]

_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


class Commit(NamedTuple):
    """One commit: its number, counted from 1 since the history was first started; when it was made,
    by whom, with which program, and why; the checksum of the content that it brought, empty when it
    deleted the file; and how many records it has changed."""

    number: int
    time: datetime
    user: str
    program: str
    comment: str
    checksum: str
    counts: Counts


class Checkpoint(NamedTuple):
    """A named state of a file: when it was kept, by whom, with which program, and why; and its
    content's checksum."""

    name: str
    time: datetime
    user: str
    program: str
    comment: str
    checksum: str


class History:
    """The history of a file, read anew by each call. A file without one has one that is off and
    empty.

    Calls that read take no lock and raise Invalid when the history is damaged. Calls that write
    take the file's lock and raise Locked, Missing, NotSaved and whatever else `tavcfg.edit` raises.
    """

    def __init__(
        self,
        path: Path,
        *,
        wait: float = 5.0,
        refer: Optional[Path] = None,
        names: Union[Names, Path, None] = None,
    ) -> None:
        """The history of a file; nothing is read yet. `wait`, `refer` and `names` are those of
        `tavcfg.edit`."""
        self._path = path_bytes(path)
        self._wait = wait
        self._refer = refer
        self._names = names_of(names)
        milliseconds(wait)

    @property
    def on(self) -> bool:
        """Whether commits are being recorded."""
        with self._open() as pointer:
            return bool(_state(pointer).is_on)

    @property
    def keep(self) -> int:
        """How many commits are kept."""
        with self._open() as pointer:
            return int(_state(pointer).keep)

    @property
    def commits(self) -> list[Commit]:
        """The commits that are kept, the oldest first."""
        with self._open() as pointer:
            entries = _entries(lib.TAV_HistoryCommit, pointer, _state(pointer).commits)
            return [
                Commit(each.number, *_note(each), Counts(each.added, each.changed, each.deleted))
                for each in entries
            ]

    @property
    def checkpoints(self) -> list[Checkpoint]:
        """The checkpoints, in the order of their names."""
        with self._open() as pointer:
            entries = _entries(lib.TAV_HistoryCheckpoint, pointer, _state(pointer).checkpoints)
            return [Checkpoint(each.name.decode(), *_note(each)) for each in entries]

    def before(self, count: int) -> Store:
        """What the file held before its last `count` commits; empty where there was no file. Raises
        NotFound when the history does not go back so far."""
        if count.__index__() < 1:
            raise ValueError("a history goes back by at least one commit")
        with self._open() as pointer:
            return former_store(
                self._what, self._names, lib.TAV_HistoryBefore, pointer, min(count, 2**32)
            )

    def at(self, checkpoint: str) -> Store:
        """What a checkpoint holds. Raises NotFound when there is none of this name."""
        name = text_bytes(checkpoint, "a checkpoint")
        with self._open() as pointer:
            return former_store(self._what, self._names, lib.TAV_HistoryAt, pointer, name)

    def start(self, keep: int = 20) -> bool:
        """Records commits from now on, or changes how many are kept: the newest `keep`. Returns
        False when it is so already."""
        if not 1 <= keep.__index__() <= 0xFFFFFFFF:
            raise ValueError("a history keeps at least one commit")
        wait = milliseconds(self._wait)
        return check(lib.TAV_HistoryStart(self._path, keep, wait), Code.UNCHANGED) == 0

    def stop(self) -> bool:
        """Records no more commits. What was recorded stays, and so do checkpoints. Returns False
        when none was being recorded."""
        wait = milliseconds(self._wait)
        return check(lib.TAV_HistoryStop(self._path, wait), Code.UNCHANGED) == 0

    def add_checkpoint(self, name: str, comment: str = "") -> None:
        """Keeps the file's content under a name until it is removed, whether or not commits are
        recorded. Raises Invalid for a name that is taken, or is not 1 to 64 letters, digits, '-',
        '_' and '.', or a number.
        """
        texts = text_bytes(name, "a checkpoint"), text_bytes(comment, "a comment")
        check(lib.TAV_HistoryAddCheckpoint(self._path, *texts, milliseconds(self._wait)))

    def remove_checkpoint(self, name: str) -> None:
        """Removes a checkpoint. Raises NotFound."""
        text = text_bytes(name, "a checkpoint")
        check(lib.TAV_HistoryRemoveCheckpoint(self._path, text, milliseconds(self._wait)))

    def rollback(self, to: Union[int, str], comment: Optional[str] = None) -> bool:
        """Brings back what the file held so many commits ago, or at a checkpoint, also where the
        file does not load any more. It is a commit like any other, and can be taken back in the
        same way.

        Returns False when the file holds the same already. Raises NotFound; and as `edit` and
        `commit`.
        """
        self._former(to).close()  # before there is a lock file, which would be left beside nothing
        session = edit(self._path, wait=self._wait, create=True, replace=True, refer=self._refer)
        try:
            session._replace(self._former(to))
            return session.commit(f"rollback {to}" if comment is None else comment)
        finally:
            session.close()

    def _former(self, to: Union[int, str]) -> Store:
        return self.at(to) if isinstance(to, str) else self.before(to)

    @property
    def _what(self) -> str:
        return f"the history of {self._path.decode(errors='replace')}"

    def _open(self) -> Handle:
        return Handle.open(self._what, lib.TAV_HistoryClose, lib.TAV_HistoryOpen, self._path)


def _state(pointer: int) -> StateStruct:
    state = StateStruct()
    check(lib.TAV_HistoryGetState(pointer, ctypes.byref(state)))
    return state


def _entries(function: Any, pointer: int, count: int) -> list[EntryStruct]:
    entries = [EntryStruct() for _ in range(count)]
    for index, entry in enumerate(entries):
        check(function(pointer, index, ctypes.byref(entry)))
    return entries


def _note(entry: EntryStruct) -> tuple[datetime, str, str, str, str]:
    texts = (entry.user, entry.program, entry.comment, entry.checksum)
    user, program, comment, checksum = (text.decode(errors="replace") for text in texts)
    return _EPOCH + timedelta(milliseconds=entry.time_ms), user, program, comment, checksum
