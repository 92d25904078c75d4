"""Stores, records, values, changes, JSON, names: in memory."""

import ipaddress
import json
import os
import random
import tempfile
import unittest
from datetime import datetime, timedelta, timezone

import tavcfg
from tests.support import memory


def utc(*arguments):
    return datetime(*arguments, tzinfo=timezone.utc)


VALUES = [  # field, what is given, what is read
    (14, 0, 0),
    (14, 4294967295, 4294967295),
    (14, "0x10", 16),
    (14, b"\1\2", b"\1\2"),  # not of the type's length
    (11, 255, 255),
    (12, "", ""),
    (12, "zwei\0\n\udcff", "zwei\0\n\udcff"),
    (18, ipaddress.ip_address("192.0.2.1"), ipaddress.ip_address("192.0.2.1")),
    (18, "2001:db8::1", ipaddress.ip_address("2001:db8::1")),
    (18, b"\7" * 21, b"\7" * 21),  # of no family
    (4, datetime(2024, 5, 6, 7, 8, 9, 123456), utc(2024, 5, 6, 7, 8, 9, 123000)),
    (4, "2024-05-06T07:08:09.500", utc(2024, 5, 6, 7, 8, 9, 500000)),
    (4, datetime(2024, 1, 1, tzinfo=timezone(timedelta(hours=2))), utc(2023, 12, 31, 22)),
    (4, b"\xff" * 12, b"\xff" * 12),
    (5, b"\0\1", b"\0\1"),
    (5, "0a0b", b"\x0a\x0b"),
    (99, b"any\0", b"any\0"),  # of no known type
    (99, "hex:00ff", b"\0\xff"),
]

BAD_VALUES = [  # field, what is given, what it raises
    (14, 4294967296, tavcfg.Invalid),
    (14, -1, tavcfg.Invalid),
    (14, "five", tavcfg.Invalid),
    (14, 1.5, TypeError),
    (14, None, TypeError),
    (12, 5, TypeError),
    (12, "x" * 434, tavcfg.Invalid),
    (18, ipaddress.ip_address("fe80::1%eth0"), tavcfg.Invalid),
    (18, datetime.now(), TypeError),
    (4, ipaddress.ip_address("192.0.2.1"), TypeError),
    (5, b"x" * 33, tavcfg.Invalid),
    (99, 5, TypeError),
    (99, b"x" * 65536, tavcfg.Invalid),
    (-1, 5, ValueError),
    (2**32, 5, ValueError),
    ("14.5", 5, tavcfg.Invalid),
    (None, 5, (TypeError, AttributeError)),
]

NAMES = {"13": {"name": "route", "fields": {"14": "id", "18": "address"}}, "7": {"name": "service"}}


class Model:
    """A store beside dicts of what it must hold."""

    def __init__(self, seed):
        self.random = random.Random(seed)
        self.store = tavcfg.Store()
        self.records = {}  # (vs, class, key): fields

    def value(self, fid):
        if fid in (8, 12):
            return "".join(self.random.choices('ab "\\#=\n\0ä', k=self.random.randrange(8)))
        if fid == 18:
            return ipaddress.ip_address(
                self.random.choice([self.random.getrandbits(32), 2**127 + 1])
            )
        return self.random.getrandbits({9: 8 * 2, 11: 8, 15: 8}.get(fid, 32) if fid != 15 else 8)

    def fields(self, cid):
        return {fid: self.value(fid) for fid in (12, 18, 19, 27, 15) if self.random.random() < 0.4}

    def step(self):
        vs, cid = self.random.randrange(3), self.random.choice([7, 13, 26])
        key_fid = 8 if cid == 7 else 14
        key = self.random.choice("abcd") if cid == 7 else self.random.randrange(8)
        fields, place = self.fields(cid), (vs, cid, key)
        known = self.records.get(place)
        records = self.store[vs, cid]
        verb = self.random.choice(["add", "set", "unset", "delete"])
        try:
            if verb in ("add", "set"):
                getattr(records, verb)({**fields, key_fid: key})
            elif verb == "unset":
                records.unset(key, *fields)
            else:
                records.delete(key)
        except tavcfg.NotFound:
            return (
                known is None
                if verb != "unset"
                else known is None or not fields.keys() <= known.keys()
            )
        except tavcfg.Invalid:
            return verb == "add" and known is not None
        if verb == "delete":
            del self.records[place]
        elif verb == "unset":
            self.records[place] = {fid: value for fid, value in known.items() if fid not in fields}
        else:
            self.records[place] = {**(known or {}), **fields, key_fid: key}
        return verb == "add" or known is not None


def content(store):
    return {(r.vs, r.cid, r.key): dict(r) for vs in store for records in vs for r in records}


class StoreTest(unittest.TestCase):
    def setUp(self):
        before = memory()
        self.addCleanup(lambda: self.assertEqual(memory(), before))

    def test_random_edits_beside_dicts(self):
        for seed in range(20):
            model = Model(seed)
            base, taken = None, []
            for step in range(200):
                self.assertTrue(model.step(), f"seed {seed}, step {step}")
                if step == 100:
                    base = tavcfg.Store()
                    base.apply(tavcfg.diff(base, model.store))
            store = model.store
            self.assertEqual(content(store), model.records)
            for vs in range(3):
                keys = [record.key for record in store[vs, 13]]
                self.assertEqual(keys, sorted(keys))
                self.assertEqual(len(store[vs, 13]), len(keys))
                self.assertTrue(
                    all(key in store[vs, 13] and store[vs, 13][key].key == key for key in keys)
                )
            changes = tavcfg.diff(base, store)
            for same in (changes, tavcfg.Changes(changes), tavcfg.Changes.parse(str(changes))):
                self.assertEqual(same, changes)
                back = base.apply(same)
                self.assertEqual(content(base), model.records)
                base.apply(back)
                taken.append(content(base))
            self.assertTrue(all(each == taken[0] for each in taken))
            for lines in (False, True):
                copy = tavcfg.Store()
                self.assertEqual(
                    copy.load_json(store.to_json(lines=lines), lines=lines), len(model.records)
                )
                self.assertEqual(content(copy), model.records)
                self.assertEqual(len(tavcfg.diff(store, copy)), 0)

    def test_values(self):
        for fid, given, read in VALUES:
            with self.subTest(fid=fid, given=given), tavcfg.Store() as store:
                store[0, 13].add([(14, 1), (fid, given), (27, 2)] if fid != 14 else {14: given})
                record = next(iter(store[0, 13]))
                self.assertEqual(record[fid], read)
                store[0, 13].delete(record)
                store[0, 13].add(record.pairs)
                self.assertEqual(next(iter(store[0, 13])), record)
        for fid, given, kind in BAD_VALUES:
            with self.subTest(fid=fid, given=given), tavcfg.Store() as store:
                with self.assertRaises(kind):
                    store[0, 13].add({14: 1, fid: given})
                self.assertEqual([vs.id for vs in store], [])

    def test_records_are_copies(self):
        store = tavcfg.Store()
        store[0, 13].add([(14, 1), (19, 2), (19, 3)])
        record = store[0, 13][1]
        store.close()
        self.assertEqual(record, {14: 1, 19: 2})
        self.assertEqual(record.pairs, ((14, 1), (19, 2), (19, 3)))
        self.assertEqual(
            (record.get(19), record.get(20), 20 in record, len(record)), (2, None, False, 2)
        )
        with self.assertRaises(tavcfg.NotFound):
            record[20]

    def test_walks_go_on_while_records_change(self):
        store = tavcfg.Store()
        for key in range(0, 20000, 2):
            store[0, 13].add({14: key, 19: 0})
        seen = []
        for record in store[0, 13]:
            seen.append((record.key, record[19]))
            if record.key % 1000 == 0:
                store[0, 13].delete(record.key)
                store[0, 13].delete(record.key + 2)
                store[0, 13].add({14: record.key + 3, 19: 1})
                store[0, 13].set({14: record.key + 4, 19: 2})
        expected = {key: 0 for key in range(0, 20000, 2)}
        for key in range(0, 20000, 1000):
            del expected[key + 2]
            expected.update({key + 3: 1, key + 4: 2})
        self.assertEqual(seen, sorted(expected.items()))

    def test_changes(self):
        script = 'add 1\nset 0 13 14=1 12="a b"\nunset 0 13 14=1 19\ndel 0 13 14=1\n'
        changes = tavcfg.Changes.parse(script)
        self.assertEqual(str(changes), script)
        self.assertEqual("".join(f"{change}\n" for change in changes), script)
        self.assertEqual(changes[-1], tavcfg.Change("del", 0, 13, ((14, 1),)))
        self.assertEqual(changes[1:3], [changes[1], changes[2]])
        self.assertEqual(changes.counts, (0, 1, 1))
        self.assertEqual(
            [json.loads(line)["verb"] for line in changes.to_json().splitlines()][0], "add"
        )
        store = tavcfg.Store()
        for bad, kind, place in [
            ("add 0\nadd 1\nset 0 13 14=1 19=2", tavcfg.NotFound, "line 3"),
            ("\nadd 0 13 19=2", tavcfg.Invalid, "line 2"),
            ("add 0\nhop 1", tavcfg.Invalid, "line 2"),
            (
                tavcfg.Changes([tavcfg.Change("add", 0), tavcfg.Change("del", 1)]),
                tavcfg.NotFound,
                "change 2",
            ),
        ]:
            with self.assertRaises(kind) as caught:
                store.apply(bad)
            self.assertEqual(caught.exception.place, place)
            self.assertEqual(list(store), [])
        for bad in [
            ("hop", 0),
            ("add", -1),
            ("add", 0, 13, ((14, 1),), (2**32,)),
            ("add", 0, "x"),
            ("set", 0),
        ]:
            with self.assertRaises(ValueError):
                tavcfg.Changes([tavcfg.Change(*bad)])
        with self.assertRaises(IndexError):
            changes[4]

    def test_a_part_is_compared(self):
        one, other = tavcfg.Store(), tavcfg.Store()
        one.apply("add 0 13 14=1 19=1\nadd 1 7 8=a")
        other.apply("add 0 13 14=1 19=2\nadd 0 26 14=1")
        for options, script in [
            ({"vs": 1}, "del 1 7 8=a\ndel 1\n"),
            ({"cid": 13}, "set 0 13 14=1 19=2\n"),
            ({"cid": "13", "ignore": [19]}, ""),
        ]:
            self.assertEqual(str(tavcfg.diff(one, other, **options)), script)

    def test_names(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "x.names.json")
            with self.assertRaises(tavcfg.Error) as caught:
                tavcfg.Names(path)
            self.assertEqual(
                (caught.exception.code, caught.exception.place), (tavcfg.Code.READ, path)
            )
            with open(path, "w") as file:
                json.dump(NAMES, file)
            store = tavcfg.Store(names=path)
        store[0, "route"].add({"id": 5, "address": "192.0.2.1", "19": 7})
        record = store[0, "route"][{"id": 5}]
        self.assertEqual(record, {14: 5, 18: ipaddress.ip_address("192.0.2.1"), 19: 7})
        self.assertEqual((record["id"], record.get("19"), "address" in record), (5, 7, True))
        self.assertEqual(list(record.named()), ["id", "address", "19"])
        back = store.apply("set 0 route id=5 19=8")
        self.assertEqual(str(back), "set 0 route id=5 19=7\n")
        self.assertIn('"class":"route","fields":[["id",5]', store.to_json())
        store[0, "route"].unset(5, "address")
        for call in [
            lambda: store[0, "router"],
            lambda: record["address2"],
            lambda: store.apply("del 0 x"),
        ]:
            with self.assertRaises(tavcfg.Invalid):
                call()


if __name__ == "__main__":
    unittest.main()
