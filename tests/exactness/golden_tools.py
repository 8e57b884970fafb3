#!/usr/bin/env python3
"""Compares the files that a program makes from games with stored ones, byte for byte.

Usage: golden_tools.py books|scans PROGRAM FOLDER [--write]

books: for each NAME.pgn with a NAME.bin beside it, NAME.bin is the book that -mkbook makes, and
NAME.out what it prints from the line "Creating file" on.

scans: for each NAME.pgn and form N from 1 to 4, NAME.formN.out is the line that -scan_pgnN prints,
NAME.formN.pgn (form 1) or NAME.formN.epd the file of games or positions, NAME.form1.X.epd the
second file of form 1. Only files that exist are compared.

With --write what differs is written anew. A new case begins with its games and empty files of the
names wanted. Prints what differs; the status is 1 if anything does.
"""
import argparse
import pathlib
import shutil
import subprocess
import sys
import tempfile

import stored


def run_tool(program, folder, option, games, statuses):
    """Runs the tool on games in a folder, where it leaves its files; returns what it prints."""
    result = subprocess.run([program, "-hash", "1", option, games], cwd=folder,
                            stdin=subprocess.DEVNULL, capture_output=True)
    if result.returncode not in statuses:
        raise SystemExit(f"{option} {games}: status {result.returncode}, "
                         f"{result.stderr.decode('latin-1')}")
    return result.stdout


def made_books(program, folder, scratch):
    """Each stored file with the bytes that it should have."""
    for games in sorted(folder.glob("*.pgn")):
        if not games.with_suffix(".bin").exists():
            continue
        shutil.copy(games, scratch)
        output = run_tool(program, scratch, "-mkbook", games.name, (0,))
        yield games.with_suffix(".bin"), (scratch / "tmp_book.bin").read_bytes()
        yield games.with_suffix(".out"), output[output.index(b" Creating file"):]


def made_scans(program, folder, scratch):
    """The same, with files that are not stored among them."""
    for games in sorted(folder.glob("*.pgn")):
        if ".form" in games.name:
            continue
        shutil.copy(games, scratch)
        for form in "1234":
            base = f"{games.stem}.form{form}"
            # The status is 1 where a game has a move that cannot be read.
            output = run_tool(program, scratch, f"-scan_pgn{form}", games.name, (0, 1))
            yield folder / f"{base}.out", output[output.index(b"games="):]
            if form == "1":
                yield folder / f"{base}.pgn", (scratch / "tmp.pgn").read_bytes()
                yield folder / f"{base}.X.epd", (scratch / "tmpX.epd").read_bytes()
            else:
                yield folder / f"{base}.epd", (scratch / "tmp.epd").read_bytes()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kind", choices=("books", "scans"))
    parser.add_argument("program", type=lambda name: pathlib.Path(name).resolve())
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    make = made_books if options.kind == "books" else made_scans
    files = 0
    wrong = 0
    with tempfile.TemporaryDirectory() as scratch:
        for path, found in make(options.program, options.folder, pathlib.Path(scratch)):
            if not path.exists():
                continue
            files += 1
            wrong += not stored.settle(path, found, options.write)
    return stored.summary(files, wrong, f"files of {options.kind}", options.write)


if __name__ == "__main__":
    sys.exit(main())
