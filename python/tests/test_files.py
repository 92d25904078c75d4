"""Files: sessions, snapshots, locks, history, watching, recovery; alone and in company."""

import os
import threading
import time
import unittest
from datetime import datetime, timedelta, timezone

import tavcfg
from tests.support import ROUTES, FileTest, run

ADD_MANY = """
import sys, tavcfg
path, first = sys.argv[1], int(sys.argv[2])
for number in range(first, first + 20):
    with tavcfg.edit(path, wait=60) as store:
        store[0, 13].add({14: number, 19: 1})
"""


class SessionTest(FileTest):
    def test_a_block_commits_or_drops(self):
        with tavcfg.edit(self.path) as store:
            store[0, 13].set({14: 5, 19: 70})
            self.assertEqual(self.routes(), ROUTES)
        self.assertEqual(self.routes(), {**ROUTES, 5: 70})
        written = os.stat(self.path).st_ino
        with self.assertRaises(KeyError), tavcfg.edit(self.path) as store:
            store[0, 13].delete(5)
            raise KeyError
        with tavcfg.edit(self.path) as store:
            store[0, 13].delete(5)
            store.close()
        with tavcfg.edit(self.path) as store:
            store[0, 13].set({14: 5, 19: 70})
            self.assertFalse(store.commit())
        self.assertEqual((self.routes(), os.stat(self.path).st_ino), ({**ROUTES, 5: 70}, written))
        with tavcfg.edit(self.path) as store:
            self.assertTrue(store[0, 13].delete(5) is None and store.commit())
            store[0, 13].delete(6)
            store.delete_vs(0)
        self.assertFalse(os.path.exists(self.path))

    def test_refusals(self):
        missing, folder = os.path.join(self.folder, "x.dat"), os.path.join(
            self.folder, "no", "x.dat"
        )
        broken = os.path.join(self.folder, "broken.dat")
        with open(broken, "w") as file:
            file.write("no configuration")
        for kind, code, call in [
            (tavcfg.Missing, 0x801705, lambda: tavcfg.edit(missing)),
            (tavcfg.Missing, 0x801705, lambda: tavcfg.snapshot(missing.encode())),
            (tavcfg.Error, 0x801616, lambda: tavcfg.edit(folder, create=True)),
            (tavcfg.Invalid, 0x801617, lambda: tavcfg.edit(self.folder)),
            (tavcfg.Invalid, 0x801617, lambda: tavcfg.edit(broken)),
            (tavcfg.Invalid, 0x801617, lambda: tavcfg.diff(self.path, broken)),
            (tavcfg.Invalid, 0x801617, lambda: tavcfg.edit(self.path, refer=self.path)),
            (tavcfg.Missing, 0x801705, lambda: tavcfg.History(missing).start()),
            (tavcfg.NotFound, 0x801618, lambda: tavcfg.History(missing).rollback(1)),
            (tavcfg.NotFound, 0x801618, lambda: tavcfg.History(self.path).at("x")),
            (tavcfg.NotFound, 0x801618, lambda: tavcfg.History(self.path).remove_checkpoint("x")),
            (tavcfg.Invalid, 0x801617, lambda: tavcfg.History(self.path).add_checkpoint("5")),
            (tavcfg.Missing, 0x801705, lambda: tavcfg.recover(missing)),
            (tavcfg.Error, 0x801616, lambda: tavcfg.Lock(folder)),
            (tavcfg.Error, 0x801616, lambda: tavcfg.watch(folder)),
        ]:
            error = self.assert_refused(kind, code, call)
            self.assertTrue(str(error).startswith(f"{error.place}: ") and error.sentence)
        self.assertEqual(sorted(each for each in os.listdir(self.folder) if "x.dat" in each), [])
        with tavcfg.edit(broken, replace=True) as store:
            store.load_json('{"vs":0,"class":13,"fields":[[14,1]]}\n{"vs":3}', lines=True)
        with tavcfg.snapshot(broken) as store:
            self.assertEqual([vs.id for vs in store], [0, 3])
            for call in [
                lambda: store[0, 13].set({14: 1}),
                lambda: store.apply(""),
                lambda: store.load_json("{}"),
            ]:
                self.assert_refused(tavcfg.Refused, 0x801615, call, "tavcfg.edit")

    def test_a_program_without_a_session(self):
        with tavcfg.edit(self.path) as store:
            os.utime(self.path, (1, 1))
            store[0, 13].delete(5)
            self.assert_refused(tavcfg.Changed, 0x801703, store.commit)
            store.close()
        os.rename(self.path, self.path + ".bak")
        self.assert_refused(tavcfg.Backup, 0x801702, lambda: tavcfg.snapshot(self.path, wait=0))
        self.assertIn("routers.dat.bak", tavcfg.recover(self.path))
        self.assertEqual((self.routes(), tavcfg.recover(self.path)), (ROUTES, ""))

    def test_one_after_the_other(self):
        with tavcfg.edit(self.path):
            for call in [tavcfg.edit, tavcfg.Lock]:
                start = time.monotonic()
                self.assert_refused(
                    tavcfg.Locked,
                    0x801701,
                    lambda: call(self.path, wait=0.1),
                    f"process {os.getpid()}",
                )
                self.assertGreaterEqual(time.monotonic() - start, 0.1)
        with tavcfg.Lock(self.path) as lock:
            self.assert_refused(tavcfg.Locked, 0x801701, lambda: tavcfg.edit(self.path, wait=0))
            lock.release()
            tavcfg.edit(self.path, wait=0).close()
        writers = [
            threading.Thread(target=lambda first=first: run(ADD_MANY, self.path, str(first)))
            for first in (100, 200, 300)
        ]
        for writer in writers:
            writer.start()
        while any(writer.is_alive() for writer in writers):
            self.assertGreaterEqual(len(self.routes()), 2)
        self.assertEqual(len(self.routes()), 2 + 3 * 20)

    def test_history(self):
        history = tavcfg.History(self.path)
        self.assertEqual((history.on, history.commits, history.checkpoints), (False, [], []))
        self.assertEqual([history.start(keep=3), history.start(keep=3)], [True, False])
        for metric in range(5):
            with tavcfg.edit(self.path, comment=f"metric {metric} ü") as store:
                store[0, 13].set({14: 5, 19: metric})
        self.assertEqual((history.on, history.keep), (True, 3))
        self.assertEqual(
            [commit.comment for commit in history.commits], [f"metric {n} ü" for n in (2, 3, 4)]
        )
        last = history.commits[-1]
        self.assertEqual((last.number, last.counts, len(last.checksum)), (5, (0, 1, 0), 64))
        self.assertLess(datetime.now(timezone.utc) - last.time, timedelta(minutes=1))
        with history.before(2) as store:
            self.assertEqual(store[0, 13][5][19], 2)
        self.assert_refused(tavcfg.NotFound, 0x801618, lambda: history.before(4))
        history.add_checkpoint("good", "why")
        self.assertEqual(
            [(each.name, each.comment) for each in history.checkpoints], [("good", "why")]
        )
        self.assertTrue(history.rollback(2))
        self.assertEqual((self.routes()[5], history.commits[-1].comment), (2, "rollback 2"))
        with open(self.path, "w") as file:
            file.write("damaged")
        self.assertTrue(history.rollback("good", "damaged"))
        self.assertFalse(history.rollback("good"))
        self.assertEqual((self.routes()[5], history.commits[-1].comment), (4, "damaged"))
        history.remove_checkpoint("good")
        self.assertEqual([history.stop(), history.stop()], [True, False])
        self.assertEqual((history.on, history.checkpoints), (False, []))

    def test_watching(self):
        with tavcfg.watch(self.path, timeout=30) as watch:
            self.assertIsNone(watch.wait(0))
            with tavcfg.edit(self.path) as store:
                store[0, 13].set({14: 5, 19: 70})
            self.assertEqual(str(next(watch)), "set 0 13 14=5 19=70\n")
            os.rename(self.path, self.path + ".old")
            self.assertEqual(watch.wait(30).counts, (0, 0, 2))
            with open(self.path, "w") as file:
                file.write("damaged")
            self.assert_refused(tavcfg.Invalid, 0x801617, lambda: watch.wait(30))
            os.rename(self.path + ".old", self.path)
            self.assertEqual(watch.wait(30).counts, (2, 0, 0))
        self.assertEqual(list(watch), [])
        self.assertEqual(list(tavcfg.watch(self.path, timeout=0.05)), [])
        watch = tavcfg.watch(self.path)
        seen = []
        waiting = [threading.Thread(target=lambda: seen.append(list(watch))) for _ in range(3)]
        for thread in waiting:
            thread.start()
        time.sleep(0.05)
        watch.close()
        for thread in waiting:
            thread.join()
        self.assertEqual(seen, [[], [], []])
        self.assert_refused(tavcfg.Closed, 0x801617, watch.wait)


if __name__ == "__main__":
    unittest.main()
