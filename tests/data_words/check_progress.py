#!/usr/bin/env python3
"""The line that tells on a terminal how far a run has come: with a rate and an expected end, gone
at the end, and not there for who wants none or reads standard error through a pipe.

    check_progress.py VESK_DATA VESK ROOT

The input grows until the run takes long enough for the line to be due. Prints what is wrong;
status 1 if anything is.
"""

import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import threading
import time

from checks import expect, finish_checks

LONGEST = 64  # times the input at first


def on_terminal(*words):
    """What a run prints on its terminal, and the seconds that it takes."""
    ours, its = pty.openpty()
    started = time.monotonic()
    with subprocess.Popen([vesk_data, *map(str, words)], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=its) as process:
        os.close(its)
        pieces = []
        try:
            while piece := os.read(ours, 65536):
                pieces.append(piece)
        except OSError:  # how a terminal ends
            pass
        process.wait(60)
    os.close(ours)
    return b"".join(pieces).decode(), time.monotonic() - started


def write_book(path, times):
    """In falling order, so that it is sorted, too; e2e4 in positions that nothing leads to."""
    keys = range(50000 * times, 0, -1)
    path.write_bytes(b"".join((key << 40).to_bytes(8, "big") + b"\3\x1c\0\1\0\0\0\0" for key in keys))


def check_line(folder, what, make, words, behind=()):
    """Of one word: the line is shown in time, in its form, and taken away. The source stands
    between words and what is behind it. Returns the command."""
    source = folder / "source"
    times = 1
    while True:
        behind_now = make(source, times) or behind
        command = (*words, source, *behind_now)
        shown, seconds = on_terminal(*command)
        lines = re.findall(rf"\r{what}: \d+, \d+ a second, \d+ %, \d+:\d\d left\x1b\[K\r", shown)
        if lines or times >= LONGEST:
            break
        times *= 2
    expect(lines, f"{words}: no line with an end in {seconds:.1f} s: {shown[-200:]!r}")
    last = shown.rfind("left\x1b[K\r")
    expect("\r\x1b[K" in shown[last + 8:], f"{words}: the line stays: {shown[-200:]!r}")
    return command


def check_unwanted(command):
    """Neither who wants none nor a pipe gets a line."""
    expect("a second" not in on_terminal(*command, "--quiet")[0], f"{command}: not --quiet")
    told = subprocess.run([vesk_data, *map(str, command)], stdin=subprocess.DEVNULL, timeout=120,
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=False)
    expect("a second" not in told.stderr, f"{command}: a line in a pipe")


def check_shared(game):
    """Where what is written comes to the same terminal, no line is mixed with it, though the run
    takes longer than a line takes to be due."""
    ours, its = pty.openpty()
    pieces = []
    with subprocess.Popen([vesk_data, "games", "-", "--max-messages", "0"], stdout=its,
                          stdin=subprocess.PIPE, stderr=its) as process:
        os.close(its)

        def feed():
            for _ in range(6):
                process.stdin.write(game * (1 + (1 << 18) // len(game)))
                time.sleep(0.2)
            process.stdin.close()

        feeder = threading.Thread(target=feed)
        feeder.start()
        try:
            while piece := os.read(ours, 65536):
                pieces.append(piece)
        except OSError:
            pass
        feeder.join()
        process.wait(60)
    os.close(ours)
    shown = b"".join(pieces)
    expect(len(shown) > 1 << 20, "the games are not written")
    expect(b"a second" not in shown and b"\x1b" not in shown, "a line among what is written")


def main():
    global vesk_data
    vesk_data, _, root = sys.argv[1:]
    data = pathlib.Path(root).resolve() / "tests" / "data"
    game = (data / "pgn" / "games.pgn").read_bytes()
    positions = (data / "bk.epd").read_bytes()

    def repeated(text, start):
        return lambda path, times: path.write_bytes(text * (start * times)) and None

    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        few = ("--max-messages", "0")
        made = folder / "made.bin"
        small = data / "small.bin"
        stages = "entries (?:read|sorted"
        for what, make, words, behind in (
                ("games", repeated(game, 20), ("games", *few), ()),
                ("lines", repeated(positions, 200), ("positions", "--check", *few), ()),
                ("lines(?: shuffled)?", repeated(b"4k3/8/8/8/8/8/4P3/4K3 w - - gr 1;\n", 20000),
                 ("positions", "--shuffle", "1", "--memory", "16"), ()),
                ("positions", repeated(positions, 20), ("explain", "--form", "csv", *few), ()),
                (f"{stages}|checked|counted)", write_book, ("book", "check", *few), ()),
                (f"{stages}|shown)", write_book, ("book", "dump", "--form", "entries"), ()),
                (f"{stages}|compared|told)", write_book, ("book", "diff"), (small,)),
                (f"(?:{stages})|positions merged)", write_book, ("book", "merge"),
                 (small, "--output", made)),
                (f"{stages}|weighed|sifted)", write_book, ("book", "prune"), ("--output", made)),
                ("positions compared", lambda path, times: ("--sample", 2000 * times),
                 ("tables", data / "syzygy"), ())):
            if words[0] == "tables":
                (folder / "source").unlink()
                (folder / "source").mkdir()
            command = check_line(folder, what, make, words, behind)
            if words[0] == "games":
                check_unwanted(command)
        check_shared(game)
    return finish_checks()


sys.exit(main())
