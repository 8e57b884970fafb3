#!/usr/bin/env python3
"""What vesk-uci itself takes of a move's time.

    costs.py VESK_UCI

On a clock of 5 ms an answer comes within it: a matter of the fastest of many tries, as a busy
machine may stop any of them. And a move of a long game that goes on costs less than half of one
whose game is told for the first time, since only what is new of it is played. Status 1 if not.
"""
import os
import subprocess
import sys
import tempfile
import time

FACTOR = float(os.environ.get("VESK_TIMEOUT_FACTOR", "1"))
CLOCK = 0.005 * FACTOR
TRIES = 40
ROUNDS = 3 # that a busy machine may spoil


class Engine:
    def __init__(self, program, folder):
        self.process = subprocess.Popen([program], cwd=folder, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        self.seconds("isready", b"readyok")

    def seconds(self, text, answer):
        start = time.perf_counter()
        self.process.stdin.write(text.encode() + b"\n")
        self.process.stdin.flush()
        for line in self.process.stdout:
            if line.startswith(answer):
                return time.perf_counter() - start
        raise SystemExit("the engine has ended")

    def end(self):
        self.process.kill()
        self.process.wait()


def long_game():
    """A thousand half-moves, with a pawn's move often enough."""
    moves = []
    for file in "abcdegh":
        for step in (f"{file}2{file}3 {file}7{file}6", f"{file}3{file}4 {file}6{file}5"):
            moves += "g1f3 g8f6 f3g1 f6g8".split() * 19 + step.split()
    return moves


def fastest_on_short_clock(engine):
    engine.seconds("position startpos\nisready", b"readyok")
    return min(engine.seconds("go wtime 5 btime 5 winc 10 binc 10", b"bestmove")
               for _ in range(TRIES))


# The same board is told at the same number of moves each time: as the next of the game before it,
# and behind another one.
def setting_up(engine, goes_on):
    moves = long_game()[:800]
    times = []
    for _ in range(TRIES):
        before = moves[:-2] if goes_on else ["h2h4"]
        engine.seconds("position startpos moves " + " ".join(before) + "\nisready", b"readyok")
        times.append(engine.seconds("position startpos moves " + " ".join(moves) + "\nisready",
                                    b"readyok"))
    return min(times)


def main():
    complaint = ""
    with tempfile.TemporaryDirectory() as folder:
        engine = Engine(os.path.abspath(sys.argv[1]), folder)
        for _ in range(ROUNDS):
            complaint = ""
            if (fastest := fastest_on_short_clock(engine)) > CLOCK:
                complaint += f"an answer on {1000 * CLOCK:g} ms takes {1000 * fastest:.1f} ms\n"
            first, next_one = setting_up(engine, False), setting_up(engine, True)
            if next_one > first / 2:
                complaint += (f"a game told anew takes {1000 * first:.2f} ms, its next move "
                              f"{1000 * next_one:.2f} ms\n")
            if not complaint:
                break
        engine.end()
    print(complaint, end="")
    return 1 if complaint else 0


if __name__ == "__main__":
    sys.exit(main())
