#!/usr/bin/env python3
"""Checks the tables of pinned behaviours in tests/README.md: every test named there exists, every
row names one, and every folder of Source has its table. A test that is renamed or dropped is
noticed so.

    check_pins.py ROOT

Prints what is missing; status 1 if anything is.
"""

import pathlib
import re
import sys

SECTION = "Pinned behaviours"
UNIT_TEST = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)\s*\)", re.MULTILINE)
BUILD_TEST = re.compile(r"^\s*add_vesk_test\(([\w.]+)\s", re.MULTILINE)
NAME = re.compile(r"`([^`]+)`")


def existing_tests(tests):
    names = {f"{folder}/{path.name}" for folder in ("uci", "host")
             for path in (tests / folder).glob("*.uci")}
    for folder in ("unit", "tune", "endings"):
        for path in (tests / folder).glob("*.cpp"):
            names.update(map(".".join, UNIT_TEST.findall(path.read_text(encoding="utf-8"))))
    names.update(f"data.{path.stem.removeprefix('check_')}"
                 for path in (tests / "data_words").glob("check_*.py"))
    names.update(BUILD_TEST.findall((tests / "CMakeLists.txt").read_text(encoding="utf-8")))
    return names


def rows_of(text):
    """The table rows of the section: line number, folder, cells."""
    inside = False
    folder = None
    for number, line in enumerate(text.splitlines(), 1):
        if line.startswith("## "):
            inside = line == f"## {SECTION}"
        elif line.startswith("### "):
            folder = line[4:]
        elif inside and line.startswith("| ") and line != "| Behaviour | Test |":
            yield number, folder, [cell.strip() for cell in line.strip("|").split("|")]


def main():
    root = pathlib.Path(sys.argv[1])
    page = root / "tests" / "README.md"
    known = existing_tests(root / "tests")
    wrong = []
    count = 0
    filled = set()
    for number, folder, cells in rows_of(page.read_text(encoding="utf-8")):
        names = NAME.findall(cells[1]) if len(cells) == 2 else []
        if not names:
            wrong.append(f"{page}:{number}: a row needs a behaviour and the name of a test")
        wrong += [f"{page}:{number}: no test {name}" for name in names if name not in known]
        filled.add(folder)
        count += len(names)
    for folder in sorted(path.name for path in (root / "Source").iterdir() if path.is_dir()):
        if folder not in filled:
            wrong.append(f"{page}: no table for Source/{folder}")
    print("\n".join(wrong + [f"{count} tests named, {len(wrong)} complaints"]))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
