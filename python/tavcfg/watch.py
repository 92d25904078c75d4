"""Watching a file: waiting until its content changes, whoever changes it."""

from __future__ import annotations

import os
import select
import threading
import time
import weakref
from collections.abc import Iterator
from typing import Optional, Union

from ._library import Handle, Path, check, lib, milliseconds, path_bytes, path_text
from .changes import Changes, open_changes
from .errors import Closed, Code
from .names import Names, names_of

__all__ = ["Watch", "watch"]


class Watch(Iterator[Changes]):
    """Sees each state of a file that it gets to load, and hands out what has changed since the one
    before.

    Commits that follow each other closely are seen as one. A file that is not there counts as an
    empty store. No lock is taken, and nobody is held up. close(), from any thread, ends the waiting
    and the iteration.
    """

    def __init__(
        self,
        path: Path,
        *,
        timeout: Optional[float] = None,
        wait: float = 5.0,
        refer: Optional[Path] = None,
        names: Union[Names, Path, None] = None,
    ) -> None:
        """See `tavcfg.watch`."""
        if timeout is not None:
            milliseconds(timeout)
        self._names = names_of(names)
        self._timeout = timeout
        self._what = path_text(path)
        self._waiting = 0
        self._closed = False
        self._pending = False  # whether there is a change that could not be handed out yet
        self._lock = threading.RLock()
        arguments = path_bytes(path), path_bytes(refer) if refer else None, milliseconds(wait)
        self._handle = Handle.open(
            self._what, lib.TAV_WatchClose, lib.TAV_WatchOpen, *arguments, bound=True
        )
        self._woken, self._wake = pipe = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
        self._close_pipe = weakref.finalize(self, _close, pipe)

    def __next__(self) -> Changes:
        """The next changes. Ends when the watch is closed, or nothing has changed for the time of
        `timeout`."""
        changes = None if self._closed else self.wait(self._timeout)
        if changes is None:
            raise StopIteration
        return changes

    def wait(self, timeout: Optional[float] = None) -> Optional[Changes]:
        """Waits until the file has another content than the last time, for so many seconds at most.

        Returns what has changed; None when the time is over, and when the watch is closed
        meanwhile. Raises Backup or Invalid when the file has changed and does not load, and the
        watch may go on; Error (OPEN) when its folder is gone or it cannot be read; Closed.
        """
        until = None if timeout is None else time.monotonic() + milliseconds(timeout) / 1000
        with self._lock:
            if self._closed:
                raise Closed(self._what)
            self._waiting += 1
        try:
            while not self._closed:
                changes, descriptor = self._look()
                if changes is not None:
                    return changes
                left = None if until is None else until - time.monotonic()
                if left is not None and left <= 0:
                    return None
                poll = select.poll()
                poll.register(descriptor, select.POLLIN)
                poll.register(self._woken, select.POLLIN)
                poll.poll(None if left is None else min(left * 1000, 0x7FFFFFFF))
            return None
        finally:
            with self._lock:
                self._waiting -= 1
                self._end()

    def close(self) -> None:
        """Ends the watch, and whoever waits for it. A second call does nothing."""
        with self._lock:
            self._closed = True
            if self._waiting > 0 and not self._handle.is_foreign():
                os.write(self._wake, b"!")
            self._end()

    def fileno(self) -> int:
        """A descriptor that becomes readable when wait(0) may have something to do."""
        with self._handle as pointer:
            return int(lib.TAV_WatchDescriptor(pointer))

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def _end(self) -> None:
        """Frees what a closed watch holds, unless somebody is still waiting."""
        if self._closed and self._waiting == 0:
            self._handle.close()
            self._close_pipe()

    def _look(self) -> tuple[Optional[Changes], int]:
        """What has changed since the last look, and what to wait for."""
        with self._handle as pointer:
            if not self._pending:
                code = check(lib.TAV_WatchWait(pointer, 0), Code.UNCHANGED)
                self._pending = code != Code.UNCHANGED
            if not self._pending:
                return None, lib.TAV_WatchDescriptor(pointer)
            stores = lib.TAV_WatchBefore(pointer), lib.TAV_WatchAfter(pointer)
            changes = open_changes(lib.TAV_ChangesDiff, *stores, None)
            self._pending = False
            return Changes._of(changes, self._names), -1


def _close(descriptors: tuple[int, int]) -> None:
    for descriptor in descriptors:
        os.close(descriptor)


def watch(
    path: Path,
    *,
    timeout: Optional[float] = None,
    wait: float = 5.0,
    refer: Optional[Path] = None,
    names: Union[Names, Path, None] = None,
) -> Watch:
    """Begins to watch a file.

        for changes in tavcfg.watch("routers.dat"):
            print(changes)

    path     the file, which need not be there
    timeout  after how many seconds without a change the iteration ends; never without it
    wait     how many seconds to wait at most, whenever a program is writing the file without a
             session
    refer    the refer file, given exactly when the file carries a refer checksum
    names    names of classes and fields, or their file, which the changes show

    Raises what `tavcfg.snapshot` raises, but for a file that is not there.
    """
    return Watch(path, timeout=timeout, wait=wait, refer=refer, names=names)
