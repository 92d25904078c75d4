"""What can go wrong: codes, and the exceptions that carry them."""

from __future__ import annotations

import enum

__all__ = [
    "Backup",
    "Changed",
    "Closed",
    "Code",
    "Error",
    "Invalid",
    "Locked",
    "Missing",
    "NotFound",
    "NotSaved",
    "Refused",
    "error_of",
]


class Code(enum.IntEnum):
    """Result codes of the library."""

    COPY = 1
    NO_MEMORY = 0x801611
    NOT_READY = 0x801612
    DIGEST = 0x801613
    READ = 0x801614
    REFUSED = 0x801615
    OPEN = 0x801616
    INVALID = 0x801617
    NOT_FOUND = 0x801618
    NULL = 0x801619
    NO_ROOM = 0x80161A
    UNCHANGED = 0x80161B
    LOCKED = 0x801701
    BACKUP = 0x801702
    CHANGED = 0x801703
    NOT_SAVED = 0x801704
    MISSING = 0x801705

    @classmethod
    def _missing_(cls, value: object) -> Code:
        """A code that has no name here, as those of a device's own platform."""
        if not isinstance(value, int):
            raise ValueError(f"{value!r} is no code")
        code = int.__new__(cls, value)
        code._name_, code._value_ = f"CODE_{value:X}", value
        return code


class Error(Exception):
    """A failure: its text is "place: sentence", ready for people; programs ask for the code.

    code      the result code
    place     what it is about: a file, a line of a script, a record; empty when the text says it
              all
    sentence  what is wrong and, where there is one, the way out; without the place
    """

    code: Code
    place: str
    sentence: str

    def __init__(self, code: int, place: str, sentence: str) -> None:
        super().__init__(code, place, sentence)
        self.code = Code(code)
        self.place = place
        self.sentence = sentence

    def __str__(self) -> str:
        return f"{self.place}: {self.sentence}" if self.place else self.sentence


class Locked(Error):
    """Another session holds the lock all the time; its process is named."""


class Missing(Error):
    """There is no such file."""


class Backup(Error):
    """The file is missing or broken, and a ".bak" lies beside it: `tavcfg.recover`."""


class Changed(Error):
    """A program without a session has changed the file meanwhile; nothing was written."""


class NotSaved(Error):
    """The file could not be written, and is as it was."""


class NotFound(Error, LookupError):
    """There is no such virtual system, record, field, commit or checkpoint."""


class Refused(Error):
    """What was only read cannot be changed, or the file would be too large."""


class Invalid(Error, ValueError):
    """A file that does not load, a record that is there already, a value that does not suit its
    field."""


class Closed(Error, ValueError):
    """It was closed, or belongs to the process that opened it."""

    def __init__(self, what: str, why: str = "it is closed") -> None:
        super().__init__(Code.INVALID, what, why)

    def __reduce__(self) -> tuple[object, ...]:
        return (Closed, (self.place, self.sentence))


_CLASSES: dict[int, type[Error]] = {
    Code.LOCKED: Locked,
    Code.MISSING: Missing,
    Code.BACKUP: Backup,
    Code.CHANGED: Changed,
    Code.NOT_SAVED: NotSaved,
    Code.NOT_FOUND: NotFound,
    Code.REFUSED: Refused,
    Code.INVALID: Invalid,
}


def error_of(code: int, place: str, text: str) -> Error:
    """The exception for a code of the library and the text that came with it."""
    begin = f"{place}: "
    sentence = text[len(begin) :] if place and text.startswith(begin) else text
    return _CLASSES.get(code, Error)(code, place, sentence or f"it failed with code {code:#x}")
