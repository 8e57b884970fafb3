#!/usr/bin/env python3
"""Checks bench/spsa.py: that it finds the best values of engines whose results are drawn by chance,
that its state goes on as if nothing had happened, and a small tuning of an engine that only knows
the moves of one short game.

    check_spsa.py

Status 77 (skipped) where pgn-extract is not installed.
"""

import itertools
import json
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
for place in ("scripts", "bench"):
    sys.path.insert(0, str(ROOT / place))

import match_stats as stats
import uci_games
from check_referee import REPLIES, START
from match import InputFault
from match_record import RecordFault
from spsa import Tuning, Value

SPSA = ROOT / "bench/spsa.py"
WORDS = ("Margin,40,0,200,10,0.02", "Depth,6,1,12,1,0.02")
BEST = {"Margin": 100, "Depth": 3}
SCALE = {"Margin": 40, "Depth": 2}      # how far from its best a value costs 50 Elo

# It says nothing of its options but what they are, and writes down what they are set to.
ENGINE = """#!{python}
import sys

plies = 0
replies = {replies}
for line in sys.stdin:
    words = line.split()
    if words[0] == "uci":
        print("option name Margin type spin default 40 min 0 max 200")
        print("option name Depth type spin default 6 min 1 max 12")
        print("uciok", flush=True)
    elif words[0] == "isready":
        print("readyok", flush=True)
    elif words[0] == "setoption":
        with open("{log}", "a") as log:
            log.write(f"{{words[2]}} {{words[4]}}\\n")
    elif words[0] == "position":
        plies = len(words) - words.index("moves") - 1 if "moves" in words else 0
    elif words[0] == "go":
        print("\\n".join(replies[plies]), flush=True)
"""


def make_values():
    return [Value(word, "argument") for word in WORDS]


def play_pair(chance, job):
    """Points of the first side from -2 to 2: whose values lie nearer to the best wins more."""
    strengths = [sum(-50 * ((int(number) - BEST[name]) / SCALE[name]) ** 2
                     for name, number in options) for options in job.options]
    share = stats.share_of(strengths[0] - strengths[1])
    return sum(1 if chance.random() < share else -1 for _ in range(2))


def tune(tuning, chance, count):
    for job in itertools.islice(tuning.jobs([START]), count):
        tuning.learn(job.number, play_pair(chance, job))


def check_search():
    """From values that cost 225 Elo to ones that cost less than 20, and from others too."""
    for seed in (1, 2, 3):
        tuning = Tuning(make_values(), {"seed": seed}, 4000)
        tune(tuning, random.Random(seed), 4000)
        found = dict(zip(BEST, tuning.now))
        cost = sum(50 * ((found[name] - BEST[name]) / SCALE[name]) ** 2 for name in BEST)
        assert cost < 20, (seed, found)
        assert tuning.next == 4000 and not tuning.beyond
        assert len(tuning.history) == 401 and tuning.history[-1][0] == 8000


def check_gains():
    """Distance and step end as told; the first ones follow from the exponents."""
    value = Value("Margin,40,0,200,10,0.02", "argument")
    assert value.gains(1000, 1000) == (10, 0.02 * 100)
    distance, step = value.gains(1, 1000)
    assert abs(distance - 10 * 1000 ** 0.101) < 1e-9
    assert abs(step - 2 * (1100 / 101) ** 0.602) < 1e-9
    tuning = Tuning([value], {"seed": 1}, 1000)
    job = tuning.draw(999, START)
    plus, minus = (int(options[0][1]) for options in job.options)
    sign = 1 if plus > minus else -1
    assert sorted((plus, minus)) == [30, 50], (plus, minus)
    tuning.learn(999, 2)
    assert abs(tuning.now[0] - (40 + sign * 2 * 2 / 10)) < 1e-9     # step * points / distance
    tuning.draw(5, START)
    before = tuning.now[0]
    tuning.learn(5, None)
    assert tuning.now[0] == before and tuning.beyond == {5, 999}


def check_state(folder):
    """A tuning that is broken off in its middle ends as one that is not."""
    path = folder / "state.json"
    settings = {"seed": 7, "engine": "e"}
    whole = Tuning(make_values(), settings, 100)
    chance = random.Random(7)
    tune(whole, chance, 100)
    chance = random.Random(7)
    first = Tuning(make_values(), settings, 100)
    tune(first, chance, 60)
    path.write_text(first.as_json(), encoding="utf-8")
    second = Tuning(make_values(), settings, 100)
    second.load(path)
    assert second.done() == 60
    tune(second, chance, 100)
    assert second.now == whole.now and second.history == whole.history
    for text, wanted in (("{\n]", "state.json:2: this is no state"), ("[]", "this is no state"),
                         (first.as_json().replace('"seed": 7', '"seed": 8'), "seed was 8"),
                         (first.as_json().replace('"next"', '"nxt"'), "this is no state")):
        path.write_text(text, encoding="utf-8")
        try:
            Tuning(make_values(), settings, 100).load(path)
            raise AssertionError(f"taken: {text}")
        except RecordFault as fault:
            assert wanted in str(fault), fault
    for text in ("Margin", "Margin,1,2,3,4,5", "Margin,1,0,2,0,1", "Margin,1,0,2,1,x",
                 ",1,0,2,1,1"):
        try:
            Value(text, "v.txt:3")
            raise AssertionError(f"taken: {text}")
        except InputFault as fault:
            assert str(fault).startswith("v.txt:3: "), fault


def run_spsa(*words):
    found = subprocess.run([sys.executable, SPSA, *map(str, words)], capture_output=True, text=True,
                           timeout=300, check=False)
    return found.returncode, found.stdout, found.stderr


def check_run(folder):
    engine, log = folder / "engine.py", folder / "options.txt"
    engine.write_text(ENGINE.format(python=sys.executable, log=log, replies=REPLIES),
                      encoding="ascii")
    engine.chmod(0o755)
    state, plot, values = folder / "run.json", folder / "run.svg", folder / "values.txt"
    values.write_text(f"# two\n{WORDS[1]}\n", encoding="ascii")
    words = ("--state", state, "--plot", plot, "--concurrency", 2, "--values", values, engine,
             WORDS[0])
    status, output, errors = run_spsa("--games", 7, *words)
    assert status == 0 and "games 8 of 8; to try them: match.py --option1 Margin=40 --option1 " \
                           "Depth=6" in output, (output, errors)
    found = json.loads(state.read_text(encoding="utf-8"))
    # White loses whoever plays it: nothing is learnt.
    assert found["values"] == {"Margin": 40, "Depth": 6} and found["next"] == 4, found
    text = log.read_text(encoding="ascii").splitlines()
    numbers = {int(line.split()[1]) for line in text if line.startswith("Margin")} - {0, 40, 200}
    assert min(numbers) in (28, 29, 30) and max(numbers) in (50, 51, 52), numbers
    xml.etree.ElementTree.parse(plot)
    assert run_spsa("--games", 7, *words)[0] == 1
    status, output, errors = run_spsa("--games", 9, "--resume", *words)
    assert status == 1 and "games was 7, and is 9 now" in errors, errors
    assert json.loads(state.read_text(encoding="utf-8")) == found
    for bad, wanted in (((engine, "Margin,40,0,999,1,1"), "takes 0 to 200"),
                        ((engine, "Margins,40,0,99,1,1"), "no option 'Margins'"),
                        ((engine, WORDS[0], WORDS[0]), "named twice"),
                        ((folder / "none", WORDS[0]), "No such file")):
        status, output, errors = run_spsa("--games", 2, "--state", folder / "bad.json", *bad)
        assert status == 1 and wanted in errors and "Traceback" not in errors, (bad, errors)
        (folder / "bad.json").unlink(missing_ok=True)
    state = folder / "broken.json"
    words = [sys.executable, SPSA, "--games", "100000", "--state", state, engine, WORDS[0]]
    process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    while not state.exists():
        assert process.poll() is None
        time.sleep(0.05)
    assert "another tuning" in run_spsa(*words[2:])[2]
    process.send_signal(signal.SIGTERM)
    output, errors = process.communicate(timeout=60)
    assert process.returncode == 1 and "broken off; --resume goes on" in errors, errors
    assert json.loads(state.read_text(encoding="utf-8"))["next"] > 0


def main():
    check_gains()
    check_search()
    with tempfile.TemporaryDirectory() as name:
        check_state(pathlib.Path(name))
        if uci_games.find_referee() is None:
            print("pgn-extract is not installed: no games are played")
            return uci_games.SKIPPED
        check_run(pathlib.Path(name))
    print("tuning by games does as it should")
    return 0


if __name__ == "__main__":
    sys.exit(main())
