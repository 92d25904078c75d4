#!/usr/bin/env python3
"""documents_test.py PLACE DOCUMENT...: does what the documents say, with what is installed.

The place is a build tree, which is installed for this, or the prefix where all is installed already.

Each document is worked through from its top in an empty folder. A fenced block whose language is followed by a name
is a file, and is written there: ```c routes.c. A block of the language console is a session of one shell: `$ ` begins
a command, `> ` goes on with it, and all else is what it prints, on either stream. `...` stands for what varies, and
for any number of lines where it is a line of its own. A command must succeed, unless the next one is `echo $?`. Every
block must say its language, and those of the other languages are for reading. In a manual page, blocks need no
language: those that begin with `$ ` are sessions; and of a backslash, the page shows what follows it.

Besides, what the installed documents link to must be installed.
"""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

READ_ONLY = {"c", "cmake", "conf", "cpp", "json", "python", "sh", "text"}  # without a name
MARK = "end of command, status"


class Block:
    def __init__(self, line, info, lines):
        self.line, self.lines = line, lines
        self.language, _, self.name = info.partition(" ")


def blocks(document):
    """Yields the fenced blocks of a document."""
    inside, indent = None, 0
    text = document.read_text()
    if document.suffix == ".scd":
        text = re.sub(r"\\(.)", r"\1", text)
    for number, line in enumerate(text.splitlines(), 1):
        fence = re.match(r"( *)```(.*)$", line)
        if not fence:
            if inside:
                inside.lines.append(line[indent:])
        elif inside:
            yield inside
            inside = None
        else:
            inside, indent = Block(number, fence[2], []), len(fence[1])


def commands(block):
    """Yields the commands of a session: line, command, what it prints."""
    command = None
    for number, line in enumerate(block.lines, block.line + 1):
        if line.startswith("$ "):
            if command:
                yield command
            command = (number, [line[2:]], [])
        elif (line + " ").startswith("> ") and not command[2]:
            command[1].append(line[2:])
        else:
            command[2].append(line)
    yield command


def pattern(lines):
    """Returns the regular expression of what lines of a document stand for."""
    parts = [r"(?:.*\n)*?" if line.strip() == "..." else
             "[^\n]*?".join(re.escape(part) for part in line.rstrip().split("...")) + "\n" for line in lines]
    return re.compile("".join(parts))


def prepared(document, folder):
    """Writes a document's files. Returns its commands. Raises ValueError."""
    session = []
    for block in blocks(document):
        if document.suffix == ".scd" and not block.language and block.lines[0].startswith("$ "):
            block.language = "console"
        if block.language == "console":
            session += commands(block)
        elif block.name:
            (folder / block.name).write_text("\n".join(block.lines) + "\n")
        elif block.language not in READ_ONLY and document.suffix != ".scd":
            raise ValueError(f"{document}:{block.line}: what language is '{block.language}'?")
    return session


def run(session, folder, environment):
    """Runs commands in one shell. Returns what each printed and its status, up to the one that ended the shell."""
    script = "".join("\n".join(command) + f"\n_status=$?; echo; echo '{MARK}' $_status; (exit $_status)\n"
                     for _, command, _ in session)
    process = subprocess.Popen(["bash", "-c", script], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True)
    try:
        output, _ = process.communicate(timeout=120)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        output, _ = process.communicate()
    return re.findall(rf"(.*?)\n?^{MARK} (\d+)\n", output, re.DOTALL | re.MULTILINE)


def check(document, environment):
    """Works through a document. Returns its commands and its faults."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        environment = environment | {"HOME": name, "TAV_WORK_PATH": name, "TAV_BUS_PATH": name + "/bus/"}
        session = prepared(document, folder)
        results = run(session, folder, environment)
    faults = []
    for i, (line, command, printed) in enumerate(session):
        place = f"{document}:{line}: $ " + "\n> ".join(command)
        if i >= len(results):
            faults.append(f"{place}\nhas not ended")
            break
        output, status = results[i]
        output = "".join(line.rstrip() + "\n" for line in output.splitlines())
        asked = i + 1 < len(session) and session[i + 1][1][0].startswith("echo $?")
        if status != "0" and not asked:
            faults.append(f"{place}\nhas failed with {status}:\n{output}")
        elif not pattern(printed).fullmatch(output):
            faults.append(f"{place}\nhas printed:\n{output}instead of:\n" + "\n".join(printed) + "\n")
    return session, faults


def broken_links(folder):
    """Yields the links of documents to others that are not there."""
    for document in folder.rglob("*.md"):
        for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document.read_text()):
            if not (document.parent / link).exists():
                yield f"{document}: {link} is not there"


def main(place, *documents):
    with tempfile.TemporaryDirectory() as prefix:
        if pathlib.Path(place, "CMakeCache.txt").exists():
            subprocess.run(["cmake", "--install", place, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
        else:
            prefix = place
        environment = {"PATH": f"{prefix}/bin:{os.environ['PATH']}", "PKG_CONFIG_PATH": f"{prefix}/lib/pkgconfig",
                       "LD_LIBRARY_PATH": f"{prefix}/lib", "CMAKE_PREFIX_PATH": prefix,
                       "PYTHONPATH": f"{prefix}/lib/python3/dist-packages", "LC_ALL": "C.UTF-8",
                       "GIT_CONFIG_NOSYSTEM": "1", "PREFIX": prefix}
        faults = [*broken_links(pathlib.Path(prefix, "share/doc/tav_adapt"))]
        for document in map(pathlib.Path, documents):
            session, found = check(document, environment)
            print(f"{document}: {len(session)} commands, {len(found)} faults")
            faults += found
    print("\n" + "\n".join(faults), end="")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
