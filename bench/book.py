#!/usr/bin/env python3
"""Measures how fast Vesk builds a book, beside the package polyglot where it is installed.

    book.py [--games N] [--rounds R] [--engine PATH] [--generator PATH]

Both read the same file of N random games, one after the other in each round, on one core. A line
gives games per second of processor time, the best of the rounds; Vesk's start is measured with an
empty file and taken off. Bytes per node are what the second half of the games adds to the greatest
memory in use, over the nodes that it adds. Polyglot is run as it comes and, for the same work, with the first 36 half-moves of a game
alone.
"""

import argparse
import os
import pathlib
import re
import subprocess

from measure import find_tool, in_scratch_folder, measure

ROOT = pathlib.Path(__file__).resolve().parent.parent
PLIES = "36"


def arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--games", type=int, default=24000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--engine", default=ROOT / "vesk")
    parser.add_argument("--generator", default=ROOT / "build/release/random_games")
    return parser.parse_args()


def nodes_of(text):
    return int(re.search(r"nmoves= (\d+)", text)[1])


def commands(engine):
    found = {"vesk": [engine, "-mkbook", "games.pgn"]}
    tool = find_tool("polyglot")
    if tool is None:
        print("polyglot is not installed: Vesk alone")
        return found
    make = [tool, "make-book", "-pgn", "games.pgn", "-bin", "tool.bin"]
    found["polyglot"] = make
    found[f"polyglot, {PLIES} half-moves"] = make + ["-max-ply", PLIES]
    return found


def write_games(generator, count, name):
    subprocess.run([generator, str(count), name], check=True, stdout=subprocess.DEVNULL)


def report(options):
    engine = pathlib.Path(options.engine).resolve()
    generator = pathlib.Path(options.generator).resolve()
    write_games(generator, options.games, "games.pgn")
    write_games(generator, options.games // 2, "half.pgn")
    pathlib.Path("empty.pgn").touch()
    print(f"{options.games} games, {os.path.getsize('games.pgn') / 1e6:.1f} MB")

    # The start has a best of its own: taken off in its round, a slow one would make the games of
    # that round look fast.
    best = {}
    start = float("inf")
    for _ in range(options.rounds):
        start = min(start, measure([engine, "-mkbook", "empty.pgn"])[0])
        for name, words in commands(engine).items():
            seconds, _, _ = measure(words)
            best[name] = min(seconds, best.get(name, seconds))
    best["vesk"] -= start
    own = options.games / best["vesk"]
    for name, seconds in best.items():
        rate = options.games / seconds
        print(f"{name:24} {rate:9.0f} games a second   1 : {own / rate:.1f}")

    _, memory, text = measure([engine, "-mkbook", "games.pgn"])
    _, half_memory, half_text = measure([engine, "-mkbook", "half.pgn"])
    nodes = nodes_of(text)
    added = nodes - nodes_of(half_text)
    print(f"{nodes} nodes, {(memory - half_memory) / added:.0f} bytes each")


if __name__ == "__main__":
    in_scratch_folder(report, arguments())
