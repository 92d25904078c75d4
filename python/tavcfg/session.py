"""Sessions: changing a file that others change, too, and losing nothing."""

from __future__ import annotations

from types import TracebackType
from typing import Optional, Union

from ._library import Handle, Path, check, lib, milliseconds, path_bytes, path_text, text_bytes
from .errors import Code
from .names import Names, names_of
from .store import Store

__all__ = ["Lock", "Session", "edit", "recover"]

_CREATE, _REPLACE = 1, 2


class Session(Store):
    """The store of a file whose lock is held: changed in memory, and brought to the file by a
    commit.

    As a context manager it commits at the end of the block, and drops everything when the block
    raises. It must be closed, or the lock stays until nothing refers to it any more. A child made
    by fork can neither use nor close it.

    comment  what the history keeps about the commit at the end of the block; may be changed
    """

    comment: str

    def _local(self, pointer: int) -> int:
        return int(lib.TAV_SessionStore(pointer))

    def commit(self, comment: Optional[str] = None) -> bool:
        """Brings the store to the file, which holds the whole old or the whole new content at every
        moment. The session goes on. A store without any virtual system deletes the file.

        Returns False when the file holds the same already. Raises Invalid when the store could not
        be read back; Changed; NotSaved; Refused when it would be larger than 100 MiB; NotFound when
        the refer file gives no checksum. After a failure the file is as it was, unless the text
        says otherwise.
        """
        text = text_bytes(self.comment if comment is None else comment, "a comment")
        with self._handle as pointer:
            return check(lib.TAV_SessionCommit(pointer, text), Code.UNCHANGED) == 0

    def _replace(self, store: Store) -> None:
        """Takes over what another store holds; that is closed."""
        with self._handle as pointer, store._handle as other:
            self._edits += 1
            check(lib.TAV_SessionReplace(pointer, other))
            store._handle.give_away()

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        try:
            if kind is None and not self._handle.closed:
                self.commit()
        finally:
            self.close()


def edit(
    path: Path,
    *,
    wait: float = 5.0,
    create: bool = False,
    replace: bool = False,
    comment: str = "",
    refer: Optional[Path] = None,
    names: Union[Names, Path, None] = None,
) -> Session:
    """Takes a file's lock and loads the file, to change it.

        with tavcfg.edit("routers.dat") as store:
            store[0, 13].set({14: 5, 19: 7})

    path     the file, an archive when its real name ends in ".zip"; links are followed
    wait     how many seconds to wait at most, for the lock and for a program that writes without a
             session. A signal does not end it
    create   a file that is not there is made by the first commit
    replace  start empty, also where the file does not load
    comment  what the history keeps about it
    refer    the refer file: whose checksum the file carries, and will carry
    names    names of classes and fields, or their file

    Raises Locked, naming the process that holds the lock; Missing; Backup; Invalid when the file
    does not load; Error (OPEN) when folder, lock file or file cannot be opened, or may not be
    written; NotSaved.
    """
    loaded = names_of(names)
    text_bytes(comment, "a comment")
    flags = (_CREATE if create else 0) | (_REPLACE if replace else 0)
    arguments = path_bytes(path), path_bytes(refer) if refer else None, milliseconds(wait), flags
    session = Session.__new__(Session)
    handle = Handle.open(
        path_text(path), lib.TAV_SessionClose, lib.TAV_SessionOpen, *arguments, bound=True
    )
    session._begin(handle, loaded)
    session.comment = comment
    return session


class Lock:
    """The lock of a file alone, for programs that change it by other means: no session opens until
    it is released."""

    def __init__(self, path: Path, *, wait: float = 5.0) -> None:
        """Takes the lock, waiting at most so many seconds; the file need not be there. Raises
        Locked; Error (OPEN)."""
        arguments = path_bytes(path), milliseconds(wait)
        self._handle = Handle.open(
            path_text(path), lib.TAV_SessionUnlock, lib.TAV_SessionLock, *arguments, bound=True
        )

    def release(self) -> None:
        """Releases it. A second call does nothing."""
        self._handle.close()

    def __enter__(self) -> Lock:
        return self

    def __exit__(self, *_: object) -> None:
        self.release()


def recover(path: Path, *, wait: float = 5.0, refer: Optional[Path] = None) -> str:
    """Settles what a program has left that flushed without a session and died: of file and ".bak"
    the right one becomes the file, the other one is moved aside. Nothing is deleted.

    Returns what was done, in one line; empty when there was nothing to do. Raises Missing when
    there is neither; Invalid when neither loads; Locked, also when something goes on changing;
    Error (OPEN); NotSaved.
    """
    arguments = path_bytes(path), path_bytes(refer) if refer else None, milliseconds(wait)
    if check(lib.TAV_SessionRecover(*arguments), Code.UNCHANGED) == Code.UNCHANGED:
        return ""
    return str((lib.TAV_SessionErrorText() or b"").decode(errors="replace"))
