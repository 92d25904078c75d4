"""Configuration files of virtual systems, records and typed fields, changed safely in company.

    import tavcfg

    with tavcfg.edit("routers.dat", wait=5) as store:
        store[0, 13].set({14: 5, 19: 7})

The guide is docs/python.md, which is installed with the C library's documents. The package stands
on libtav_session.so, which it looks for in the folder of the environment variable TAV_LIBRARY_PATH,
beside itself, and where the system looks.
"""

__version__ = "1.0.0"  # that of tav_version.h

from .changes import Change, Changes, Counts
from .errors import (
    Backup,
    Changed,
    Closed,
    Code,
    Error,
    Invalid,
    Locked,
    Missing,
    NotFound,
    NotSaved,
    Refused,
)
from .history import Checkpoint, Commit, History
from .names import Names
from .records import Key, Record
from .session import Lock, Session, edit, recover
from .store import Records, Store, VirtualSystem, diff, snapshot
from .values import Fields, Value
from .watch import Watch, watch

__all__ = [
    "Backup",
    "Change",
    "Changed",
    "Changes",
    "Checkpoint",
    "Closed",
    "Code",
    "Commit",
    "Counts",
    "Error",
    "Fields",
    "History",
    "Invalid",
    "Key",
    "Lock",
    "Locked",
    "Missing",
    "Names",
    "NotFound",
    "NotSaved",
    "Record",
    "Records",
    "Refused",
    "Session",
    "Store",
    "Value",
    "VirtualSystem",
    "Watch",
    "diff",
    "edit",
    "recover",
    "snapshot",
    "watch",
]
