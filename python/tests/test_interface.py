"""The package beside the library's headers, the C interface's answers to nulls, and the promise to
be documented."""

import ctypes
import inspect
import os
import re
import unittest

import tavcfg
from tavcfg import _library

NUMBERS = {
    "uint16_t": ctypes.c_uint16,
    "uint32_t": ctypes.c_uint32,
    "uint64_t": ctypes.c_uint64,
    "int64_t": ctypes.c_int64,
    "size_t": ctypes.c_size_t,
    "int": ctypes.c_int,
    "void": None,
}
STRUCTURES = {
    "TAV_Bytes": _library.Bytes,
    "TAV_Change": _library.ChangeStruct,
    "TAV_ChangeCounts": _library.CountsStruct,
    "TAV_DiffScope": _library.ScopeStruct,
    "TAV_HistoryState": _library.StateStruct,
    "TAV_HistoryEntry": _library.EntryStruct,
}
MAY_BE_NULL = {"after", "comment", "count", "inverse", "names", "refer", "scope"}


def same(given, declared):
    """Whether a type of ctypes is that of a C declaration."""
    name = getattr(given, "__name__", "")
    if "*" not in declared:
        return given is NUMBERS[declared]
    return name in ("c_void_p", "c_char_p") or name.startswith("LP_")


def split(declaration):
    """The type and the name of a parameter or a member."""
    return re.fullmatch(r"\s*(?:const )?(.*?)\s*(\w+)\s*", declaration).groups()


@unittest.skipUnless("TAV_INCLUDE" in os.environ, "there are no headers")
class HeaderTest(unittest.TestCase):
    def setUp(self):
        self.text = ""
        for name in (
            "tav_session",
            "tav_store",
            "tav_changes",
            "tav_history",
            "tav_watch",
            "tav_extcfg",
        ):
            with open(os.path.join(os.environ["TAV_INCLUDE"], name + ".h")) as file:
                self.text += re.sub(r"/\*.*?\*/", "", file.read(), flags=re.S)

    def parameters(self, name):
        """What a function returns and takes."""
        result, parameters = re.search(
            rf"TAV_API ([^;]*?)\s*\b{name}\(([^)]*)\);", self.text
        ).groups()
        return result, [] if parameters == "void" else [
            split(each) for each in parameters.split(",")
        ]

    def test_functions_and_structures(self):
        for name, (result, *arguments) in _library.FUNCTIONS.items():
            declared, parameters = self.parameters(name)
            self.assertEqual(len(arguments), len(parameters), name)
            for given, there in zip(
                [result, *arguments], [declared, *(kind for kind, _ in parameters)]
            ):
                self.assertTrue(same(given, there), f"{name}: {given}, {there}")
        for name, structure in STRUCTURES.items():
            members = (
                re.search(rf"typedef struct {name} {{(.*?)}}", self.text, re.S)[1]
                .strip(" \n;")
                .split(";")
            )
            self.assertEqual(len(members), len(structure._fields_), name)
            for (member, given), there in zip(structure._fields_, members):
                self.assertTrue(same(given, split(there)[0]), f"{name}.{member}: {there}")

    def test_the_version_is_the_librarys(self):
        with open(os.path.join(os.environ["TAV_INCLUDE"], "tav_version.h")) as file:
            parts = re.findall(r"#define TAV_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", file.read())
        self.assertEqual(tavcfg.__version__, ".".join(parts))

    def test_nulls_are_refused(self):
        something = ctypes.create_string_buffer(256)
        count = 0
        for name, (result, *arguments) in _library.FUNCTIONS.items():
            parameters = self.parameters(name)[1]
            good = [
                ctypes.cast(something, kind) if "*" in there else 1
                for kind, (there, _) in zip(arguments, parameters)
            ]
            for at, (there, parameter) in enumerate(parameters):
                if (
                    "*" not in there
                    or parameter in MAY_BE_NULL
                    or not name.startswith("TAV_")
                    or "ExtC" in name
                ):
                    continue
                answer = getattr(_library.lib, name)(*good[:at], None, *good[at + 1 :])
                if result is ctypes.c_uint32 and name != "TAV_StoreCount":
                    self.assertEqual(answer, 0x801619, f"{name}, {parameter}")
                    self.assertEqual(_library.lib.TAV_SessionErrorText(), b"a pointer is null")
                else:
                    self.assertIn(answer, (None, 0, -1), name)
                count += 1
        self.assertGreater(count, 80)


class DocumentationTest(unittest.TestCase):
    def test_all_public_names_are_documented(self):
        for name in set(tavcfg.__all__) - {
            "Fields",
            "Key",
            "Value",
        }:  # these are types, which Python sees no text of
            thing = getattr(tavcfg, name)
            members = [(name, thing)]
            if inspect.isclass(thing):
                members += [
                    (f"{name}.{key}", getattr(thing, key))
                    for key, each in vars(thing).items()
                    if not key.startswith("_")
                    and (callable(each) or isinstance(each, (property, classmethod)))
                ]
            for each, value in members:
                self.assertTrue(inspect.getdoc(value), each)


if __name__ == "__main__":
    unittest.main()
