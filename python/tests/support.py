"""What the tests share."""

import ctypes
import gc
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import tavcfg
from tavcfg import _library

ROUTES = {5: 7, 6: 8}


class FileTest(unittest.TestCase):
    """A folder with a file of two records; and in the end nothing is left in memory."""

    parent = None  # of the folder; by default where temporary files lie

    def setUp(self):
        self.folder = tempfile.mkdtemp(dir=self.parent)
        self.addCleanup(shutil.rmtree, self.folder)
        self.path = os.path.join(self.folder, "routers.dat")
        with tavcfg.edit(self.path, create=True) as store:
            for number, metric in ROUTES.items():
                store[0, 13].add({14: number, 19: metric})
        before = memory()
        self.addCleanup(lambda: self.assertEqual(memory(), before))

    def routes(self):
        with tavcfg.snapshot(self.path) as store:
            return {record[14]: record[19] for record in store[0, 13]}

    def assert_refused(self, kind, code, call, text=""):
        """Fails unless a call raises an Error of a kind and a code. Returns it."""
        with self.assertRaises(kind) as caught:
            call()
        self.assertEqual(caught.exception.code, code)
        self.assertIn(text, str(caught.exception))
        return caught.exception


class Account(ctypes.Structure):
    _fields_ = [("blocks", ctypes.c_uint64), ("bytes", ctypes.c_uint64)]


def memory():
    """The blocks that the product holds."""
    gc.collect()
    account = Account()
    _library.lib.TAV_Posix_MemTotal(ctypes.byref(account))
    return account.blocks


def live_blocks():
    """The blocks that C++ code holds."""
    gc.collect()
    tavcfg.Store().close()  # after which the text of a failure is no longer kept
    return _live()


def fail_memory(nth):
    """Makes the nth request for memory fail. Returns how many were left of the last time."""
    return _fail(nth)


def run(program, *arguments):
    """Runs a Python program. Returns what it has printed, and its exit status."""
    done = subprocess.run(
        [sys.executable, "-X", "dev", "-c", program, *arguments],
        capture_output=True,
        text=True,
        timeout=120,
    )
    return done.stdout + done.stderr, done.returncode


try:
    _fail, _live = ctypes.CDLL(None).TestFailMemory, ctypes.CDLL(None).TestLiveBlocks
    _fail.argtypes, _fail.restype, _live.restype = [ctypes.c_int64], ctypes.c_int64, ctypes.c_int64
except AttributeError:  # the tests of an installed package need not have it
    _fail = _live = None
can_fail = _fail is not None
