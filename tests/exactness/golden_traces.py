#!/usr/bin/env python3
"""Compares the score tables that a program prints at its console with stored ones.

Usage: golden_traces.py PROGRAM FILE [--write]

The file holds for each position a line "FEN ...", the text of the command "ev", and a line "---".
With --write the texts are written anew; the positions stay. Prints what differs; the status is 1
if anything does.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

import stored

END = "---\n"
# What the console says of a position set up: its text, the board, the side to move, a blank line.
BOARD = re.compile(r"^\S+ [wb] \S+ \S+\n(?:  .*\n){8}(?:white|black)\n\n", re.M)


def printed_tables(program, positions):
    """The text of "ev" for each position."""
    words = "".join(f"fen {position}\nev\n" for position in positions)
    with tempfile.TemporaryDirectory() as folder:
        output = subprocess.run([pathlib.Path(program).resolve(), "-c", "-hash", "1"],
                                input=words + "quit\n", cwd=folder, check=True,
                                stdout=subprocess.PIPE, text=True).stdout
    texts = BOARD.split(output)[2:]     # what comes before and behind the first board is no table
    if len(texts) != len(positions):
        raise SystemExit(f"{len(texts)} boards for {len(positions)} positions")
    return texts


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("file")
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    text = pathlib.Path(options.file).read_text(encoding="ascii")
    positions = re.findall(r"^FEN (.*)$", text, re.M)
    tables = printed_tables(options.program, positions)
    found = "".join(f"FEN {position}\n{table}{END}"
                    for position, table in zip(positions, tables))
    right = stored.settle(options.file, found.encode("ascii"), options.write)
    wrong = 0 if right else max(1, sum(f"FEN {position}\n{table}{END}" not in text
                                       for position, table in zip(positions, tables)))
    return stored.summary(len(positions), wrong, "score tables", options.write)


if __name__ == "__main__":
    sys.exit(main())
