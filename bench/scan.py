#!/usr/bin/env python3
"""Measures how fast Vesk turns games into positions, beside the package pgn-extract where it is
installed.

    scan.py [--games N] [--rounds R] [--engine PATH] [--source PGN]

Both read the same file of N games with an engine's comments, made by repeating those of the
source, one after the other in each round, on one core: Vesk by -scan_pgn2, pgn-extract by -Wepd. A
line gives games per second of processor time, the best of the rounds. The greatest memory in use is
shown for N games and for half of them.
"""

import argparse
import os
import pathlib

from measure import find_tool, in_scratch_folder, measure

ROOT = pathlib.Path(__file__).resolve().parent.parent


def arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--games", type=int, default=24000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--engine", default=ROOT / "vesk")
    parser.add_argument("--source", default=ROOT / "tests/data/scan/games-eval.pgn")
    options = parser.parse_args()
    options.engine = pathlib.Path(options.engine).resolve()
    options.source = pathlib.Path(options.source).resolve()
    return options


def write_games(source, count, name):
    """Writes count games, those of the source again and again."""
    text = pathlib.Path(source).read_bytes()
    games = [b"[Event " + game for game in text.split(b"[Event ")[1:]]
    with open(name, "wb") as file:
        for i in range(count):
            file.write(games[i % len(games)])


def commands(engine):
    # Games whose moves Vesk cannot read make its status 1.
    found = {"vesk -scan_pgn2": ([engine, "-scan_pgn2", "games.pgn"], (0, 1))}
    tool = find_tool("pgn-extract")
    if tool is None:
        print("pgn-extract is not installed: Vesk alone")
    else:
        words = [tool, "-Wepd", "-s", "games.pgn", "-o", "tool.epd"]
        found["pgn-extract -Wepd"] = (words, (0,))
    return found


def report(options):
    write_games(options.source, options.games, "games.pgn")
    write_games(options.source, options.games // 2, "half.pgn")
    print(f"{options.games} games, {os.path.getsize('games.pgn') / 1e6:.1f} MB")
    best = {}
    for _ in range(options.rounds):
        for name, (words, statuses) in commands(options.engine).items():
            seconds, _, _ = measure(words, statuses)
            best[name] = min(seconds, best.get(name, seconds))
    own = options.games / best["vesk -scan_pgn2"]
    for name, seconds in best.items():
        rate = options.games / seconds
        print(f"{name:20} {rate:9.0f} games a second   1 : {own / rate:.1f}")
    for name in ("half.pgn", "games.pgn"):
        _, memory, _ = measure([options.engine, "-hash", "1", "-scan_pgn2", name], (0, 1))
        print(f"{name:20} {memory / 1e6:9.1f} MB of memory with a hash table of 1 MB")


if __name__ == "__main__":
    in_scratch_folder(report, arguments())
