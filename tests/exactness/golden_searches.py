#!/usr/bin/env python3
"""Compares the searches of a program with stored ones, node for node.

Usage: golden_searches.py PROGRAM TABLE [--id ID] [--depth D] [--write]

Every row of the table is one `go depth` over UCI after `ucinewgame`, with one thread, no endgame
tables and no book. Columns, apart by tabs: id, position, moves played from it, Hash,
MultiPV, Selectivity, depth, line, nodes when the line was complete, score, seldepth, first move,
line of moves. With MultiPV 1 there is line 0 alone; otherwise lines count from 1, and line 0 tells
how the whole search ended, which is the result of its last line. A search without a line has the
first move null. Rows of one search are answered by one search. One process answers all of them, as
each measures the machine for 0.3 s at its start: a search that finds anything of those before it
differs, too. Prints what differs; the status is 1 if anything does.

With --write the columns from nodes on are written anew where they differ; what was searched stays.
A row whose line the search has no longer, or has now, stays as it is and makes the status 1.
"""
import argparse
import collections
import re
import subprocess
import sys

import calibration

COLUMNS = "id fen moves hash multipv selectivity depth line nodes score seldepth first pv"
Row = collections.namedtuple("Row", COLUMNS)
INFO = re.compile(
    r"info (?:multipv (?P<line>\d+) )?depth (?P<depth>\d+) seldepth (?P<seldepth>\d+) "
    r"score (?P<score>cp -?\d+|mate -?\d+) time \d+ nodes (?P<nodes>\d+) .* pv (?P<pv>.*)$")
SEARCH_SECONDS = 600


def read_table(path):
    """The lines of a table: rows, and as they stand comments and empty lines."""
    with open(path, encoding="ascii") as table:
        lines = table.read().splitlines()
    return [Row(*text.split("\t")) if text and not text.startswith("#") else text
            for text in lines]


def write_table(path, lines):
    with open(path, "w", encoding="ascii") as table:
        for line in lines:
            table.write(("\t".join(line) if isinstance(line, Row) else line) + "\n")


class Engine:
    """One process of the program under test."""

    def __init__(self, program):
        self.process = subprocess.Popen(
            [program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1)

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def read_until(self, word):
        lines = []
        for line in self.process.stdout:
            lines.append(line.rstrip("\n"))
            if line.startswith(word):
                return lines
        raise RuntimeError("the program ended before it said " + word)

    def close(self):
        self.send("quit")
        self.process.stdin.close()
        self.process.stdout.read()
        return self.process.wait(timeout=SEARCH_SECONDS)


def start_engine(program):
    engine = Engine(program)
    engine.send("uci")
    return engine, engine.read_until("uciok")


def run_search(engine, row):
    """What a search printed: its lines by number at the depth of the row, and the best move.

    With several lines the last one stands under 0 too, and the report that follows the search,
    which repeats the first line, is left out.
    """
    for name, value in (("Threads", "1"), ("Hash", row.hash), ("MultiPV", row.multipv),
                        ("Selectivity", row.selectivity)):
        engine.send(f"setoption name {name} value {value}")
    moves = f" moves {row.moves}" if row.moves else ""
    engine.send("ucinewgame")
    engine.send(f"position fen {row.fen}{moves}")
    engine.send("isready")
    engine.read_until("readyok")
    engine.send(f"go depth {row.depth}")
    output = engine.read_until("bestmove")
    found = {}
    for match in filter(None, map(INFO.match, output)):
        line = int(match["line"] or 0)
        if match["depth"] == row.depth and (line == 0 or line not in found):
            found[line] = match
            found[0] = match
    return found, output[-1].split()[1]


def score_text(score):
    """A stored score in the form in which a program prints it."""
    value = int(score)
    if value > 9899:
        return f"mate {(10000 - value) // 2}"
    if value < -9900:
        return f"mate -{(value + 10001) // 2}"
    return f"cp {value}"


def stored_score(text):
    """A printed score in the form in which it is stored: the inverse of score_text."""
    kind, value = text.split()
    moves = int(value)
    if kind == "cp":
        return value
    return str(10000 - 2 * moves if moves > 0 else 2 * -moves - 10001)


def renewed(row, found):
    """The row as the search gives it now, or None if it has no such line."""
    if row.first == "null":
        return None if found else row
    if int(row.line) not in found:
        return None
    match = found[int(row.line)]
    kept = score_text(row.score) == match["score"]
    return row._replace(nodes=match["nodes"],
                        score=row.score if kept else stored_score(match["score"]),
                        seldepth=match["seldepth"], first=match["pv"].split()[0], pv=match["pv"])


def differences(row, found, best):
    line = int(row.line)
    if row.first == "null":
        return [] if best == "null" and not found else ["a search without moves has a result"]
    if line not in found:
        return ["no such line"]
    match = found[line]
    pairs = [
        ("nodes", row.nodes, match["nodes"]),
        ("score", score_text(row.score), match["score"]),
        ("seldepth", row.seldepth, match["seldepth"]),
        ("first move", row.first, match["pv"].split()[0]),
        ("line", row.pv, match["pv"]),
    ]
    if row.multipv == "1" or line == 1:
        pairs.append(("bestmove", row.first, best))
    return [f"{name} {have}, expected {want}" for name, want, have in pairs if want != have]


def is_chosen(row, options):
    return options.id in (None, row.id) and options.depth in (None, row.depth)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("table")
    parser.add_argument("--id", help="this position only")
    parser.add_argument("--depth", help="this depth only")
    parser.add_argument("--write", action="store_true", help="write anew what differs")
    options = parser.parse_args()

    table = read_table(options.table)
    searches = {}
    for number, row in enumerate(table):
        if isinstance(row, Row) and is_chosen(row, options):
            searches.setdefault(row[:7], []).append(number)

    rows = 0
    wrong = 0
    written = 0
    engine, _ = calibration.start_fast(lambda: start_engine(options.program))
    for group in searches.values():
        result = run_search(engine, table[group[0]])
        for number in group:
            row = table[number]
            rows += 1
            found = differences(row, *result)
            if not found:
                continue
            print(f"{row.id} depth {row.depth} line {row.line} ({row.fen}): " + "; ".join(found))
            new = renewed(row, result[0])
            if options.write and new is not None and not differences(new, *result):
                table[number] = new
                written += 1
            else:
                wrong += 1
    status = engine.close()
    if status != 0:
        raise RuntimeError(f"the program ended with status {status}")
    if written:
        write_table(options.table, table)
    print(f"{rows} rows, {wrong} differ" + (f", {written} written anew" if options.write else ""))
    return 1 if wrong or not rows else 0


if __name__ == "__main__":
    sys.exit(main())
