#!/usr/bin/env python3
"""The search of vesk-uci is that of vesk: the same words give the same lines, nodes and moves.

    same_search.py VESK_UCI VESK

Both go through one session: positions, depths one after the other on a table that fills up, several
lines, weights of a taste, a new game. Of each line that tells of a search everything is compared but
times, rates and the fill of the table. Status 1 with the first line that differs.
"""

import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import uci_games

LIMIT = 120.0           # seconds
VARYING = re.compile(r" (time|nps|hashfull) \d+")
LONG = "e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 b5a4 g8f6 e1g1 f8e7 f1e1 b7b5 a4b3 d7d6 c2c3 e8g8"
SESSION = (
    "position startpos", "go depth 7", "go depth 8",
    f"position startpos moves {LONG}", "go depth 8", "go depth 6",
    "setoption name MultiPV value 3",
    "position fen r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1", "go depth 6",
    "setoption name MultiPV value 1", "setoption name Mtl_Pawn value 80,120",
    "setoption name Activity_Knight value 29,57", "setoption name Selectivity value 60",
    "setoption name Hash value 8",
    "position fen 8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1 moves e2e4", "go depth 10",
    "ucinewgame", "position startpos moves d2d4 d7d5", "go depth 8",
)


def lines_of(program):
    """What a program says about its searches, without what changes from run to run."""
    engine = uci_games.Engine(str(pathlib.Path(program).resolve()))
    lines = []
    try:
        engine.send("uci")
        engine.wait_for("uciok", LIMIT)
        for words in SESSION:
            engine.send(words)
            if words.startswith("go "):
                engine.wait_for("bestmove", LIMIT, lines.append)
    finally:
        engine.close()
    return [VARYING.sub("", line) for line in lines
            if line.startswith(("info depth", "info multipv", "bestmove"))]


def main():
    host, engine = map(lines_of, sys.argv[1:3])
    for ours, theirs in zip(host, engine):
        if ours != theirs:
            print(f"vesk-uci: {ours}\nvesk:     {theirs}")
            return 1
    if len(host) != len(engine):
        print(f"{len(host)} lines of vesk-uci, {len(engine)} of vesk")
        return 1
    print(f"{len(host)} lines, the same")
    return 0 if host else 1


if __name__ == "__main__":
    sys.exit(main())
