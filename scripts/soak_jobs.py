"""The jobs of a soak: part of scripts/soak. A job takes the next seeds of its kind, lasts some
seconds up to a few minutes, and gives an Outcome, or None if it was asked to stop before its end.
"""

import json
import math
import os
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import process_groups
import soak_damage
from soak_state import TIME_LOSS, Outcome

PEERS = ("stockfish", "ethereal-chess", "toga2", "glaurung")
SANITIZERS = {"ASAN_OPTIONS": "exitcode=66", "TSAN_OPTIONS": "halt_on_error=1:exitcode=66",
              "UBSAN_OPTIONS": "print_stacktrace=1:exitcode=66", "VESK_TIMEOUT_FACTOR": "5"}
DIALOGUES = {"release": 8, "asan": 4, "tsan": 3}    # of one job
ARTIFACTS = ("crash-", "leak-", "oom-", "timeout-", "slow-unit-")
GAME_LIMIT = 900        # seconds after which the referee itself counts as hanging
DIALOGUE_LIMIT = 1800
FUZZ_MARGIN = 300       # seconds that a fuzz target may take beyond its time: the corpus, one input

# Milliseconds. Without an increment every move eats into the clock, so those games are shorter.
CONTROLS = (
    {"name": "sudden death", "base": 8000, "maxPlies": 180},
    {"name": "sudden death, very short", "base": 2000, "maxPlies": 100},
    {"name": "increment 0.04", "base": 800, "increment": 40, "maxPlies": 160},
    {"name": "increment 0.2", "base": 2000, "increment": 200, "maxPlies": 160},
    {"name": "increment 0.5", "base": 3000, "increment": 500, "maxPlies": 100},
    {"name": "increment 1", "base": 5000, "increment": 1000, "maxPlies": 70},
    {"name": "movestogo 20", "base": 1200, "moves": 20},
    {"name": "movestogo 40", "base": 4000, "moves": 40, "maxPlies": 200},
    {"name": "movetime 25", "movetime": 25},
    {"name": "movetime 200", "movetime": 200, "maxPlies": 150},
)
OPENINGS = (
    "e2e4 e7e5 g1f3 b8c6 f1b5 a7a6", "d2d4 d7d5 c2c4 e7e6 b1c3 g8f6",
    "e2e4 c7c5 g1f3 d7d6 d2d4 c5d4", "c2c4 e7e5 b1c3 g8f6 g2g3 d7d5",
    "d2d4 g8f6 c2c4 g7g6 b1c3 f8g7", "e2e4 e7e6 d2d4 d7d5 b1c3 f8b4",
    "e2e4 c7c6 d2d4 d7d5 e4e5 c8f5", "e2e4 e7e5 f2f4 e5f4 g1f3 g7g5",
)
# In the tables of up to four pieces, or a few captures away from them.
ENDINGS = (
    "8/5pk1/8/8/3K4/8/5P2/8 w - - 0 1", "6k1/5ppp/8/8/8/8/5PPP/R5K1 w - - 0 1",
    "8/5k2/8/3KP3/8/8/6r1/4R3 w - - 0 1", "8/8/8/3k4/8/8/4Q3/r3K3 w - - 0 1",
    "8/2k5/8/8/3P4/2K5/8/5n2 w - - 0 1", "4k3/8/8/8/8/8/3PPP2/4K3 w - - 0 1",
    "8/1p4k1/8/2b5/4B3/8/P4K2/8 w - - 0 1",
)


class Place:
    """Where a soak works: the folder of the sources, the one for all that it writes, and in there
    an empty one of this run alone."""

    def __init__(self, root, out, scratch, peer, is_asked_to_stop):
        self.root = root
        self.out = out
        self.scratch = scratch
        self.peer = peer
        self.is_asked_to_stop = is_asked_to_stop
        self.failures = out / "failures"
        self.slow = out / "slow"
        self.data = root / "tests" / "data"

    def relative(self, path):
        """As it is written into a report."""
        return os.path.relpath(path, self.root)


def wait_for(place, process, end):
    """Its status, "late", or None if the soak was asked to stop."""
    while True:
        try:
            return process.wait(timeout=0.3)
        except subprocess.TimeoutExpired:
            if place.is_asked_to_stop():
                return None
            if time.monotonic() > end:
                return "late"


def build(place, words):
    """Runs a part of a build, which says on standard error what it does, in a session of its own.
    True if that went well, None if the soak was asked to stop."""
    if place.is_asked_to_stop():
        return None
    try:
        process = subprocess.Popen([str(word) for word in words], cwd=place.root,
                                   stdin=subprocess.DEVNULL, stdout=sys.stderr,
                                   start_new_session=True)
    except OSError as error:
        print(error, file=sys.stderr, flush=True)
        return False
    try:
        status = wait_for(place, process, math.inf)
    finally:
        if process.returncode is None:
            process_groups.end_group(process)
    return None if status is None else status == 0


def run(place, words, limit, environment=None, in_place=False):
    """Runs a program in the folder of the sources, with all it starts in one process group. Status
    ("late" behind the limit) and output, or None if the soak was asked to stop."""
    if place.is_asked_to_stop():
        return None
    if in_place and subprocess.run(["setarch", "-R", "true"], capture_output=True).returncode == 0:
        words = ["setarch", "-R", *words]
    variables = dict(os.environ, TMPDIR=str(place.scratch), **(environment or {}))
    # A file, not a pipe: what the program leaves behind would keep that open.
    with tempfile.TemporaryFile(dir=place.scratch) as output:
        process = subprocess.Popen(
            [str(word) for word in words], cwd=place.root, env=variables, stdout=output,
            stdin=subprocess.DEVNULL, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            status = wait_for(place, process, time.monotonic() + limit)
        finally:
            process_groups.send(process, signal.SIGKILL)
            process.wait()
        output.seek(0)
        text = output.read().decode("utf-8", "replace")
    return None if status is None else (status, text)


def failure(what, seed, words, kept=None, text=""):
    return {"what": what, "seed": seed, "command": shlex.join(str(word) for word in words),
            "kept": kept, "text": text[-4000:]}


# ---- Games.

def choose_game(seed, data):
    """The game of a seed: every control with every number of threads in turn, the rest by
    chance."""
    dice = random.Random(f"game {seed}")
    game = dict(CONTROLS[seed % len(CONTROLS)])
    game["threads"] = (1, 2, 4)[seed % 3]
    game["ponder"] = dice.random() < 0.5
    game["opening"] = dice.choice(OPENINGS)
    options = {}
    if dice.random() < 0.25:
        options["MultiPV"] = dice.randint(2, 4)
    if dice.random() < 0.2:
        options.update({"UCI_Elo": dice.randint(1500, 2600), "UCI_LimitStrength": "true"})
    if dice.random() < 0.3:
        options["SyzygyPath"] = str(data / "syzygy")
        if dice.random() < 0.6:
            game.update({"fen": dice.choice(ENDINGS), "opening": ""})
    elif dice.random() < 0.4:
        options.update({"OwnBook_File": str(data / "small.bin"), "OwnBook_Depth": 60,
                        "OwnBook": "true"})
        game["opening"] = ""
    game["options"] = options
    traits = [f"{game['threads']} threads", *(["ponder"] if game["ponder"] else []), *options]
    game["name"] += ", " + ", ".join(traits)
    return game


def peer_game(game, peer):
    """The same game for a peer: what it need not know is left out."""
    options = {name: value for name, value in game["options"].items() if name == "MultiPV"}
    return dict(game, options=options, peer=str(peer), opening=game["opening"] or
                ("" if "fen" in game else OPENINGS[0]))


def play_schedule(place, games, file):
    """The referee's records of these games, or None."""
    file.write_text(json.dumps(games, indent=1) + "\n", encoding="utf-8")
    words = referee_words(place, file)
    result = run(place, words, GAME_LIMIT)
    if result is None:
        return None
    records = [json.loads(line) for line in result[1].splitlines() if line.startswith("{")]
    if len(records) != len(games):
        lost = {"failure": f"the referee ended with {result[0]}:\n{result[1]}", "onTime": False,
                "peer": None}
        records = [*records, lost]
    return records


def referee_words(place, file):
    return ["python3", "tests/games/play_games.py", "build/release/vesk",
            "--parallel", "1", "--schedule", place.relative(file)]


def soak_games(place, seed, _seconds):
    """One game, and one of the peer under the same control, in turns first and last."""
    game = choose_game(seed, place.data)
    games = [game]
    if place.peer:
        games.insert(seed % 2, peer_game(game, place.peer))
    records = play_schedule(place, games, place.scratch / "games.json")
    if records is None:
        return None
    outcome = Outcome(counters={"controls": {CONTROLS[seed % len(CONTROLS)]["name"]: 1}})
    if place.peer:
        outcome.counters["peer_games"] = 1
    for record in records:
        if record["peer"]:
            if record.get("onTime"):
                outcome.counters["peer_lost_on_time"] = 1
            elif "failure" in record:
                outcome.counters["peer_ended_otherwise"] = 1
            continue
        if "result" in record:
            outcome.counters["lines_judged"] = record["counts"]["lines"]
            continue
        kept = place.failures / f"games-{seed}.json"
        shutil.copyfile(place.scratch / "games.json", kept)
        what = TIME_LOSS if record["onTime"] else "violation"
        outcome.failures.append(failure(what, seed, referee_words(place, kept),
                                        place.relative(kept), record["failure"]))
    return outcome


# ---- Random dialogues.

def soak_dialogues(build):
    def job(place, seed, _seconds):
        def words_for(count, first):
            return ["python3", "tests/uci/random_dialogues.py", "--dialogues", count, "--seed",
                    first, "--jobs", 1, f"build/{build}/vesk", "tests/data"]
        count = DIALOGUES[build]
        environment = SANITIZERS if build != "release" else {}
        result = run(place, words_for(count, seed), DIALOGUE_LIMIT, environment, build == "tsan")
        if result is None:
            return None
        status, output = result
        outcome = Outcome(seeds=count, count=count)
        if status == 0:
            return outcome
        kept = place.failures / f"dialogues-{build}-{seed}.txt"
        kept.write_text(output, encoding="utf-8")
        found = re.findall(r"^dialogue (\d+):", output, re.M)
        seeds = sorted({int(number) for number in found})
        prefix = [f"{name}={value}" for name, value in environment.items()]
        prefix += ["setarch", "-R"] if build == "tsan" else []
        for number in seeds or [seed]:
            words = ["env", *prefix, *words_for(1 if seeds else count, number)]
            outcome.failures.append(failure(f"status {status}", number, words,
                                            place.relative(kept), output))
        return outcome
    return job


# ---- Fuzz targets.

def fuzz_targets(root):
    return sorted(path.name for path in (root / "fuzz" / "corpus").iterdir())


def soak_fuzz(place, seed, seconds):
    """One target for a minute at most. Its new inputs stay; those that it failed with are taken
    out, since it would stumble over them at every start."""
    targets = fuzz_targets(place.root)
    name = targets[(seed - 1) % len(targets)]
    seconds = max(5, min(60, int(seconds / 4)))
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    result = run(place, ["scripts/run_fuzzers", seconds, name], seconds + FUZZ_MARGIN)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if result is None:
        return None
    status, output = result
    executed = re.search(r"stat::number_of_executed_units: *(\d+)", output)
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    outcome = Outcome(counters={"targets": {name: {
        "runs": 1, "cpu_seconds": cpu, "inputs": int(executed.group(1)) if executed else 0}}})
    # An input that is merely slow is no failure, and no part of the corpus either.
    folder = place.root / "build" / "fuzz" / "found" / name
    artifacts = [path for path in folder.iterdir() if path.name.startswith(ARTIFACTS)]
    for path in artifacts:
        folder = place.slow if path.name.startswith("slow-unit-") else place.failures
        path.replace(folder / f"fuzz-{name}-{path.name}")
    if status == 0:
        return outcome
    kept = [place.failures / f"fuzz-{name}-{path.name}" for path in artifacts
            if not path.name.startswith("slow-unit-")]
    kept = kept or [place.failures / f"fuzz-{name}-{seed}.txt"]
    if kept[0].suffix == ".txt":
        kept[0].write_text(output, encoding="utf-8")
    words = [f"build/fuzz/fuzz/fuzz_{name}", *(place.relative(path) for path in kept)]
    outcome.failures.append(failure(f"status {status}", seed, words, place.relative(kept[0]),
                                    output))
    return outcome


# ---- Damaged files.

def soak_damage_job(place, seed, _seconds):
    with tempfile.TemporaryDirectory(dir=place.scratch) as name:
        folder = type(place.scratch)(name)
        case = soak_damage.make_case(seed, place.data, folder)
        complaint = soak_damage.run_case(place.root / "build/asan/vesk", case, folder, SANITIZERS,
                                         soak_damage.patience_of(SANITIZERS))
    outcome = Outcome(counters={"files": {case.kind: 1}})
    if complaint:
        kept = place.failures / f"damage-{seed}"
        soak_damage.keep_case(seed, place.data, kept)
        words = ["scripts/soak", "--repeat", place.relative(kept)]
        outcome.failures.append(failure(f"damaged {case.kind}", seed, words, place.relative(kept),
                                        complaint))
    return outcome


def repeat_case(place, kept, engine):
    """Runs a kept case of damage again; its complaint, or None."""
    with tempfile.TemporaryDirectory(dir=place.scratch) as name:
        folder = type(place.scratch)(name)
        case = soak_damage.copy_case(kept, folder)
        return soak_damage.run_case(engine, case, folder, SANITIZERS,
                                    soak_damage.patience_of(SANITIZERS))
