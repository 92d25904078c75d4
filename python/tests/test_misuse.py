"""What must neither crash, leak nor hang: misuse, threads, forks, signals, the end of the
interpreter, memory that is short."""

import copy
import ctypes
import gc
import inspect
import os
import pickle
import random

import signal
import threading
import unittest

import tavcfg
from tavcfg import _library
from tests.support import ROUTES, FileTest, can_fail, fail_memory, live_blocks, memory, run


def edits(path):
    """Goes through what stores, sessions and watches can do; what it makes and does not close is
    dropped."""
    with tavcfg.watch(path, timeout=0) as watch:
        with tavcfg.edit(path, comment="why") as store:
            store[0, 13].set({14: 5, 12: "a text", 18: "192.0.2.1"})
            store[0, 13].unset(5, 12, 18)
            store.apply("set 0 13 14=6 19=9\nadd 1 7 8=key")
            back = store.apply(str(store.apply("set 0 13 14=5 19=100")))
            store.load_json(store.to_json())
        changes = list(watch)
    with tavcfg.snapshot(path) as former, tavcfg.Lock(path):
        assert [dict(record) for record in former[0, 13]] == [{14: 5, 19: 7}, {14: 6, 19: 9}]
        assert former[0, 13].get(7) is None and 0 in former and len(former[0, 13]) == 2
    assert list(back) and back.to_json() and back.counts and changes[0][0].verb


def states(path):
    """Goes through history and recovery."""
    history = tavcfg.History(path)
    history.start()
    edits(path)
    history.add_checkpoint("x")
    assert history.rollback(1)
    assert len(tavcfg.diff(path, history.at("x"))) == 3 and len(history.commits) > 1
    history.remove_checkpoint("x")
    assert not tavcfg.recover(path)


class MisuseTest(FileTest):
    parent = "/dev/shm" if os.path.isdir("/dev/shm") else None  # there are many commits

    def test_what_is_closed_says_so(self):
        store = tavcfg.edit(self.path)
        views = store[0], store[0, 13], iter(store[0, 13]), iter(store)
        next(views[2])
        store.close()
        store.close()
        changes, other = tavcfg.Changes.parse("add 1"), tavcfg.Store()
        for call in [
            store.commit,
            store.to_json,
            store.__enter__().__iter__,
            lambda: store.load_json('{"vs":[{"id":0,"records":[]}]}'),
            lambda: store.apply(changes),
            lambda: tavcfg.diff(store, other),
            lambda: tavcfg.diff(other, store),
            lambda: list(views[0]),
            lambda: len(views[1]),
            lambda: list(views[1]),
            lambda: views[1].add({14: 1}),
            lambda: views[1][5],
            lambda: 5 in views[1],
            lambda: 0 in store,
            lambda: next(views[2]),
        ]:
            self.assert_refused(tavcfg.Closed, 0x801617, call, "routers.dat: it is closed")
        self.assertTrue(store.closed)
        other.close()
        self.assert_refused(tavcfg.Closed, 0x801617, other.to_json)

    def test_wrong_arguments(self):
        store, names = tavcfg.Store(), os.path.join(self.folder, "no.json")
        for call in [
            lambda: tavcfg.edit(None),
            lambda: tavcfg.edit(5),
            lambda: tavcfg.edit("a\0b"),
            lambda: tavcfg.edit(""),
            lambda: tavcfg.edit("x" * 5000, create=True),
            lambda: tavcfg.edit(self.path, wait=-1),
            lambda: tavcfg.edit(self.path, wait=float("nan")),
            lambda: tavcfg.edit(self.path, wait="5"),
            lambda: tavcfg.edit(self.path, comment=5),
            lambda: tavcfg.edit(self.path, comment="\0"),
            lambda: tavcfg.edit(self.path, comment="\ud800"),
            lambda: tavcfg.edit(self.path, names=names),
            lambda: tavcfg.edit(self.path, refer=names),
            lambda: tavcfg.watch(self.path, timeout=-1),
            lambda: tavcfg.diff(store, None),
            lambda: tavcfg.diff(store, store, vs=-1),
            lambda: tavcfg.diff(store, store, ignore=[None]),
            lambda: tavcfg.History(self.path).before(0),
            lambda: tavcfg.History(self.path).before(2**70),
            lambda: tavcfg.History(self.path).start(0),
            lambda: tavcfg.History(self.path).start(2**32),
            lambda: tavcfg.History(self.path).at("\0"),
            lambda: store[None],
            lambda: store[-1],
            lambda: store[0, 2**32],
            lambda: store[0, 13, 14],
            lambda: store[0, 13][None],
            lambda: store[0, 13][(5, 6)],
            lambda: store[0, 13][{}],
            lambda: store[0, 13][{14: None}],
            lambda: store[0, 99].add({14: 5}),
            lambda: store[0, 13].add(None),
            lambda: store[0, 13].add({}),
            lambda: store[0, 13].add([14, 5]),
            lambda: store[0, 13].add({14: 5, 8: []}),
            lambda: store.apply(None),
            lambda: store.load_json(b"{}"),
            lambda: store.load_json("[" * 100000),
            lambda: store.delete_vs(5),
            lambda: tavcfg.Changes(5),
            lambda: tavcfg.Changes([5]),
            lambda: tavcfg.Changes.parse(None),
            lambda: pickle.dumps(store),
            lambda: copy.deepcopy(store),
        ]:
            with self.subTest(inspect.getsource(call).strip()):
                with self.assertRaises(
                    (tavcfg.Error, ValueError, TypeError, AttributeError)
                ) as caught:
                    call()
                self.assertNotIsInstance(caught.exception, tavcfg.Closed)
        self.assertEqual((list(store), self.routes()), ([], ROUTES))
        error = pickle.loads(
            pickle.dumps(self.assert_refused(tavcfg.Missing, 0x801705, lambda: tavcfg.edit(names)))
        )
        self.assertEqual((error.code, error.place), (tavcfg.Code.MISSING, names))
        self.assertEqual(pickle.loads(pickle.dumps(tavcfg.Closed("x"))).sentence, "it is closed")

    def test_garbage_in_any_order(self):
        for seed in range(50):
            session = tavcfg.edit(self.path)
            snapshot = tavcfg.snapshot(self.path)
            watch = tavcfg.watch(self.path)
            things = [
                session,
                snapshot,
                watch,
                session[0],
                iter(session[0, 13]),
                iter(snapshot),
                snapshot[0, 13][5],
            ]
            things += [
                session.apply("add 3"),
                tavcfg.diff(snapshot, session),
                iter(tavcfg.diff(session, snapshot)),
            ]
            things.append(things)  # a circle
            del session, snapshot, watch
            random.Random(seed).shuffle(things)
            while things:
                things.pop()
            gc.collect()
        self.assertEqual(self.routes(), ROUTES)

    def test_threads(self):
        store, failures = tavcfg.edit(self.path), []
        changes, done = tavcfg.Changes.parse("add 1 13 14=1"), threading.Event()

        def work(seed):
            chance = random.Random(seed)
            while not done.is_set():
                try:
                    key = chance.randrange(50)
                    choice = chance.randrange(8)
                    if choice == 0:
                        store[0, 13].add({14: key, 19: seed})
                    elif choice == 1:
                        store[0, 13].delete(key)
                    elif choice == 2:
                        list(store[0, 13])
                    elif choice == 3:
                        store.apply(store.apply(changes))
                    elif choice == 4:
                        len(
                            tavcfg.diff(store, snapshot)
                            if chance.random() < 0.5
                            else tavcfg.diff(snapshot, store)
                        )
                    elif choice == 5:
                        store.commit()
                    elif choice == 6:
                        len(list(changes))
                    else:
                        store.to_json()
                except (tavcfg.NotFound, tavcfg.Invalid):
                    pass
                except tavcfg.Closed:
                    return
                except BaseException as error:
                    failures.append(error)
                    return

        with tavcfg.snapshot(self.path) as snapshot:
            threads = [threading.Thread(target=work, args=(seed,)) for seed in range(4)]
            for thread in threads:
                thread.start()
            done.wait(1)
            store.close()
            for thread in threads:
                thread.join()
        self.assertEqual(failures, [])

    def test_a_fork_leaves_the_parents_session_alone(self):
        snapshot, session, watch = (
            tavcfg.snapshot(self.path),
            tavcfg.edit(self.path),
            tavcfg.watch(self.path),
        )
        for leave in (lambda: os._exit(0), lambda: exit(0)):
            child = os.fork()
            if child == 0:
                try:
                    for call in (
                        session.commit,
                        session.to_json,
                        watch.wait,
                        lambda: tavcfg.diff(snapshot, session),
                    ):
                        self.assert_refused(tavcfg.Closed, 0x801617, call, "belongs to the process")
                    with self.assertRaises(tavcfg.Closed), session:
                        pass  # would commit
                    watch.close()
                    self.assert_refused(
                        tavcfg.Locked, 0x801701, lambda: tavcfg.edit(self.path, wait=0)
                    )
                    assert snapshot[0, 13][5][19] == 7
                    snapshot.close()
                    gc.collect()
                    leave()
                except BaseException as error:
                    os._exit(0 if isinstance(error, SystemExit) and error.code == 0 else 1)
            self.assertEqual(os.waitpid(child, 0)[1], 0)
        self.assert_refused(tavcfg.Locked, 0x801701, lambda: tavcfg.edit(self.path, wait=0))
        with session:
            session[0, 13].delete(5)
        self.assertEqual(str(watch.wait(30)), "del 0 13 14=5\n")
        self.assertEqual(snapshot[0, 13][5][19], 7)

    def test_a_signal_handler_that_closes(self):
        watch = tavcfg.watch(self.path)
        store = tavcfg.Store()
        store[0, 13].add({14: 1})
        self.addCleanup(signal.signal, signal.SIGALRM, signal.getsignal(signal.SIGALRM))

        def close(*_):
            watch.close()
            store.close()

        signal.signal(signal.SIGALRM, close)
        signal.setitimer(signal.ITIMER_REAL, 0.05)
        with self.assertRaises(tavcfg.Closed):
            while True:
                store[0, 13].set({14: 1, 19: 2})
        self.assertEqual(list(watch), [])
        watch = tavcfg.watch(self.path)
        signal.signal(signal.SIGALRM, signal.default_int_handler)
        signal.setitimer(signal.ITIMER_REAL, 0.05)
        with self.assertRaises(KeyboardInterrupt):
            watch.wait()

    def test_the_end_of_the_interpreter(self):
        program = """
import sys, threading, tavcfg
path = sys.argv[1]
class Holder:
    def __del__(self):
        try:
            self.store.to_json()
        except Exception:
            pass
holder = Holder()
holder.store = session = tavcfg.edit(path)
records = iter(session[0, 13]); next(records)
watch = tavcfg.watch(path)
changes = session.apply("add 3")
session.circle = session
threading.Thread(target=watch.wait, daemon=True).start()
threading.Thread(target=lambda: tavcfg.edit(path, wait=30), daemon=True).start()
def spin():
    while True:
        session.to_json()
threading.Thread(target=spin, daemon=True).start()
"""
        for ending in ("", "sys.exit(3)", "raise ValueError('x')"):
            output, status = run(program + ending, self.path)
            self.assertEqual(status, 3 if "exit" in ending else 1 if ending else 0, output)
            self.assertEqual(
                output.strip().splitlines()[-1:], ["ValueError: x"] if "raise" in ending else []
            )
            tavcfg.edit(self.path, wait=0).close()
        self.assertEqual(self.routes(), ROUTES)

    def test_each_failing_request_for_memory(self):
        if not can_fail:
            self.skipTest("no request can be made to fail")
        with open(self.path, "rb") as file:
            content = file.read()
        for nth in range(1, 100000):
            fail_memory(nth)
            try:
                edits(self.path)
            except tavcfg.Error as error:
                self.assertIn("memory", str(error), f"request {nth}")
            if fail_memory(0) > 0:
                break
            self.assertIn(self.routes(), (ROUTES, {**ROUTES, 6: 9}), f"request {nth}")
            tavcfg.edit(self.path, wait=0).close()  # nobody holds the lock
            with open(self.path, "wb") as file:
                file.write(content)
        self.assertGreater(nth, 100)

    def test_nothing_grows(self):
        if not can_fail:
            self.skipTest("blocks of C++ are not counted")
        seen = []
        for _ in range(4):
            states(self.path)
            with self.assertRaises(tavcfg.Error):
                tavcfg.edit(self.path + "x")
            seen.append((memory(), live_blocks(), len(os.listdir("/proc/self/fd"))))
        self.assertEqual(seen[1:], 3 * seen[1:2])


if __name__ == "__main__":
    unittest.main()
