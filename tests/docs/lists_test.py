#!/usr/bin/env python3
"""lists_test.py SOURCE TAVCFG: the lists in the documents are whole.

docs/errors.md has every result code; man/tavcfg.1.scd has every command, with exactly the options of its help.
"""
import pathlib
import re
import subprocess
import sys

source, tavcfg = pathlib.Path(sys.argv[1]), sys.argv[2:]
faults = []


def compare(what, documented, real):
    faults.extend(f"{what}: {name} is missing" for name in sorted(real - documented))
    faults.extend(f"{what}: there is no {name}" for name in sorted(documented - real))


def options_in(text):
    return set(re.findall(r"\*(--[a-z-]+)\*", text))


def help_of(command):
    """Returns a command's subcommands, and its options but --help, which all have."""
    text = subprocess.run([*tavcfg, *command, "--help"], capture_output=True, text=True, check=True).stdout
    names = re.search(r"^Subcommands:\n((?:  .*\n)*)", text, re.MULTILINE)
    return (re.findall(r"^  ([a-z]+)", names[1], re.MULTILINE) if names else [],
            set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", text, re.MULTILINE)) - {"--help"})


def compare_commands(sections, *command):
    """Compares the manual's sections of a command, or of its subcommands, with the help, and takes them away."""
    names, options = help_of(command)
    for name in names:
        compare_commands(sections, *command, name)
    if not names:
        title = " ".join(("tavcfg", *command))
        synopsis = sections.pop(title, "").split("\n\n")[0]
        groups = [sections[f"{name} options"] for name in re.findall(r"_(\w+)\s+options_", synopsis)]
        compare(title, options_in(synopsis).union(*map(options_in, groups)), options)


headers = "".join((source / "include" / name).read_text() for name in ("tav_base.h", "tav_session.h", "tav_fleet.h"))
codes = {(name, int(value, 16)) for name, value in re.findall(r"#define (TAV_ERR_\w+)[ \\\n]+(\w+)u", headers)}
rows = re.findall(r"^\| `(TAV_ERR_\w+)` (\w+)", (source / "docs/errors.md").read_text(), re.MULTILINE)
compare("errors.md", {(name, int(value, 16)) for name, value in rows}, codes)

manual = re.split(r"^##? (.*)\n\n", (source / "man/tavcfg.1.scd").read_text(), flags=re.MULTILINE)
sections = {title.lower(): text for title, text in zip(manual[1::2], manual[2::2])}
compare_commands(sections)
faults.extend(f"there is no {title}" for title in sections if title.startswith("tavcfg "))

print("\n".join(faults))
sys.exit(1 if faults else 0)
