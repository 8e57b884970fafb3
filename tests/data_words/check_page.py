#!/usr/bin/env python3
"""Runs the commands of docs/data.md, and compares what they print with what the page shows.

    check_page.py VESK_DATA VESK ROOT [--update]

A command is an indented line that begins with "$ "; what stands below it in its block is all that
it prints, but for the first lines of every run of the engine. They are run one after the other in a
folder with the games that the page begins with, packed or not. --update writes what they print into
the page.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

FIRST_LINES = re.compile(r"^info string allocated .*\n\n", re.M)
GAMES = {"lichess-2024-05.pgn.zst": "games/month.pgn", "engines.pgn": "games/guis.pgn",
         "drawn.pgn": "games/no-view.pgn"}
FOLDERS = {"tables": "syzygy"}
INDENT = "    "


def blocks_of(lines):
    """The indented blocks: the numbers of the first line and of the one behind the last."""
    start = None
    for number, line in enumerate([*lines, "end"]):
        if line.startswith(INDENT):
            start = number if start is None else start
        elif line and start is not None:
            end = number
            while not lines[end - 1].startswith(INDENT):
                end -= 1
            yield start, end
            start = None


def commands_of(block):
    """The commands of a block with what is shown below each."""
    commands = []
    for line in block:
        text = line[len(INDENT):]
        if text.startswith("$ "):
            commands.append((text[2:], []))
        elif commands:
            commands[-1][1].append(text)
        else:
            return []
    return commands


def run(command, folder, path):
    result = subprocess.run(["bash", "-c", command], cwd=folder, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120,
                            check=False, env={**os.environ, "PATH": f"{path}:{os.environ['PATH']}"})
    output = FIRST_LINES.sub("", result.stdout.decode())
    return output.rstrip("\n").split("\n") if output.strip() else []


def main():
    data, vesk, root = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
    page = root / "docs" / "data.md"
    lines = page.read_text(encoding="utf-8").splitlines()
    written, last, complaints, count = [], 0, [], 0
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        programs = folder / "programs"
        work = folder / "work"
        programs.mkdir()
        work.mkdir()
        (programs / "vesk-data").symlink_to(data)
        (programs / "vesk").symlink_to(vesk)
        for name, source in GAMES.items():
            (work / name).write_bytes((root / "tests" / "data" / source).read_bytes())
        for name, source in FOLDERS.items():
            (work / name).symlink_to(root / "tests" / "data" / source)
        for start, end in blocks_of(lines):
            commands = commands_of(lines[start:end])
            if not commands:
                continue
            written += lines[last:start]
            last = end
            for number, (command, shown) in enumerate(commands):
                count += 1
                while shown and not shown[-1]:
                    shown.pop()
                printed = run(command, work, programs)
                if [line.rstrip() for line in printed] != [line.rstrip() for line in shown]:
                    complaints.append("\n".join([f"$ {command}", *printed, "--- but the page has",
                                                 *shown]))
                written += [""] if number > 0 else []
                written += [f"{INDENT}$ {command}"]
                written += [(INDENT + line).rstrip() for line in printed]
    written += lines[last:]
    if "--update" in sys.argv:
        page.write_text("\n".join(written) + "\n", encoding="utf-8")
    elif complaints or count == 0:
        raise SystemExit("\n\n".join(complaints) or "the page has no command")


if __name__ == "__main__":
    main()
