#!/usr/bin/env python3
"""The line that tells on a terminal how far a run has come: with a rate and an expected end, gone
at the end, and not there for who wants none or reads standard error through a pipe.

    check_progress.py VESK_DATA VESK ROOT

What only reads gets an input that grows until the run takes long enough for the line to be due;
what writes is held up by a reader that waits, so that the stage that writes shows its line however
fast it is. Prints what is wrong; status 1 if anything is.
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

LONGEST = 512   # times the input at first
HELD_UP = 0.8   # seconds that a reader waits; a line is due after half a second
PIPE = 1 << 18  # bytes; more than what a pipe and the buffers before it take


def read_terminal(ours):
    """All that is printed on a terminal until nobody has it open any longer."""
    pieces = []
    try:
        while piece := os.read(ours, 65536):
            pieces.append(piece)
    except OSError:  # how a terminal ends
        pass
    os.close(ours)
    return b"".join(pieces)


def on_terminal(*words):
    """What a run prints on its terminal, and the seconds that it takes."""
    ours, its = pty.openpty()
    started = time.monotonic()
    with subprocess.Popen([vesk_data, *map(str, words)], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=its) as process:
        os.close(its)
        shown = read_terminal(ours)
        process.wait(60)
    return shown.decode(), time.monotonic() - started


def on_slow_pipe(*words):
    """What a run prints on its terminal where nobody reads its output for a while, and how much it
    writes."""
    ours, its = pty.openpty()
    with subprocess.Popen([vesk_data, *map(str, words)], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=its) as process:
        os.close(its)
        written = []

        def read():
            written.append(process.stdout.read(1))
            time.sleep(HELD_UP)
            written.append(process.stdout.read())

        reader = threading.Thread(target=read)
        reader.start()
        shown = read_terminal(ours)
        reader.join()
        process.wait(60)
    return shown.decode(), sum(map(len, written))


def write_book(path, times):
    """In falling order, so that it is sorted, too; e2e4 in positions that nothing leads to."""
    keys = range(50000 * times, 0, -1)
    path.write_bytes(b"".join((key << 40).to_bytes(8, "big") + b"\3\x1c\0\1\0\0\0\0" for key in keys))


def has_line(shown, what):
    form = rf"\r{what}: \d+, \d+ a second, \d+ %, \d+:\d\d left\x1b\[K\r"
    return re.search(form, shown) is not None


def expect_line(shown, what, words, circumstance):
    """The line is shown in its form, and taken away."""
    expect(has_line(shown, what), f"{words}: no line '{what}' {circumstance}: {shown[-200:]!r}")
    last = shown.rfind("left\x1b[K\r")
    expect("\r\x1b[K" in shown[last + 8:], f"{words}: the line stays: {shown[-200:]!r}")


def check_reading(source, what, make, words):
    """Of a word that only reads. Returns the command."""
    times = 1
    while True:
        command = (*words, source, *(make(source, times) or ()))
        shown, seconds = on_terminal(*command)
        if has_line(shown, what) or times >= LONGEST:
            break
        times *= 2
    expect_line(shown, what, words, f"in {seconds:.1f} s")
    return command


def check_writing(what, command):
    """Of the stage of a word that writes."""
    shown, size = on_slow_pipe(*command)
    expect(size > PIPE, f"{command}: {size} bytes hold nothing up")
    expect_line(shown, what, command, "though nobody read on")


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
        shown = read_terminal(ours)
        feeder.join()
        process.wait(60)
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
        source = pathlib.Path(name) / "source"
        few = ("--max-messages", "0")
        games = ("games", *few)
        check_unwanted(check_reading(source, "games", repeated(game, 20), games))
        for what, make, words in (
                ("lines", repeated(positions, 200), ("positions", "--check", *few)),
                ("positions", repeated(positions, 20), ("explain", "--form", "csv", *few)),
                ("entries (?:read|sorted|checked|counted)", write_book, ("book", "check", *few))):
            check_reading(source, what, make, words)

        write_book(source, 1)
        small = data / "small.bin"
        other = pathlib.Path(name) / "other"
        other.write_bytes(source.read_bytes()[:16])
        for what, command in (("entries shown", ("dump", source, "--form", "entries")),
                              ("entries told", ("diff", source, other)),
                              ("positions merged", ("merge", source, small)),
                              ("entries sifted", ("prune", source))):
            check_writing(what, ("book", *command))
        repeated(b"4k3/8/8/8/8/8/4P3/4K3 w - - gr 1;\n", 20000)(source, 1)
        for what, option in (("lines shuffled", "--shuffle"), ("lines drawn", "--sample")):
            check_writing(what, ("positions", option, "20000", source))

        source.unlink()
        source.mkdir()
        check_reading(source, "positions compared", lambda _, times: ("--sample", 2000 * times),
                      ("tables", data / "syzygy"))
        check_shared(game)
    return finish_checks()


sys.exit(main())
