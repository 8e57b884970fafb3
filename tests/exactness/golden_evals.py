#!/usr/bin/env python3
"""Compares the evaluations and the weights of a build with stored ones.

Usage: golden_evals.py scores|weights PRINT_EVALS TABLE [--write]

PRINT_EVALS is the program of that name in this folder, a part of the test build. The lines of a
table that begin with # tell its columns and stay as they are, and so do the positions of the
scores. One of them may give options: "options: NAME=VALUE;NAME=VALUE". With --write the other
columns are written anew. Prints what differs; the status is 1 if anything does.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

import stored


def printed_rows(program, kind, engine_options, positions):
    """The rows as this build gives them."""
    with tempfile.TemporaryDirectory() as folder:
        return subprocess.run([pathlib.Path(program).resolve(), kind, *engine_options],
                              cwd=folder, check=True,
                              input="".join(position + "\n" for position in positions),
                              stdout=subprocess.PIPE, text=True).stdout.splitlines()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("kind", choices=("scores", "weights"))
    parser.add_argument("program")
    parser.add_argument("table")
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    lines = pathlib.Path(options.table).read_text(encoding="ascii").splitlines()
    head = [line for line in lines if line.startswith("#")]
    rows = lines[len(head):]
    if lines[:len(head)] != head:
        raise SystemExit(f"{options.table}: a comment between the rows")
    positions = [row.split("\t")[0] for row in rows] if options.kind == "scores" else []
    engine_options = re.findall(r"\boptions: (\S+)", "\n".join(head))
    found = printed_rows(options.program, options.kind, engine_options, positions)
    right = stored.settle(options.table, "".join(line + "\n" for line in head + found).encode(),
                          options.write)
    wrong = 0 if right else max(1, len(set(found) - set(rows)))
    return stored.summary(len(found), wrong, options.kind, options.write)


if __name__ == "__main__":
    sys.exit(main())
