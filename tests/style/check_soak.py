#!/usr/bin/env python3
"""Checks the parts of scripts/soak that nobody would see fail for hours: damage follows from its
seed and is what its name says, a state survives being written, bad programs are found out, and
what has failed gives status 1.

    check_soak.py ROOT
"""

import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(sys.argv[1]).resolve()
sys.path.insert(0, str(ROOT / "scripts"))

import soak_damage
import soak_jobs
import soak_state

# Stand-ins for the program: a shell that answers each line with what the dialogue awaits.
NO_HOURS = "1e-12"  # nanoseconds: over before the first turn, however fast the machine is
ANSWER = 'while read -r line; do case $line in uci) echo uciok;; go*) echo bestmove;; ' \
         'isready) echo readyok;; perft*) echo visited;; quit) %s;; esac; done; exit 0'
PROGRAMS = {
    "exit 0": None,
    "exit 1": None,
    "exit 66": "status 66",
    "kill -SEGV $$": "status -11",
    "echo '==1==ERROR: AddressSanitizer: overflow' >&2; exit 0": "told of a defect",
    "echo >>input.bin; exit 0": "changed its input: input.bin",
    "exec sleep 60": "no end within",
    "printf '\\377\\n'; exit 0": None,
}


def check_bytes(data, seed):
    """Every way of damage, on data: the same again for a seed, and as its name says."""
    for way in soak_damage.DAMAGES:
        out = way(data, random.Random(seed))
        assert out == way(data, random.Random(seed)), way.__name__
        name = way.__name__
        if name in ("flip_bits", "zero_page", "overwrite"):
            assert len(out) == len(data), name
        if name == "flip_bits" and data:
            turned = sum((a ^ b).bit_count() for a, b in zip(out, data))
            assert 1 <= turned <= 8, turned
        if name == "zero_page":
            assert all(b in (0, a) for a, b in zip(data, out)), name
            assert not data.strip(b"\0") or out != data, name
        if name == "cut":
            assert data.startswith(out) and (len(out) < len(data) or not data), name
        if name in ("insert", "repeat") and data:
            assert len(out) > len(data), name
            extra = len(out) - len(data)
            assert any(out[:at] + out[at + extra:] == data for at in range(len(data) + 1)), name
        if name == "take_out" and data:
            lost = len(data) - len(out)
            assert lost > 0, name
            assert any(data[:at] + data[at + lost:] == out for at in range(len(data))), name
    assert soak_damage.write_extreme(b"Hash = ", random.Random(seed)) == b"Hash = "
    assert soak_damage.write_extreme(b"Hash = 17", random.Random(seed)) != b"Hash = 17"


def check_damage():
    for seed in range(200):
        dice = random.Random(seed)
        check_bytes(b"", seed)
        check_bytes(bytes(dice.choices(range(1, 256), k=dice.choice((1, 5, 900)))), seed)
    large = random.Random(1).randbytes(5 * soak_damage.PAGE).replace(b"\0", b"\1")
    zeroed = soak_damage.zero_page(large, random.Random(2))
    assert zeroed.count(0) == soak_damage.PAGE
    assert soak_damage.damage(large, random.Random(3)) == soak_damage.damage(large,
                                                                             random.Random(3))


def check_cases(folder):
    """Two rounds of all kinds are laid out alike twice, and differ from seed to seed."""
    kinds = set()
    for seed in range(1, 2 * len(soak_damage.MAKERS) + 1):
        places = [folder / f"{seed}-{number}" for number in (1, 2)]
        for place in places:
            place.mkdir()
        first, second = (soak_damage.make_case(seed, ROOT / "tests/data", place)
                         for place in places)
        assert first == second, seed
        assert soak_damage.snapshot(places[0]) == soak_damage.snapshot(places[1]), seed
        assert first.ways, seed
        kinds.add(first.kind)
    assert len(kinds) == len(soak_damage.MAKERS), kinds
    # Kings with fixed squares must leave no piece without one.
    for seed in range(2000):
        text = soak_damage.random_position(random.Random(seed), "KQPvKRP")
        assert text.count("K") == text.count("k") == text.count("r") == 1, text
    assert soak_jobs.choose_game(7, ROOT) == soak_jobs.choose_game(7, ROOT)
    kept = folder / "kept"
    soak_damage.keep_case(2, ROOT / "tests/data", kept)
    again = folder / "again"
    again.mkdir()
    assert soak_damage.copy_case(kept, again) == soak_damage.read_case(kept)
    original = soak_damage.snapshot(folder / "2-1")
    assert soak_damage.snapshot(again) == original


def check_programs(folder):
    """Programs that end badly, hang, or write to what they read are found out, others not."""
    for number, (ending, complaint) in enumerate(PROGRAMS.items()):
        place = folder / f"program-{number}"
        place.mkdir()
        (place / "input.bin").write_bytes(b"input")
        program = folder / f"{number}.sh"
        program.write_text("#!/bin/sh\n" + ANSWER % ending)
        program.chmod(0o755)
        case = soak_damage.Case("book", "input.bin", [], [],
                                soak_damage.end_steps([("go depth 1", "bestmove")]))
        found = soak_damage.run_case(program, case, place, limit=3.0)
        assert (found is None) == (complaint is None), (ending, found)
        assert complaint is None or complaint in found, (ending, found)


def check_state(folder):
    state = soak_state.new_state()
    loss = {"what": soak_state.TIME_LOSS, "seed": 1, "command": "true", "kept": None, "text": ""}
    outcome = soak_state.Outcome(seeds=4, count=3, failures=[loss],
                                 counters={"peer_games": 1, "targets": {"uci": {"runs": 1}}})
    soak_state.add_outcome(state, "games", outcome, 2.0, 1.0)
    soak_state.add_outcome(state, "games", soak_state.Outcome(counters=outcome.counters), 2.0, 1.0)
    record = state["kinds"]["games"]
    assert (record["next"], record["count"]) == (6, 4), record
    assert record["counters"] == {"peer_games": 2, "targets": {"uci": {"runs": 2}}}, record
    # A game lost on time is the machine's fault where a peer has lost one too, no other failure.
    assert soak_state.has_failed(state)
    record["counters"]["peer_lost_on_time"] = 1
    assert not soak_state.has_failed(state)
    assert soak_state.has_failed(state, ["asan"])
    record["failures"].append(dict(loss, what="violation"))
    assert soak_state.count_failures(record) == 1
    path = folder / "deep" / "state.json"
    soak_state.write_json(path, state)
    assert soak_state.load_state(path) == state
    assert [file.name for file in path.parent.iterdir()] == ["state.json"]


def check_status(folder, tree):
    """The whole script, without time for any job: what stands in the state decides."""
    words = ["--no-build", "--only", "damage", "--out", folder / "out", NO_HOURS]
    status, text = run_soak(tree, *words)
    assert status == 0 and "nothing done" in text, text
    state = soak_state.load_state(folder / "out/state.json")
    fault = soak_jobs.failure("made up", 5, ["true", "a b"], None, "text")
    soak_state.add_outcome(state, "damage", soak_state.Outcome(failures=[fault]), 1.0, 1.0)
    soak_state.write_json(folder / "out/state.json", state)
    status, text = run_soak(tree, *words)
    assert status == 1 and "damage 1, 1 failed" in text, text
    report = json.loads((folder / "out/report.json").read_text())
    assert report["failed"] == 1, report
    assert report["kinds"]["damage"]["failures"] == [fault], report
    assert fault["command"] == "true 'a b'"


def make_tree(folder):
    """A tree with the scripts, and a program that does nothing in place of one build."""
    shutil.copytree(ROOT / "scripts", folder / "scripts")
    (folder / "fuzz/corpus/uci").mkdir(parents=True)
    program = folder / "build/asan/vesk"
    program.parent.mkdir(parents=True)
    program.write_text("#!/bin/sh\n" + ANSWER % "exit 0")
    program.chmod(0o755)


def run_soak(tree, *words):
    """Its status, and all that it said. The machine has no referee, wherever that is."""
    result = subprocess.run([tree / "scripts/soak", *words], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True,
                            env={**os.environ, "PGN_EXTRACT": str(tree / "nothing")})
    return result.returncode, result.stdout


def check_folder(folder, tree):
    """A folder of the user's keeps what was in it, and nothing of the run's scratch stays there."""
    words = ["--no-build", "--only", "damage", NO_HOURS, "--out"]
    folder.mkdir()
    kept = folder / "kept.txt"
    kept.write_text("kept")
    for name, is_link in (("plain", False), ("linked", True)):
        out = folder / name
        out.mkdir()
        own = folder if is_link else out / "scratch"
        if is_link:
            (out / "scratch").symlink_to(folder)
        else:
            own.mkdir()
            (own / "kept.txt").write_text("kept")
        (out / "lock").write_text("kept")
        status, text = run_soak(tree, *words, out)
        assert status == 0 and "nothing done" in text, text
        assert (own / "kept.txt").read_text() == (out / "lock").read_text() == "kept", name
        assert sorted(path.name for path in out.iterdir()) == [
            "failures", "lock", "report.json", "scratch", "slow", "state.json"], name
    check_refusal(tree, "nothing can be written in", *words, kept)
    assert kept.read_text() == "kept"


def check_refusal(tree, reason, *words):
    """What cannot be done is refused in one line, with status 2."""
    status, text = run_soak(tree, *words)
    assert status == 2 and text.startswith("soak: ") and reason in text, (words, status, text)
    assert text.count("\n") == 1, text


def check_refusals(folder, tree):
    out = folder / "refused"
    words = ["--no-build", "--only", "damage", "--out", out]
    for hours in ("nan", "inf", "0", "-1", "1e308"):
        check_refusal(tree, "no hours", *words, hours)
    check_refusal(tree, "processor 9999 is none of", *words, "--core", "9999", "1")
    check_refusal(tree, "nothing to soak: there is no fuzz; there is no pgn-extract, release",
                  "--no-build", "--only", "fuzz,games", "--out", out, NO_HOURS)
    good = (folder / "out/state.json").read_text()
    for text in ("{", "[]", '"turn"', '{"kinds": {}}', "[" * 100000,
                 good.replace('"turn": 0', '"turn": "0"'),
                 good.replace('"next": 2', '"next": NaN'),
                 good.replace('"counters": {}', '"counters": {"targets": 1}')):
        assert text != good
        (out / "state.json").write_text(text)
        check_refusal(tree, "cannot go on from", *words, NO_HOURS)
        assert (out / "state.json").read_text() == text
    kept = folder / "refused-case"
    words = ["--out", out, "--repeat", kept]
    check_refusal(tree, "is no kept case", *words)
    kept.mkdir()
    check_refusal(tree, "is no kept case", *words)
    for text in ("{", "[]", "{}", '{"kind": 1, "source": "", "ways": [], "words": [], "steps": []}',
                 '{"kind": "", "source": "", "ways": [], "words": [], "steps": [["a"]]}'):
        (kept / "case.json").write_text(text)
        check_refusal(tree, "is no kept case", *words)
    soak_damage.keep_case(2, ROOT / "tests/data", kept)
    status, text = run_soak(tree, *words)
    assert status == 0 and text == "nothing wrong\n", text
    program = tree / "build/asan/vesk"
    program.rename(program.with_name("other"))
    check_refusal(tree, f"there is no {program}", *words)
    program.with_name("other").rename(program)


def interrupt(tree, number, file, *words):
    """Sends a soak the signal once the file is there. Status and output; both must come soon."""
    file.unlink(missing_ok=True)
    variables = dict(os.environ, PATH=f"{tree / 'bin'}:{os.environ['PATH']}")
    with subprocess.Popen([tree / "scripts/soak", *words, "1"], env=variables, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        try:
            end = time.monotonic() + 20
            while not file.exists() and time.monotonic() < end:
                time.sleep(0.05)
            assert file.exists(), "not even begun"
            process.send_signal(number)
            text = process.communicate(timeout=10)[0]
        finally:
            process.kill()
    return process.returncode, text


def has_survived(job):
    """Whether a process was still there; it is none behind that."""
    try:
        os.kill(job, signal.SIGKILL)
    except ProcessLookupError:
        return False
    return True


def check_interrupts(folder, tree):
    """A signal ends a run soon, also while something is built or the benchmark runs, with all that
    was started for it; nothing more is begun, and the report is written."""
    cmake = tree / "bin/cmake"
    cmake.parent.mkdir()
    shutil.copyfile(ROOT / "tests/style/slow_cmake.py", cmake)
    cmake.chmod(0o755)
    program = tree / "build/release/vesk"
    program.parent.mkdir()
    program.write_text('#!/bin/sh\necho >"$0.began"\nexec sleep 60\n')
    program.chmod(0o755)
    began = program.with_name("vesk.began")
    for number in (signal.SIGINT, signal.SIGTERM):
        out = folder / f"interrupted-{number}"
        (cmake.parent / "calls").unlink(missing_ok=True)
        status, text = interrupt(tree, number, cmake.parent / "job", "--only", "damage,fuzz",
                                 "--out", out)
        assert not has_survived(int((cmake.parent / "job").read_text()))
        assert status == 0 and "nothing done" in text and "skipping" not in text, text
        calls = (cmake.parent / "calls").read_text().splitlines()
        assert [call.split()[:2] for call in calls] == [
            ["--preset", "asan"], ["--build", "build/asan"]], calls
        assert not began.exists()
        assert json.loads((out / "report.json").read_text())["failed"] == 0
        assert not list(out.glob("scratch-*"))
    status, text = interrupt(tree, signal.SIGINT, began, "--no-build", "--only", "damage",
                             "--out", out)
    assert status == 0 and "nothing done" in text, text


def main():
    check_damage()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        check_cases(folder)
        check_programs(folder)
        check_state(folder)
        make_tree(folder / "tree")
        check_status(folder, folder / "tree")
        check_folder(folder / "folders", folder / "tree")
        check_refusals(folder, folder / "tree")
        check_interrupts(folder, folder / "tree")
    print("the soak's parts hold")
    return 0


if __name__ == "__main__":
    sys.exit(main())
