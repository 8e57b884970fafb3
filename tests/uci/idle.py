#!/usr/bin/env python3
"""An engine that nobody asks for anything sleeps: with workers, after a search, and after the end
of its input none of its threads is ever scheduled.

    idle.py ENGINE

Counts how often the system has put each thread to sleep or to work, which no load of the machine
raises. Status 1 if no second passes without a change.
"""

import pathlib
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "threads"))

from stress import Engine

QUIET_SECONDS = 1.0
TRIES = 15      # what was asked last may still be going on


def switches(process):
    """The sum of the context switches of all threads."""
    count = 0
    for status in pathlib.Path(f"/proc/{process.pid}/task").glob("*/status"):
        for line in status.read_text(encoding="ascii", errors="replace").splitlines():
            if "voluntary_ctxt_switches" in line:
                count += int(line.split()[1])
    return count


def expect_sleep(engine, when):
    before = switches(engine.process)
    for _ in range(TRIES):
        time.sleep(QUIET_SECONDS)
        after = switches(engine.process)
        if after == before:
            return
        before = after
    raise SystemExit(f"{when}: the engine does not sleep")


def run(engine):
    engine.send("uci")
    engine.wait_for("uciok")
    expect_sleep(engine, "at the start")
    engine.send("setoption name Threads value 3")
    engine.send("go depth 6")
    engine.wait_for("bestmove")
    expect_sleep(engine, "after a search")
    engine.send("go ponder depth 3")
    engine.send("isready")
    engine.wait_for("readyok")
    expect_sleep(engine, "when it has pondered to its depth")
    engine.send("stop")
    engine.wait_for("bestmove")
    engine.process.stdin.close()
    expect_sleep(engine, "after the end of its input")
    if engine.process.poll() is not None:
        raise SystemExit("the end of the input has ended the engine")


def main():
    with tempfile.TemporaryDirectory() as folder:
        engine = Engine(str(pathlib.Path(sys.argv[1]).resolve()), folder)
        try:
            run(engine)
        finally:
            # An engine outlives its standard input.
            engine.process.kill()
            engine.process.wait()


if __name__ == "__main__":
    main()
