#!/usr/bin/env python3
"""Short searches one after the other with several workers, stopped, replaced and disturbed by
other commands at random moments. Meant for builds under the thread sanitizer.

    stress.py [--threads N] [--searches N] [--seed N] ENGINE

Status 1 if a reply is missing or too many, or if the engine does not end with status 0 and a
silent standard error.
"""

import argparse
import pathlib
import random
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import uci_games

REPLY_LIMIT = 60.0

POSITIONS = (
    "position startpos",
    "position startpos moves e2e4 e7e5 g1f3 b8c6 f1b5 a7a6",
    "position fen r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "position fen 8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "position fen 2r3k1/1pq1b1p1/p1b1pr1p/8/PP2pP2/2P1B3/4B1PP/RQR4K w - -",
    "position fen 8/8/1p1k2p1/p1p2p1p/P1P2P1P/1P1K2P1/8/8 w - -",
    "position fen 7k/8/8/8/8/8/R7/K7 w - -",
)
LIMITS = ("depth 4", "movetime 3", "nodes 3000", "wtime 200 btime 200")
ENDLESS = ("depth 40", "infinite")
DISTURBANCES = (
    "isready", "debug on", "setoption name MultiPV value 3", "setoption name MultiPV value 1",
    "setoption name Contempt value 20", "setoption name Clear_Hash value x",
    "setoption name Log value true", "setoption name Log value false",
) + POSITIONS


class Engine(uci_games.Engine):
    """The engine's process; whatever is wrong with it ends the test."""

    def wait_for(self, start):
        """Takes lines up to the one that begins with start; gives those before it."""
        lines = []
        try:
            super().wait_for(start, REPLY_LIMIT, lines.append)
        except uci_games.EngineFault as fault:
            raise SystemExit(f"{fault}\n" + "".join(self.errors)) from None
        return lines[:-1]

    def settle(self):
        """Nothing of the past may stand in the pipe afterwards, least of all a bestmove."""
        self.send("isready")
        for line in self.wait_for("readyok"):
            if line.startswith("bestmove"):
                raise SystemExit("a bestmove that nobody had asked for")


def run_search(engine, dice):
    """One search of a random kind, ended in a random way."""
    engine.send(dice.choice(POSITIONS))
    ponder = dice.random() < 0.2
    limit = dice.choice(LIMITS + ENDLESS)
    engine.send(f"go {'ponder ' if ponder else ''}{limit}")
    for _ in range(dice.randrange(3)):
        time.sleep(dice.random() * 0.004)
        engine.send(dice.choice(DISTURBANCES))
    time.sleep(dice.random() * 0.006)
    ending = dice.random()
    if ending < 0.15:
        # Ended without a report, or finished and reported before the word arrived.
        engine.send("ucinewgame")
        engine.send("isready")
        engine.wait_for("readyok")
        while True:
            engine.send("isready")
            if not engine.wait_for("readyok"):
                return
    if ending < 0.3 and ponder:
        engine.send("ponderhit")
        time.sleep(dice.random() * 0.003)
    if limit in ENDLESS or ponder or ending < 0.7:
        engine.send("stop")
    engine.wait_for("bestmove")
    engine.settle()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--threads", type=int, default=2)
    parser.add_argument("--searches", type=int, default=1000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("engine")
    arguments = parser.parse_args()
    dice = random.Random(arguments.seed)
    with tempfile.TemporaryDirectory() as folder:
        engine = Engine(arguments.engine, folder)
        try:
            engine.send("uci")
            engine.wait_for("uciok")
            engine.send("setoption name Hash value 4")
            engine.send(f"setoption name Threads value {arguments.threads}")
            for _ in range(arguments.searches):
                run_search(engine, dice)
            engine.send("quit")
            status = engine.process.wait(timeout=REPLY_LIMIT)
            engine.readers[1].join()
        finally:
            # An engine outlives its standard input.
            engine.process.kill()
    if status != 0 or engine.errors:
        print(f"ended with status {status}\n" + "".join(engine.errors))
        return 1
    print(f"{arguments.searches} searches with {arguments.threads} threads")
    return 0


if __name__ == "__main__":
    sys.exit(main())
