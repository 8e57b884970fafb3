#!/usr/bin/env python3
"""Ends hosts, and vesk-uci itself, in ways that no pipe tells of: no process may stay behind.

    host_dies.py VESK_UCI

A host is killed while somebody else still holds both ends of the engine's pipes, as the other
children of a chess program do; vesk-uci is killed in a search, a count and a benchmark; and it is
ended by TERM where nobody reads what it says. Prints what is left; status 1 if anything is.
"""
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

FACTOR = float(os.environ.get("VESK_TIMEOUT_FACTOR", "1"))
LONGEST_LIFE = 2.0 * FACTOR
START = 30.0 * FACTOR

HOST = """
import os, subprocess, sys, time
engine = subprocess.Popen([sys.argv[1]], stdin=int(sys.argv[2]), stdout=int(sys.argv[3]))
print(engine.pid, flush=True)
time.sleep(600)
"""


def runs(process):
    """Whether there is such a process; one that waits to be buried does no harm."""
    try:
        return Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except OSError:
        return False


def descendants(process):
    found = []
    try:
        words = Path(f"/proc/{process}/task/{process}/children").read_text().split()
    except OSError:
        return found
    for child in map(int, words):
        found += [child, *descendants(child)]
    return found


def wait_until(look):
    end = time.monotonic() + START
    while not look():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


def left_after(processes):
    end = time.monotonic() + LONGEST_LIFE
    while any(map(runs, processes)) and time.monotonic() < end:
        time.sleep(0.01)
    left = [process for process in processes if runs(process)]
    for process in left:
        os.kill(process, signal.SIGKILL)
    return left


def kill_host(program, folder):
    """The pipes' other ends stay with this process."""
    lines, to_engine = os.pipe()
    from_engine, answers = os.pipe()
    words = [sys.executable, "-c", HOST, program, str(lines), str(answers)]
    with subprocess.Popen(words, cwd=folder, pass_fds=[lines, answers],
                          stdout=subprocess.PIPE) as host:
        engine = int(host.stdout.readline())
        os.write(to_engine, b"position startpos\ngo infinite\n")
        said = b""
        while b" depth 4 " not in said:
            said += os.read(from_engine, 4096)
        processes = [engine, *descendants(engine)]
        host.kill()
    left = left_after(processes)
    for descriptor in (lines, to_engine, from_engine, answers):
        os.close(descriptor)
    return left if len(processes) > 1 else ["no engine was running"]


def kill_relay(program, folder, word, children):
    with subprocess.Popen([program], cwd=folder, stdin=subprocess.PIPE,
                          stdout=subprocess.DEVNULL) as relay:
        relay.stdin.write(word + b"\n")
        relay.stdin.flush()
        if not wait_until(lambda: len(descendants(relay.pid)) >= children):
            relay.kill()
            return ["what it should run does not run"]
        processes = descendants(relay.pid)
        relay.kill()
    return left_after(processes)


def terminate_unread(program, folder):
    with subprocess.Popen([program], cwd=folder, stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE) as relay:
        # More than a pipe holds.
        relay.stdin.write(b"help\n" * 500)
        relay.stdin.write(b"go infinite\n")
        relay.stdin.flush()
        wait_until(lambda: len(descendants(relay.pid)) == 1)
        time.sleep(0.5)
        processes = [relay.pid, *descendants(relay.pid)]
        relay.terminate()
        return left_after(processes)


def main():
    program = str(Path(sys.argv[1]).resolve())
    wrong = False
    with tempfile.TemporaryDirectory() as folder:
        for what, left in (
                ("host killed", kill_host(program, folder)),
                ("killed in a search", kill_relay(program, folder, b"go infinite", 1)),
                ("killed in a count", kill_relay(program, folder, b"perft 9", 2)),
                ("killed in a benchmark", kill_relay(program, folder, b"bench 20", 3)),
                ("TERM, and nobody reads", terminate_unread(program, folder))):
            if left:
                print(f"{what}: left after {LONGEST_LIFE:g} s: {left}")
                wrong = True
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
