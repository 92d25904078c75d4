#!/usr/bin/env python3
"""lists_test.py SOURCE: docs/errors.md has every result code, and what the documents link to is there."""
import pathlib
import re
import sys

source = pathlib.Path(sys.argv[1])
faults = []


def compare(what, documented, real):
    faults.extend(f"{what}: {name} is missing" for name in sorted(real - documented))
    faults.extend(f"{what}: there is no {name}" for name in sorted(documented - real))


headers = "".join((source / "include" / name).read_text() for name in ("tav_base.h", "tav_session.h"))
codes = {(name, int(value, 16)) for name, value in re.findall(r"#define (TAV_ERR_\w+)[ \\\n]+(\w+)u", headers)}
rows = re.findall(r"^\| `(TAV_ERR_\w+)` (\w+)", (source / "docs/errors.md").read_text(), re.MULTILINE)
compare("errors.md", {(name, int(value, 16)) for name, value in rows}, codes)

for document in [source / "README.md", *(source / "docs").glob("*.md")]:
    for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document.read_text()):
        if not (document.parent / link).exists():
            faults.append(f"{document}: {link} is not there")
print("\n".join(faults))
sys.exit(1 if faults else 0)
