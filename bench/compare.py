#!/usr/bin/env python3
"""Compares the node rates of UCI engines on one thread, in nodes per second of processor time.

    compare.py [--seconds S] [--hash MB] [--threads N] [NAME=PATH[,OPTION=VALUE...]...]

Each position of positions.epd is searched for S seconds by one engine after the other before the
next position, so that a change of the machine's speed meets all of them. Without engines named:
./vesk and the packages toga2 and stockfish, the latter with its neural network off, as far as
they are installed.
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
TICKS = os.sysconf("SC_CLK_TCK")
PEERS = ("toga2=toga2", "stockfish=stockfish,Use NNUE=false")


class Engine:
    """One engine process with its sums over all positions."""

    def __init__(self, text):
        name, _, rest = text.partition("=")
        path, *options = rest.split(",")
        self.name = name
        self.nodes = 0
        self.processor_seconds = 0.0
        self.wall_seconds = 0.0
        self.process = subprocess.Popen(
            [path], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            text=True)
        self.known = {}
        self.send("uci")
        for line in self.lines_until("uciok"):
            match = re.match(r"option name (.+?) type ", line)
            if match:
                self.known[match.group(1).lower()] = match.group(1)
        for option in options:
            self.set_option(*option.split("=", 1))

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def lines_until(self, start):
        lines = []
        while not lines or not lines[-1].startswith(start):
            line = self.process.stdout.readline()
            if not line:
                raise SystemExit(f"{self.name} ended")
            lines.append(line.rstrip("\n"))
        return lines

    def set_option(self, name, value):
        if name.lower() in self.known:
            self.send(f"setoption name {self.known[name.lower()]} value {value}")

    def processor_time(self):
        """Seconds of processor time that the process has used, all threads together."""
        text = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text(encoding="ascii")
        fields = text.rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS

    def search(self, position, seconds):
        self.send("ucinewgame")
        self.send(f"position fen {position} 0 1")
        self.send("isready")
        self.lines_until("readyok")
        processor_start = self.processor_time()
        wall_start = time.monotonic()
        self.send(f"go movetime {int(seconds * 1000)}")
        lines = self.lines_until("bestmove")
        self.wall_seconds += time.monotonic() - wall_start
        self.processor_seconds += self.processor_time() - processor_start
        counts = [int(n) for line in lines for n in re.findall(r"\bnodes (\d+)", line)]
        self.nodes += max(counts, default=0)


def default_engines():
    engines = [f"vesk={HERE.parent / 'vesk'}"]
    # Debian installs games where the search path of root does not look.
    places = os.environ.get("PATH", "") + os.pathsep + "/usr/games"
    for peer in PEERS:
        name, _, rest = peer.partition("=")
        command, *options = rest.split(",")
        found = shutil.which(command, path=places)
        if found:
            engines.append(f"{name}=" + ",".join([found] + options))
    return engines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=2.0)
    parser.add_argument("--hash", type=int, default=64)
    parser.add_argument("--threads", type=int, default=1)
    parser.add_argument("engines", nargs="*")
    arguments = parser.parse_args()
    engines = [Engine(text) for text in arguments.engines or default_engines()]
    try:
        for engine in engines:
            engine.set_option("Hash", arguments.hash)
            engine.set_option("Threads", arguments.threads)
        positions = (HERE / "positions.epd").read_text(encoding="ascii").splitlines()
        for position in positions:
            for engine in engines:
                engine.search(position, arguments.seconds)
    finally:
        for engine in engines:
            engine.process.kill()
    first = engines[0].nodes / engines[0].processor_seconds
    print(f"{len(positions)} positions, {arguments.seconds:g} s each, Hash {arguments.hash}, "
          f"Threads {arguments.threads}")
    print(f"{'engine':<20} {'nodes':>12} {'cpu s':>8} {'knodes/cpu s':>13} {'knodes/s':>9} "
          f"{'first/this':>10}")
    for engine in engines:
        rate = engine.nodes / engine.processor_seconds
        print(f"{engine.name:<20} {engine.nodes:>12} {engine.processor_seconds:>8.2f} "
              f"{rate / 1000:>13.1f} {engine.nodes / engine.wall_seconds / 1000:>9.1f} "
              f"{first / rate:>10.3f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
