#!/usr/bin/env python3
"""Compares builds of the engine move for move: the same fixed-depth searches from a cleared
table must give the same node count, score and line on every build.

    compare_builds.py [--depth N] ENGINE ENGINE...

All engines are compared with the first. Status 1 at the first difference.
"""

import argparse
import os
import re
import subprocess
import sys

POSITIONS = (
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r1bqkb1r/pp1ppppp/2n2n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R b KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - -",
    "2r3k1/1pq1b1p1/p1b1pr1p/8/PP2pP2/2P1B3/4B1PP/RQR4K w - -",
    "8/8/1p1k2p1/p1p2p1p/P1P2P1P/1P1K2P1/8/8 w - -",
    "6k1/5ppp/8/8/8/8/r4PPP/1R4K1 w - -",
    "4k3/8/8/8/8/8/4P3/4K3 w - -",
    "r2q3r/1p1bbQ2/4p1Bk/3pP3/1n1P1P1p/pP6/Pn4PP/R1B1R1K1 w - -",
)


class Dialogue:
    """One engine process; an engine outlives its standard input, so it is always killed."""

    def __init__(self, command):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def lines_until(self, start):
        """The lines up to the first that begins with start."""
        lines = []
        while not lines or not lines[-1].startswith(start):
            line = self.process.stdout.readline()
            if not line:
                raise SystemExit(f"the engine ended while '{start}' was awaited")
            lines.append(line.rstrip("\n"))
        return lines


def search_results(command, depth):
    """Depth, score, nodes, line and reply of a search of each position."""
    results = []
    with Dialogue(command) as engine:
        engine.send("uci")
        engine.lines_until("uciok")
        engine.send("setoption name Hash value 16")
        for position in POSITIONS:
            engine.send("ucinewgame")
            engine.send(f"position fen {position}")
            engine.send(f"go depth {depth}")
            lines = engine.lines_until("bestmove")
            final = [line for line in lines if re.match(r"info .* pv ", line)][-1]
            fields = re.search(r" depth (\d+) .*(score \w+ -?\d+) .*(nodes \d+) .*(pv .*)$", final)
            results.append((position,) + fields.groups() + (lines[-1],))
    return results


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--depth", type=int, default=9)
    parser.add_argument("engines", nargs="+")
    arguments = parser.parse_args()
    if len(arguments.engines) < 2:
        parser.error("two engines at least")
    for engine in arguments.engines:
        if not os.access(engine, os.X_OK):
            print(f"{engine} is not built")
            return 1
    expected = search_results([arguments.engines[0]], arguments.depth)
    for engine in arguments.engines[1:]:
        for want, found in zip(expected, search_results([engine], arguments.depth)):
            if want != found:
                print(f"{engine} differs from {arguments.engines[0]}:")
                print("  expected", *want, sep="\n    ")
                print("  found", *found, sep="\n    ")
                return 1
        print(f"{engine}: the same nodes, scores and lines to depth {arguments.depth}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
