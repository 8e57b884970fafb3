#!/usr/bin/env python3
"""Plays against the engine in the chess programs that players use, and sees that it ends with them.

usage: run_programs.py ENGINE PICTURES [PROGRAM...]

Each of xboard (with polyglot), pychess, scid and gnome-chess is started on a screen that nobody
sees, in a home of its own. Once the engine is added as a player adds it, by mouse and keys in the
program's windows, and plays ten moves; what the program and the engine say to each other is written
down, and is what counts. A picture of its window goes into the folder, and the program is ended by
SIGTERM. Once, with the bare engine on its list or command line, and busy in a search, it is ended
by SIGKILL. Two seconds later no process of the engine may be left.

A program that is not installed is skipped with a word. Ends with status 77, which counts as
skipped, where there is none of them, or nothing to show them on.
"""
import argparse
import shutil
import signal
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from desktop import Desktop, Failure, Late, has_tool, processes_of, seconds_used, wait_for
from engine_log import answers, write_wrapper
from hosts import HOSTS, missing_tools

SKIPPED = 77
AT_ONCE = 2              # most of the time a program waits, and so does its player
SCREEN_TOOLS = {"Xvfb": "xvfb", "openbox": "openbox", "xdotool": "xdotool", "import": "imagemagick"}
LONGEST_LIFE = 2.0       # of an engine without its host, in seconds
BUSY_SECONDS = 0.5       # of the processor: then a search is running
BUSY_WITHIN = 90         # seconds: beside other work an engine gets little of it
LARGEST_PICTURE = 60000  # bytes


def end_host(process, number, engine):
    """Ends a program, and tells after how many seconds the last of its engines was gone."""
    if process.poll() is not None:
        raise Failure(f"the program has ended by itself with status {process.returncode}")
    before = len(processes_of(engine))
    if before == 0:
        raise Failure("the program has ended its engine while it should be playing")
    start = time.monotonic()
    process.send_signal(number)
    while processes_of(engine):
        if time.monotonic() > start + LONGEST_LIFE:
            raise Failure(f"{len(processes_of(engine))} of {before} processes of the engine are "
                          f"left {LONGEST_LIFE:g} s after {signal.Signals(number).name}")
        time.sleep(0.02)
    return time.monotonic() - start


def run_host(host, engine, pictures, thinks_long, by_hand, act):
    """Starts a program with a copy of the engine in a home of its own, and lets it act there. What
    the screen looked like at a failure, and what was said, is left among the pictures."""
    prefix = f"vesk-{host.name}-"
    with tempfile.TemporaryDirectory(prefix=prefix, ignore_cleanup_errors=True) as name:
        home = Path(name).resolve()
        copy = Path(shutil.copy2(engine, home / "engine"))
        log = home / "log"
        given = copy
        if not thinks_long:
            given = home / "vesk-uci"
            write_wrapper(given, copy, log)
        with Desktop(home, host.path) as desktop:
            host.write_settings(desktop)
            if not by_hand:
                host.write_list(desktop, given, thinks_long)
            try:
                process = host.start(desktop, given, by_hand)
                if by_hand:
                    host.add_by_hand(desktop, given)
                return act(desktop, process, copy, log)
            except Failure as failure:
                desktop.take_picture("root", pictures / f"{host.name}-failed.png")
                if log.exists():
                    shutil.copytree(log, pictures / f"{host.name}-failed", dirs_exist_ok=True)
                output = (home / f"{host.name}.out").read_text(errors="replace")
                raise type(failure)(f"{failure}; it said\n{output[-2000:]}") from failure


def play_and_end(host, engine, pictures, by_hand):
    picture = pictures / f"{host.name}.png"

    def act(desktop, process, copy, log):
        window = host.play(desktop, engine, log, by_hand)
        time.sleep(1)
        picture.unlink(missing_ok=True)
        desktop.take_picture(window, picture)
        if picture.stat().st_size > LARGEST_PICTURE:
            raise Failure(f"{picture} has {picture.stat().st_size} bytes")
        moves = len(answers(log))
        return moves, end_host(process, signal.SIGTERM, copy)

    return run_host(host, engine, pictures, False, by_hand, act)


def think_and_kill(host, engine, pictures):
    def act(desktop, process, copy, _):
        def used_since(before):
            return seconds_used(processes_of(copy)) > before + BUSY_SECONDS

        host.think(desktop, copy)
        wait_for("busy engine", BUSY_WITHIN, lambda: used_since(0))
        before = seconds_used(processes_of(copy))
        wait_for("search", BUSY_WITHIN, lambda: used_since(before))
        return end_host(process, signal.SIGKILL, copy)

    return run_host(host, engine, pictures, True, False, act)


def try_host(host, engine, pictures, by_hand):
    start = time.monotonic()
    moves, by_term = play_and_end(host, engine, pictures, by_hand)
    by_kill = think_and_kill(host, engine, pictures)
    way = "added by hand" if by_hand else "added by its list"
    print(f"{host.name}: {way}; {moves} moves by the engine; gone {by_term:.2f} s after TERM and "
          f"{by_kill:.2f} s after KILL; took {time.monotonic() - start:.0f} s", flush=True)


def try_again(host, engine, pictures, patient):
    """Windows come late on a busy machine, and clicks and keys that come too early are lost: what
    is late is tried again, and with patience a third time with fewer windows. What the engine does
    wrong is not. True, False, or None for what came late each time."""
    attempts = [("first", True), ("second", True)]
    if patient:
        attempts.append(("third", False))
    for attempt, by_hand in attempts:
        try:
            try_host(host, engine, pictures, by_hand)
            return True
        except Failure as failure:
            print(f"{host.name}: FAILED, {attempt} time: {failure}", flush=True)
            if not isinstance(failure, Late):
                return False
    return None


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("engine", type=Path)
    parser.add_argument("pictures", type=Path)
    parser.add_argument("--patient", action="store_true",
                        help="leave out what comes late each time, if as many programs pass")
    parser.add_argument("program", nargs="*", help="the names of some of the programs")
    arguments = parser.parse_args()

    missing = [package for tool, package in SCREEN_TOOLS.items() if not has_tool(tool)]
    if missing:
        print(f"Skipped: these packages are not installed: {' '.join(missing)}")
        return SKIPPED
    arguments.pictures.mkdir(parents=True, exist_ok=True)
    hosts = []
    for host in HOSTS:
        if arguments.program and host.name not in arguments.program:
            continue
        if missing := missing_tools(host):
            print(f"{host.name}: skipped, not installed: {' '.join(missing)}")
        else:
            hosts.append(host)
    engine = arguments.engine.resolve()
    with ThreadPoolExecutor(AT_ONCE) as pool:
        passed = list(pool.map(lambda host: try_again(host, engine, arguments.pictures,
                                                      arguments.patient), hosts))
    late = passed.count(None)
    if False in passed or (late and not arguments.patient) or late > passed.count(True):
        return 1
    if late:
        print(f"Left out, as too slow on this machine: {late} of {len(hosts)} programs")
    return 0 if hosts else SKIPPED


if __name__ == "__main__":
    sys.exit(main())
