#!/usr/bin/env python3
"""Tunes UCI options of an engine by games against itself.

    spsa.py --games N --state FILE.json [OPTIONS] ENGINE NAME,START,LOWEST,HIGHEST,C,R...

ENGINE is PROGRAM or PROGRAM@FOLDER, as match.py has it. Each further word is an option: the value
to start from, the range to stay in, how far to go to both sides of the value to see a difference
(C, in the end; about what costs some Elo), and how fast to learn (R, in the end; 0.002 is usual).
They may stand in a file too, one a line, named by --values.

Each pair of games lets the engine play with all values moved by chance to one side against itself
with all of them moved to the other, and then moves them a little towards the winner. Tens of
thousands of games are needed, and a match of the result against the start has the last word. With
nodes for each move other work on the machine does not matter.

The state is one file, written anew as a whole every few seconds: --resume goes on from it.
Status 0 if all games are played, 1 if they were broken off or something is wrong with a file or an
engine, 2 if it cannot be begun as told.
"""

import argparse
import contextlib
import datetime
import fcntl
import hashlib
import json
import math
import os
import pathlib
import random
import signal
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "scripts"))

import svg_plot
import uci_games
from match import InputFault, clear_line, parse_option, positive, read_openings
from match_play import Arena, Job, Limit, Rules, SetupFault, Side
from match_record import RecordFault, write_whole

SAVE_EVERY = 2.0        # seconds
PLOT_EVERY = 20.0
MOST_ROWS = 400         # of the history
# J. Spall, "Implementation of the Simultaneous Perturbation Algorithm for Stochastic Optimization",
# IEEE Transactions on Aerospace and Electronic Systems 34 (3), 1998: the exponents by which steps
# and distances fall, and the share of the iterations in which the steps are held back.
ALPHA, GAMMA, HELD_BACK = 0.602, 0.101, 0.1


class Value:
    """An option that is tuned."""

    def __init__(self, text, place):
        parts = text.split(",")
        try:
            self.name = parts[0].strip()
            self.start, self.low, self.high, self.c, self.r = map(float, parts[1:])
        except ValueError:
            raise InputFault(
                f"{place}: '{text}' is not like NAME,START,LOWEST,HIGHEST,C,R") from None
        if not self.name or not self.low <= self.start <= self.high or self.c <= 0 or self.r <= 0:
            raise InputFault(f"{place}: '{text}': START is to lie between LOWEST and HIGHEST, "
                             "C and R above 0")

    def gains(self, iteration, count):
        """Distance and step of an iteration, from 1 to count."""
        distance = self.c * (count / iteration) ** GAMMA
        held = HELD_BACK * count
        # At the end the step is r times the square of the distance.
        step = self.r * self.c ** 2 * ((held + count) / (held + iteration)) ** ALPHA
        return distance, step

    def inside(self, number):
        return min(max(number, self.low), self.high)


class Tuning:
    """The values as they stand, and which iterations have made them."""

    def __init__(self, values, settings, count):
        self.values, self.settings, self.count = values, settings, count
        self.now = [value.start for value in values]
        self.next = 0           # all before it are done, and
        self.beyond = set()     # these
        self.history = [[0, *self.now]]
        self.drawn = {}         # signs of the iterations that are being played

    def done(self):
        return self.next + len(self.beyond)

    def chance(self, iteration):
        return random.Random(f"{self.settings['seed']} {iteration}")

    def draw(self, iteration, fen):
        """The games of an iteration: signs for all values, and the options of either side."""
        chance = self.chance(iteration)
        signs = [chance.choice((-1, 1)) for _ in self.values]
        sides = []
        for side in (1, -1):
            options = []
            for value, number, sign in zip(self.values, self.now, signs):
                distance, _ = value.gains(iteration + 1, self.count)
                # Rounded by chance, so that a distance below 1 is felt now and then.
                moved = value.inside(number + side * sign * distance)
                rounded = int(value.inside(math.floor(moved + chance.random())))
                options.append((value.name, str(rounded)))
            sides.append(tuple(options))
        self.drawn[iteration] = signs
        return Job(iteration, fen, (0, 1), tuple(sides))

    def learn(self, iteration, points):
        """Moves the values by what a pair of games has brought the first side, from -2 to 2; None
        where a game was lost by a fault, which teaches nothing."""
        signs = self.drawn.pop(iteration)
        for place, (value, sign) in enumerate(zip(self.values, signs)):
            distance, step = value.gains(iteration + 1, self.count)
            self.now[place] = value.inside(self.now[place] + step * (points or 0) * sign / distance)
        self.beyond.add(iteration)
        while self.next in self.beyond:
            self.beyond.remove(self.next)
            self.next += 1
        if self.done() % max(1, self.count // MOST_ROWS) == 0 or self.done() == self.count:
            self.history.append([2 * self.done(), *(round(number, 4) for number in self.now)])

    def jobs(self, openings):
        for iteration in range(self.next, self.count):
            if iteration not in self.beyond:
                yield self.draw(iteration, openings[iteration % len(openings)])

    def as_json(self):
        return json.dumps({"settings": self.settings, "next": self.next,
                           "beyond": sorted(self.beyond),
                           "values": dict(zip((value.name for value in self.values), self.now)),
                           "history": self.history}, indent=1) + "\n"

    def load(self, path):
        """Goes on from a file."""
        try:
            found = json.loads(path.read_text(encoding="utf-8"))
            for name, setting in self.settings.items():
                if found["settings"].get(name) != setting:
                    raise RecordFault(f"{path}: {name} was {found['settings'].get(name)}, "
                                      f"and is {setting} now")
            self.next, self.beyond = found["next"], set(found["beyond"])
            self.history = found["history"]
            self.now = [found["values"][value.name] for value in self.values]
        except OSError as error:
            raise RecordFault(f"{path}: {error.strerror}") from None
        except json.JSONDecodeError as error:
            raise RecordFault(f"{path}:{error.lineno}: this is no state of a tuning") from None
        except (KeyError, TypeError, AttributeError):
            raise RecordFault(f"{path}: this is no state of a tuning") from None

    def words(self):
        width = max(len(value.name) for value in self.values)
        rows = [f"{'value':{width}}    start      now"]
        rows += [f"{value.name:{width}} {value.start:8g} {number:8.2f}"
                 for value, number in zip(self.values, self.now)]
        options = " ".join(f"--option1 {value.name}={round(number)}"
                           for value, number in zip(self.values, self.now))
        return "\n".join([*rows, f"games {2 * self.done()} of {2 * self.count}; "
                                 f"to try them: match.py {options}"])

    def picture(self):
        panels = []
        for place, value in enumerate(self.values, 1):
            panel = svg_plot.Panel(value.name, "games", "value")
            panel.lines = [(value.name, [(row[0], row[place]) for row in self.history])]
            panel.levels = [(value.start, "start")]
            panels.append(panel)
        return svg_plot.picture(panels)


def arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    add = parser.add_argument
    add("--games", type=positive, required=True, help="all together; the steps depend on it")
    add("--state", type=pathlib.Path, required=True, metavar="FILE.json")
    add("--resume", action="store_true", help="go on from the state")
    add("--nodes", type=positive, default=5000, help="for each move; 5000 if nothing is said")
    add("--openings", type=pathlib.Path, metavar="FILE", help="positions, a FEN or EPD a line")
    add("--option", type=parse_option, action="append", default=[], metavar="NAME=VALUE",
        help="a UCI option of both sides; may be repeated")
    add("--concurrency", type=positive, default=1, metavar="N", help="games at a time")
    add("--seed", type=int, default=1, help="another number plays other games")
    add("--plot", type=pathlib.Path, metavar="FILE.svg", help="draw the values over the games")
    add("--values", type=pathlib.Path, metavar="FILE", help="the options to tune, one a line")
    add("engine")
    add("value", nargs="*")
    return parser, parser.parse_args()


def read_values(options):
    found = [Value(text, "argument") for text in options.value]
    if options.values:
        try:
            lines = options.values.read_text(encoding="utf-8").splitlines()
        except OSError as error:
            raise InputFault(f"{options.values}: {error.strerror}") from None
        found += [Value(line, f"{options.values}:{number}") for number, line in enumerate(lines, 1)
                  if line.strip() and line[0] != "#"]
    names = [value.name for value in found]
    for name in names:
        if names.count(name) > 1:
            raise InputFault(f"{name} is named twice")
    return found


def describe(options, values, openings):
    """What the state belongs to."""
    digest = hashlib.sha256("\n".join(openings).encode()).hexdigest()
    return {"engine": options.engine, "games": options.games, "nodes": options.nodes,
            "options": [list(option) for option in options.option], "seed": options.seed,
            "openings": digest,
            "tuned": [[value.name, value.start, value.low, value.high, value.c, value.r]
                      for value in values]}


def lock_state(path):
    """Only one tuning may write a state."""
    try:
        file = open(f"{path}.lock", "w", encoding="ascii")
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        raise RecordFault(f"{path}: another tuning is writing it") from None
    except OSError as error:
        raise RecordFault(f"{path}.lock: {error.strerror}") from None
    return file


def play_all(tuning, arena, openings, options):
    """Plays what is left. True if nobody has broken it off."""
    interrupted = []
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: interrupted.append(True))
    begun = saved = plotted = time.monotonic()
    before, halves = tuning.done(), {}
    with contextlib.closing(arena.play(tuning.jobs(openings))) as games:
        for found in games:
            if found is not None:
                job, turn, game = found
                white = {"1-0": 1, "0-1": -1, "1/2-1/2": 0}[game.result]
                halves.setdefault(job.number, []).append(white if turn == 0 else -white)
                if game.why.startswith("forfeit"):
                    clear_line()
                    print(f"pair {job.number + 1}: {game.why}; it is not counted", file=sys.stderr)
                    halves[job.number].append(math.nan)
                if turn == 1:
                    points = sum(halves.pop(job.number))
                    tuning.learn(job.number, None if math.isnan(points) else points)
            now = time.monotonic()
            if interrupted:
                arena.stop()
            if now - saved > SAVE_EVERY:
                saved = now
                write_whole(options.state, tuning.as_json())
            if options.plot and now - plotted > PLOT_EVERY:
                plotted = now
                write_whole(options.plot, tuning.picture())
            if sys.stderr.isatty() and tuning.done() > before:
                rate = 2 * (tuning.done() - before) / (now - begun)
                left = datetime.timedelta(seconds=round(2 * (tuning.count - tuning.done()) / rate))
                clear_line()
                print(f"game {2 * tuning.done()} of {2 * tuning.count}, {rate:.2f} games/s, "
                      f"{left} left",
                      end="", file=sys.stderr, flush=True)
    clear_line()
    return not interrupted


def run(options, values):
    openings = read_openings(options.openings)
    count = (options.games + 1) // 2
    lock = lock_state(options.state)
    tuning = Tuning(values, describe(options, values, openings), count)
    try:
        if options.resume and options.state.exists():
            tuning.load(options.state)
        elif options.state.exists():
            raise RecordFault(f"{options.state}: a state is there already; go on with --resume, "
                              "or name another file")
        program, _, folder = options.engine.partition("@")
        # The engine must take both ends of each range, and begins with the starts.
        tried = [(value.name, str(round(number))) for value in values
                 for number in (value.low, value.high, value.start)]
        side = Side(options.engine, program, folder or None, [*options.option, *tried])
        arena = Arena([side, side], Rules(Limit(nodes=options.nodes)), options.concurrency)
        try:
            is_whole = play_all(tuning, arena, openings, options)
        finally:
            write_whole(options.state, tuning.as_json())
        if options.plot:
            write_whole(options.plot, tuning.picture())
    finally:
        lock.close()
        os.unlink(f"{options.state}.lock")
    print(tuning.words())
    if not is_whole:
        print("broken off; --resume goes on", file=sys.stderr)
    return 0 if is_whole else 1


def main():
    parser, options = arguments()
    if uci_games.find_referee() is None:
        print("The games are judged by pgn-extract, which is not installed: "
              "apt-get install pgn-extract", file=sys.stderr)
        return 2
    try:
        values = read_values(options)
        if not values:
            parser.error("no option to tune is named")
        return run(options, values)
    except (InputFault, SetupFault, RecordFault, uci_games.RefereeFault) as fault:
        print(fault, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
