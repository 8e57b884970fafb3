#!/usr/bin/env python3
"""Compares builds of the engine move for move: the same fixed-depth searches from a cleared
table must give the same node count, score and line on every build.

    compare_builds.py [--depth N] [--option-sets N] [--starts N] ENGINE ENGINE...

The comparison is made with default options to the given depth, and with options that reach the
arithmetic to a small one: odd weight options and N random sets of them, a file of weights,
Contempt, Selectivity, several lines, a limit of strength. There the weights and the score tables
of the console must be the same too. All engines are compared with the first, and all see the same
second of the day (still_clock.cpp, built by $CXX or c++). Status 1 at the first difference.
"""

import argparse
import concurrent.futures
import os
import pathlib
import random
import re
import shlex
import subprocess
import sys
import tempfile

import calibration

POSITIONS = (
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -",
    "r1bqkb1r/pp1ppppp/2n2n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R b KQkq -",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq -",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - -",
    "r4rk1/1pp1qppp/p1np1n2/2b1p1B1/2B1P1b1/P1NP1N2/1PP1QPPP/R4RK1 w - -",
    "2r3k1/1pq1b1p1/p1b1pr1p/8/PP2pP2/2P1B3/4B1PP/RQR4K w - -",
    "8/8/1p1k2p1/p1p2p1p/P1P2P1P/1P1K2P1/8/8 w - -",
    "6k1/5ppp/8/8/8/8/r4PPP/1R4K1 w - -",
    "4k3/8/8/8/8/8/4P3/4K3 w - -",
    "r2q3r/1p1bbQ2/4p1Bk/3pP3/1n1P1P1p/pP6/Pn4PP/R1B1R1K1 w - -",
)

WEIGHT_OPTIONS = (
    "Mtl_Pawn", "Mtl_Knight", "Mtl_Bishop", "Mtl_Rook", "Mtl_Queen", "Activity_Knight",
    "Activity_Bishop", "Activity_Rook", "Activity_Queen", "Pawn_Structure", "Passed_Pawns",
    "King_Safety", "Threats",
)
# No value is round, and several give halves that are not representable: 50 * 29 * 0.01 is just
# below 14.5 and exactly that as an f32.
ODD_VALUES = ("83,117", "129,71", "57,149", "111,38", "64,133", "29,57", "141,23", "77,181",
              "47,119", "113,59", "39,161", "71,127", "137,53")
OPTIONS_DEPTH = 5
TUNING_OPTION = re.compile(r"option name (BP|SEP|NMP|FP|ProbCut|LMP|LMR)_")


still_environment = None    # of every engine: the clock stands still


def stop_clock(folder):
    """Builds the library that stops the clock in a folder, and has every engine load it."""
    global still_environment
    library = os.path.join(folder, "still_clock.so")
    source = pathlib.Path(__file__).with_name("still_clock.cpp")
    subprocess.run([*shlex.split(os.environ.get("CXX", "c++")), "-shared", "-fPIC", "-O1",
                    str(source), "-o", library], check=True)
    # The address sanitizer wants to be the first library, if not asked to bear with another.
    sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
    still_environment = {**os.environ, "LD_PRELOAD": library, "ASAN_OPTIONS": sanitizer}


class Dialogue:
    """One engine process; an engine outlives its standard input, so it is always killed."""

    def __init__(self, command, folder=None):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd=folder,
            env=still_environment)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def lines_until(self, start):
        """The lines up to the first that begins with start."""
        lines = []
        while not lines or not lines[-1].startswith(start):
            line = self.process.stdout.readline()
            if not line:
                raise SystemExit(f"the engine ended while '{start}' was awaited")
            lines.append(line.rstrip("\n"))
        return lines


def start_dialogue(command, folder=None, words=()):
    """An engine that has been told some lines and "uci", and what it printed."""
    engine = Dialogue(command, folder)
    for word in (*words, "uci"):
        engine.send(word)
    return engine, engine.lines_until("uciok")


def search_results(command, depth):
    """Depth, score, nodes, line and reply of a search of each position."""
    results = []
    with calibration.start_fast(lambda: start_dialogue(command))[0] as engine:
        engine.send("setoption name Hash value 16")
        for position in POSITIONS:
            engine.send("ucinewgame")
            engine.send(f"position fen {position}")
            engine.send(f"go depth {depth}")
            lines = engine.lines_until("bestmove")
            final = [line for line in lines if re.match(r"info .* pv ", line)][-1]
            fields = re.search(r" depth (\d+) .*(score \w+ -?\d+) .*(nodes \d+) .*(pv .*)$", final)
            results.append((position,) + fields.groups() + (lines[-1],))
    return results


def compare_searches(engines, depth):
    """Whether all engines search alike with default options; tells of the first difference."""
    expected = search_results([engines[0]], depth)
    for engine in engines[1:]:
        for want, found in zip(expected, search_results([engine], depth)):
            if want != found:
                print(f"{engine} differs from {engines[0]}:")
                print("  expected", *want, sep="\n    ")
                print("  found", *found, sep="\n    ")
                return False
        print(f"{engine}: the same nodes, scores and lines to depth {depth}")
    return True


def weight_options(values):
    """Lines of a configuration file that give the weight options these values."""
    return [f"{name} = {value}" for name, value in zip(WEIGHT_OPTIONS, values)]


def odd_params():
    """A weights file whose first entries are far from the built-in ones."""
    names = ("mtl_pawn", "mtl_knight", "mtl_bishop", "mtl_rook", "mtl_queen")
    return "".join(f'fset("{name}",{91 + 283 * i},{107 + 301 * i});\n'
                   for i, name in enumerate(names))


def option_cases(random_sets):
    """Name, configuration lines and files of each case."""
    odd = weight_options(ODD_VALUES)
    cases = [
        ("odd weight options", odd, {}),
        ("a file of weights", [], {"params.txt": odd_params()}),
        ("a file of weights and options", odd, {"params.txt": odd_params()}),
        ("MultiPV 4", ["MultiPV = 4"], {}),
        ("limited strength", ["UCI_LimitStrength = true", "UCI_Elo = 2100"], {}),
    ]
    cases += [(f"Contempt {value}", [f"Contempt = {value}"], {}) for value in (-150, -37, 41, 150)]
    cases += [(f"Selectivity {value}", [f"Selectivity = {value}"], {}) for value in (0, 37, 200)]
    # A little beyond the limits, 20 and 200, to which the engine cuts them.
    chance = random.Random(1)
    for number in range(1, random_sets + 1):
        values = [f"{chance.randint(15, 205)},{chance.randint(15, 205)}" for _ in WEIGHT_OPTIONS]
        cases.append((f"random weight options {number}", weight_options(values), {}))
    return cases


def option_results(command, options, files):
    """Weights and score tables at the console, then the searches over UCI, all as lines of text."""
    results = []
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, content in files.items():
            (root / name).write_text(content, encoding="ascii")
        (root / "vesk.cfg").write_text("".join(line + "\n" for line in options), encoding="ascii")
        words = ["sp"] + [word for position in POSITIONS for word in (f"fen {position}", "ev")]
        started, lines = calibration.start_fast(lambda: start_dialogue(
            [os.path.abspath(command), "-c", "-cfg", "vesk.cfg"], folder, words))
        with started as engine:
            # The speed that is measured at the start is no result, and the tuning program has
            # options of its own.
            results += [line for line in lines if " nps= " not in line and "UCI_Elo" not in line
                        and not TUNING_OPTION.match(line)]
            for position in POSITIONS[:4]:
                engine.send("ucinewgame")
                engine.send(f"position fen {position}")
                # Without any limit of time there is no contempt.
                engine.send(f"go depth {OPTIONS_DEPTH} movetime 80000000")
                lines = engine.lines_until("bestmove")
                results += [re.sub(r" (time|nps) \d+", "", line) for line in lines
                            if re.match(rf"info .*\bdepth {OPTIONS_DEPTH} .* pv ", line)]
                results.append(lines[-1])
    return results


def has_effect(name, results, plain):
    """Whether a case gives other weights, tables or searches than one without options; what only
    repeats the settings does not count."""
    echo = ("info string", "option name", "uciok")
    if [line for line in results if not line.startswith(echo)] \
            != [line for line in plain if not line.startswith(echo)]:
        return True
    print(f"{name}: changes nothing, so nothing is compared")
    return False


def compare_options(engines, random_sets, starts):
    """Whether all engines agree in all cases; tells of the first line that differs."""
    cases = option_cases(random_sets)
    workers = starts * (os.cpu_count() or 1)
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        plain = pool.submit(option_results, engines[0], [], {})
        runs = [[pool.submit(option_results, engine, options, files) for engine in engines]
                for _, options, files in cases]
        for (name, options, _), row in zip(cases, runs):
            expected = row[0].result()
            if not has_effect(name, expected, plain.result()):
                pool.shutdown(cancel_futures=True)
                return False
            for engine, run in zip(engines[1:], row[1:]):
                found = run.result()
                if found != expected:
                    different = [pair for pair in zip(expected, found) if pair[0] != pair[1]]
                    print(f"{engine} differs from {engines[0]} with {name}:", *options, sep="\n  ")
                    print(f"  {len(expected)} and {len(found)} lines, first difference",
                          *(different[0] if different else ("at the end",)), sep="\n    ")
                    pool.shutdown(cancel_futures=True)
                    return False
    print(f"all builds: the same weights, score tables, nodes, scores and lines "
          f"with {len(cases)} sets of options")
    return True


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--depth", type=int, default=9)
    parser.add_argument("--option-sets", type=int, default=10)
    parser.add_argument("--starts", type=int, default=2, help="engines at a time on a processor: "
                        "each only measures its speed for a third of a second, but a slow one "
                        "must not measure too little")
    parser.add_argument("engines", nargs="+")
    arguments = parser.parse_args()
    if len(arguments.engines) < 2:
        parser.error("two engines at least")
    for engine in arguments.engines:
        if not os.access(engine, os.X_OK):
            print(f"{engine} is not built")
            return 1
    with tempfile.TemporaryDirectory() as folder:
        stop_clock(folder)
        agreed = compare_searches(arguments.engines, arguments.depth) and compare_options(
            arguments.engines, arguments.option_sets, arguments.starts)
    return 0 if agreed else 1


if __name__ == "__main__":
    sys.exit(main())
