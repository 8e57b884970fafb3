#!/usr/bin/env python3
"""Trains on positions whose results come from a changed weight, and looks at what becomes of it.

    check_training.py VESK_TUNE TRAINING_LINES [POSITIONS]

Each check runs in an empty folder. Status 1 with a message at the first that fails.
"""

import csv
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

OLD = (29, 54)          # bishop_pair in the defaults
CHANGED = (120, 150)    # and where the results come from
TRAINED = 480000        # positions in all passes of a whole training
EVALUATIONS = pathlib.Path(__file__).resolve().parent.parent / "data" / "eval.tsv"
LARGEST_START_ERROR = 0.000003  # one centipawn, squared: what the evaluation cuts off


def fail(text):
    raise SystemExit(f"check_training: {text}")


def expect(condition, text):
    if not condition:
        fail(text)


class Trainer:
    """The two programs and a folder to run them in."""

    def __init__(self, program, generator):
        self.program = str(pathlib.Path(program).resolve())
        self.generator = str(pathlib.Path(generator).resolve())
        self.whole = ()

    def make_lines(self, count, name):
        subprocess.run([self.generator, str(count), name, "bishop_pair", *map(str, CHANGED)],
                       check=True)
        self.whole = ("-tune-passes", TRAINED // count, "-tune-rate", 1.5)

    def run(self, *words, **more):
        return subprocess.run([self.program, *map(str, words)], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=300, check=False, **more)

    def train_on(self, act, lines, *words):
        """Calls act with the process at a pass. Gives status, rest, errors."""
        with subprocess.Popen(
                [self.program, "-tune", lines, "bishop_pair", "-tune-passes", "100000",
                 "-tune-patience", "0", *words], stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
            for line in process.stdout:
                if line.startswith("pass 3:"):
                    act(process)
                    break
            rest = "" if process.stdout.closed else process.stdout.read()
            errors = process.stderr.read()
            return process.wait(timeout=60), rest, errors

    def train(self, *words):
        result = self.run(*words)
        expect(result.returncode == 0 and result.stderr == "",
               f"{words}: status {result.returncode}\n{result.stdout}{result.stderr}")
        return result.stdout


def weights():
    """The lines of the weights file as (name, mg, eg)."""
    lines = pathlib.Path("params.txt").read_text(encoding="ascii").splitlines()
    expect(len(lines) == 913, f"{len(lines)} lines in params.txt")
    found = []
    for line in lines:
        name, mg, eg = line.removeprefix('fset("').removesuffix(");").replace('"', "").split(",")
        found.append((name, int(mg), int(eg)))
    return found


def bishop_pair():
    return next((mg, eg) for name, mg, eg in weights() if name == "bishop_pair")


def files():
    """The bytes of all that a training writes; the old ones are removed."""
    names = ("params.txt", "tune_report.txt", "tune_report.csv", "tune_errors.csv")
    found = [pathlib.Path(name).read_bytes() for name in names]
    for name in names:
        os.remove(name)
    return found


def check_way_back(trainer, lines):
    """The weight moves towards where the results came from; the anchor stays."""
    out = trainer.train("-tune", lines, *trainer.whole)
    moved = bishop_pair()
    for before, now, goal in zip(OLD, moved, CHANGED):
        expect(abs(now - goal) < 0.6 * abs(before - goal), f"bishop_pair is {moved}")
    expect(weights()[0] == ("mtl_pawn", 100, 100), "the anchor has moved")
    expect("within" in out and "validation error" in out and "positions/s" in out, out)
    first, last = (float(line.split("validation error ")[1].split(",")[0].rstrip(" *"))
                   for line in (out.splitlines()[i] for i in find_passes(out)))
    expect(last < first / 4, f"validation error {first} to {last}")
    return files()


def find_passes(out):
    """The numbers of the first and the last line of a pass."""
    found = [i for i, line in enumerate(out.splitlines()) if line.startswith("pass ")]
    return found[0], found[-1]


def check_report(report):
    rows = list(csv.DictReader(report[2].decode().splitlines()))
    expect(len(rows) == 913, "the table does not list all weights")
    new = [f'fset("{row["weight"].split()[0]}",{row["new_mg"]},{row["new_eg"]});' for row in rows]
    expect(report[0].decode().splitlines() == new, "the table tells of other weights")
    expect([row["weight"] for row in rows if row["trained"] != "1"] == ["mtl_pawn"],
           "the table tells that weights rested")
    seen = [row for row in rows if row["positions"] != "0" and row["trained"] == "1"]
    listed = report[1].decode().split("\n\nnever seen:\n")[0].splitlines()[1:]
    for row, line in zip(seen, listed, strict=True):
        columns = ("old_mg", "new_mg", "old_eg", "new_eg", "positions")
        gradients = (f"{abs(float(row[name])):.2e}" for name in ("gradient_mg", "gradient_eg"))
        wanted = [*row["weight"].split(), *(row[name] for name in columns), *gradients]
        expect(all(abs(float(a) - float(b)) <= 0.01 * abs(float(b)) if "e-" in b else a == b
                   for a, b in zip(line.split(), wanted, strict=True)), f"{line}: {wanted}")
        expect(int(row["positions"]) < 100 or float(row["gradient_mg"]) != 0, f"{row}")
    row = next(row for row in rows if row["weight"] == "bishop_pair")
    expect((int(row["old_mg"]), int(row["old_eg"])) == OLD and int(row["positions"]) > 100,
           f"bishop_pair: {row}")
    unseen = report[1].decode().split("never seen:\n")[1].splitlines()
    expect(sorted(unseen) == sorted(r["weight"] for r in rows if r["positions"] == "0"),
           "the text and the table differ about weights never seen")
    for name in ("tmp0", "PST_P1 a1", "PST_K d4", "ppawn 8"):
        expect(name in unseen, f"{name} was seen")


def check_sameness(trainer, lines, first):
    """Threads, memory and a second run change no byte."""
    for words in (("-threads", 4), ("-tune-memory", 0), ("-tune-memory", 0, "-threads", 3), ()):
        trainer.train("-tune", lines, *trainer.whole, *words)
        expect(files() == first, f"{words} give another result")


def check_recipe(trainer, lines):
    """All that may be asked for at once: the same bytes however it is run, and each is told."""
    words = ("-tune", lines, "-tune-passes", 3, "-tune-fit-scale", "-tune-pull", 200,
             "-tune-smooth", 300, "-tune-decay", 20, "-tune-score-share", 0.4, "-tune-late", 2,
             "-tune-near-draw", 300)
    out = trainer.train(*words)
    for text in ("target: 0.6 of the result, 0.4 of the score", "20 per cent less",
                 "worth 200 positions", "worth 300 positions", "counts 2 times",
                 "a score of 300 counts half"):
        expect(text in out, f"{text}: {out}")
    # The results were made with this factor, from other weights.
    factor = float(out.split("\nfactor of the logistic: ")[1].split()[0])
    expect(0.0055 < factor < 0.0085, f"the factor is {factor}")
    first = files()
    rates = [row["rate"] for row in csv.DictReader(first[3].decode().splitlines())]
    expect(rates == ["0", "0.5", "0.4", "0.32"], f"rates {rates}")
    for more in (("-threads", 3, "-tune-memory", 0), ("-threads", 2)):
        trainer.train(*words, *more)
        expect(files() == first, f"{more} give another result")


def check_pull(trainer, lines):
    """A start that is worth more than all positions stays; only measuring changes nothing."""
    trainer.train("-tune", lines, "bishop_pair", "-tune-passes", 20, "-tune-pull", 1e8)
    expect(all(abs(now - old) <= 3 for now, old in zip(bishop_pair(), OLD)),
           f"bishop_pair is {bishop_pair()}")
    files()
    out = trainer.train("-tune", lines, "-tune-passes", 0)
    expect("pass 0: " in out and "pass 1: " not in out and bishop_pair() == OLD, out)
    files()


def check_merging(trainer, lines):
    """Shards come back as the file that they were cut from; a training takes it as it is."""
    text = pathlib.Path(lines).read_bytes().splitlines(keepends=True)
    pathlib.Path("one.epd").write_bytes(b"".join(text[:7000]))
    pathlib.Path("two.epd").write_bytes(b"".join(text[5000:]))
    out = trainer.run("-merge", "all.epd", "one.epd", "two.epd")
    expect(out.returncode == 0 and out.stderr == "", f"{out.returncode} {out.stdout}{out.stderr}")
    written = int(out.stdout.split("all.epd: ")[1].split()[0])
    merged = pathlib.Path("all.epd").read_bytes().splitlines(keepends=True)
    expect(merged[-1] == f"# lines {written}\n".encode() and len(merged) == written + 1,
           f"{merged[-1]}")
    expect(set(merged[:-1]) <= set(text) and len(set(merged)) == len(merged), "other lines")
    trainer.train("-tune", "all.epd", "bishop_pair", "-tune-passes", 1)
    files()
    for words, error in ((("-merge", "all.epd", "one.epd"), "all.epd: is there"),
                         (("-merge", "all.epd"), "-merge needs"),
                         (("-merge", "new.epd", "one.epd", "none.epd"), "none.epd")):
        out = trainer.run(*words)
        expect(out.returncode == 1 and error in out.stderr, f"{words}: {out.stderr}")
    expect(not os.path.exists("new.epd"), "a merge without its shards was written")


def check_start(trainer):
    """Before the first step the sums over all terms give the evaluations of the golden table."""
    lines = []
    for row in EVALUATIONS.read_text(encoding="ascii").splitlines():
        if not row.startswith("#"):
            fen, score, _, _, is_full, *_ = row.split("\t")
            if is_full == "1":
                lines.append(f"{fen} ce {score};\n")
    expect(len(lines) > 200, "too few evaluations")
    pathlib.Path("golden.epd").write_text("".join(lines), encoding="ascii")
    for names in ((), ("bishop_pair", "PST_K")):
        out = trainer.train("-tune", "golden.epd", *names, "-tune-passes", 1,
                            "-tune-validation", 0)
        error = float(out.split("pass 0: training error ")[1].split(" ")[0].rstrip(","))
        expect(error <= LARGEST_START_ERROR, f"{names}: the error begins with {error}")
        files()
    # No step makes it better: the training ends, and what it began with is written.
    out = trainer.train("-tune", "golden.epd", "-tune-rate", 100, "-tune-patience", 2)
    expect("pass 2: " in out and "pass 3: " not in out
           and out.endswith("no better error in 2 passes\nbest pass: 0\nparams.txt written\n"), out)
    expect(bishop_pair() == OLD, f"bishop_pair is {bishop_pair()} after no better pass")
    files()


def check_names(trainer, lines):
    """Only the weights named move."""
    trainer.train("-tune", lines, "bishop_pair", "stm_bonus", "-tune-passes", 80, "-tune-rate", 2)
    alone = weights()
    expect(all(abs(now - goal) <= 12 for now, goal in zip(bishop_pair(), CHANGED)),
           f"bishop_pair alone is {bishop_pair()}")
    os.remove("params.txt")
    trainer.train("-tune", lines, "tmp0", "-tune-passes", 1)
    moved = [name for (name, *now), (_, *old) in zip(alone, weights()) if now != old]
    expect(set(moved) <= {"bishop_pair", "stm_bonus"} and "bishop_pair" in moved, f"{moved} moved")
    files()


def check_resuming(trainer, lines):
    """A weights file is gone on from when that is asked for, and never replaced unasked."""
    trainer.train("-tune", lines, "bishop_pair", "-tune-passes", 2)
    first = bishop_pair()
    refused = trainer.run("-tune", lines, "bishop_pair")
    expect(refused.returncode == 1 and "params.txt" in refused.stderr and bishop_pair() == first,
           "a weights file was replaced unasked")
    trainer.train("-tune", lines, "bishop_pair", "-tune-passes", 2, "-tune-resume")
    second = bishop_pair()
    expect(second[0] > first[0] > OLD[0], f"bishop_pair went {OLD}, {first}, {second}")
    files()
    expect(trainer.run("-tune", lines, "-tune-resume").returncode == 1, "went on from nothing")


def check_overflowing_weights(trainer, lines):
    """Weights whose sums overflow are found out before the training, and stay as they are."""
    trainer.train("-tune", lines, "tmp0", "-tune-passes", 1)
    path = pathlib.Path("params.txt")
    lines_of_weights = []
    for name, mg, eg in weights():
        if name in ("mtl_rook", "mtl_queen"):
            mg = eg = 30000
        lines_of_weights.append(f'fset("{name}",{mg},{eg});\n')
    path.write_text("".join(lines_of_weights), encoding="ascii")
    old = path.read_bytes()
    result = trainer.run("-tune", lines, "-tune-passes", 1, "-tune-resume")
    expect(result.returncode == 1 and "scores cannot be rebuilt" in result.stderr,
           f"status {result.returncode}, {result.stderr}")
    expect(path.read_bytes() == old, "weights that overflow were replaced")
    files()


def check_personality(trainer, lines):
    """Options of play have no part in a training."""
    words = ("-tune", lines, "bishop_pair", "-tune-passes", 2)
    trainer.train(*words)
    first = files()
    pathlib.Path("play.cfg").write_text(
        "Mtl_Queen = 80,80 #\nThreats = 50,50 #\nContempt = 100 #\n", encoding="ascii")
    out = trainer.train(*words, "-cfg", "play.cfg")
    expect("loading parameters from play.cfg" in out, out)
    expect(files() == first, "the options of a configuration file changed the weights")


def check_interruption(trainer, lines):
    """An interrupt writes the weights as they stand."""
    status, rest, errors = trainer.train_on(lambda process: process.send_signal(signal.SIGINT),
                                            lines)
    expect(status == 0 and "interrupted" in rest and errors == "", rest[-500:] + errors)
    expect(bishop_pair()[0] > OLD[0], "nothing was learnt before the interrupt")
    files()


def check_reader_gone(trainer, lines):
    """Ctrl-C also ends a program that reads the output; the weights are written all the same."""
    def leave(process):
        process.stdout.close()

    def leave_interrupted(process):
        process.stdout.close()
        process.send_signal(signal.SIGINT)

    for act in (leave, leave_interrupted):
        status, _, errors = trainer.train_on(act, lines)
        expect(status == 1 and "standard output" in errors, f"status {status}, {errors}")
        expect(bishop_pair()[0] > OLD[0], "the weights went with the reader")
        files()


def check_two_trainings(trainer, lines):
    """A weights file that comes while a training goes on is another's: it stays."""
    def come(process):
        pathlib.Path("params.txt").write_text("of another\n", encoding="ascii")
        process.send_signal(signal.SIGINT)

    status, _, errors = trainer.train_on(come, lines)
    expect(status == 1 and "params_new.txt" in errors, f"status {status}, {errors}")
    expect(pathlib.Path("params.txt").read_text(encoding="ascii") == "of another\n",
           "the weights of another were replaced")
    os.replace("params_new.txt", "params.txt")
    expect(bishop_pair()[0] > OLD[0], "the own weights were lost")
    files()


def check_changed_file(trainer, lines):
    """A file that is cut while it is read again ends the training; the best weights are written."""
    shutil.copy(lines, "cut.epd")
    status, rest, errors = trainer.train_on(lambda _: os.truncate("cut.epd", 100000), "cut.epd",
                                            "-tune-memory", "0", "-tune-passes", "1000")
    expect(status == 1 and "cut.epd: has changed" in errors, f"status {status}, {errors}")
    expect("error 0.000000" not in rest and bishop_pair()[0] > OLD[0], rest[-500:])
    files()


def check_without_workers(trainer, lines):
    """A configuration file may take all workers away; the training does without them."""
    trainer.train("-tune", lines, "bishop_pair", "-tune-passes", 1)
    first = files()
    pathlib.Path("bare.cfg").write_text("Threads = 0\n", encoding="ascii")
    trainer.train("-tune", lines, "bishop_pair", "-tune-passes", 1, "-cfg", "bare.cfg")
    expect(files() == first, "no workers give another result")


def check_saving(trainer, lines):
    """The weights are written while the training goes on."""
    with subprocess.Popen(
            [trainer.program, "-tune", lines, "bishop_pair", "-tune-passes", "1000000",
             "-tune-patience", "0", "-tune-save-every", "100000"], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL) as process:
        end = time.monotonic() + 60
        while not os.path.exists("params.txt") and time.monotonic() < end:
            time.sleep(0.01)
        process.kill()
        process.wait()
    expect(len(weights()) == 913, "no weights were written on the way")
    os.remove("params.txt")


def check_bad_input(trainer, lines):
    cases = (
        (("-tune",), "file"),
        (("-tune", "none.epd"), "none.epd"),
        (("-tune", "."), "."),
        (("-tune", lines, "no_such_weight"), "no_such_weight"),
        (("-tune", lines, "mtl_pawn"), "mtl_pawn"),
        (("-tune", lines, *"abcdefghij"), "9"),
        (("-tune", lines, "-tune-rate", "x"), "-tune-rate"),
        (("-tune", lines, "-tune-rate", "nan"), "-tune-rate"),
        (("-tune", lines, "-tune-passes", "1.5"), "-tune-passes"),
        (("-tune", lines, "-tune-validation"), "-tune-validation"),
        (("-tune", lines, "-tune-colour", "1"), "-tune-colour"),
        (("-tune", lines, "-tune-score-share", "1.5"), "-tune-score-share"),
        (("-tune", lines, "-tune-pull", "-1"), "-tune-pull"),
        (("-tune", lines, "-tune-decay", "100"), "-tune-decay"),
        (("-tune", "scores.epd", "-tune-fit-scale"), "fit no factor"),
    )
    with open(lines, encoding="ascii") as good:
        pathlib.Path("scores.epd").write_text(
            "".join(line.split(" gr ")[0] + "\n" for line in good), encoding="ascii")
    for words, text in cases:
        result = trainer.run(*words)
        expect(result.returncode == 1 and text in result.stderr,
               f"{words}: status {result.returncode}, {result.stderr}")
        expect(not os.path.exists("params.txt"), f"{words} wrote weights")

    with open("bad.epd", "wb") as bad, open(lines, "rb") as good:
        bad.write(b"\xef\xbb\xbf# text\r\n" + bytes(range(256)) + b"\n" + b"x" * 2000000 + b"\n")
        bad.write(good.read(200000) + b'\n8/8 w - - gr "\n')
    result = trainer.run("-tune", "bad.epd", "-tune-passes", 1)
    expect(result.returncode == 1 and "bad.epd:2: " in result.stderr, result.stderr)
    expect(len(weights()) == 913, "bad lines keep the rest from being used")
    files()


def check_outputs_that_cannot_be(trainer, lines):
    """What the end could not write, or would take from the user, is told at the start."""
    for name in ("params.part", "tune_report.txt", "tune_report.csv", "tune_report.part",
                 "tune_errors.csv", "tune_errors.part"):
        shutil.copy(lines, name)
        result = trainer.run("-tune", name, "-tune-passes", 1)
        expect(result.returncode == 1 and name in result.stderr and "pass" not in result.stdout,
               f"{name}: status {result.returncode}, {result.stderr}")
        expect(pathlib.Path(name).read_bytes() == pathlib.Path(lines).read_bytes(),
               f"{name} was lost")
        os.remove(name)
        os.mkdir(name)
        result = trainer.run("-tune", lines, "-tune-passes", 1)
        expect(result.returncode == 1 and "cannot be opened for writing" in result.stderr
               and "pass" not in result.stdout, f"{name}: {result.returncode}, {result.stderr}")
        os.rmdir(name)
        expect(not os.path.exists("params.txt"), f"{name}: weights were written")


def check_resuming_from_what_is_none(trainer, lines):
    """A weights file that cannot be gone on from is not replaced."""
    def refused(text):
        result = trainer.run("-tune", lines, "-tune-passes", 1, "-tune-resume")
        expect(result.returncode == 1 and text in result.stderr and "pass" not in result.stdout,
               f"status {result.returncode}, {result.stderr}")

    os.mkdir("params.txt")
    refused("params.txt: cannot be opened: not a regular file")
    os.rmdir("params.txt")
    for text in ("", "notes\n", 'fset("bishop_pair");\n'):
        pathlib.Path("params.txt").write_text(text, encoding="ascii")
        refused("params.txt: holds no weights")
        expect(pathlib.Path("params.txt").read_text(encoding="ascii") == text, "it was replaced")
    os.remove("params.txt")


def check_full_disk(trainer, lines):
    """A file that takes no more: the old one stays, and the status tells."""
    trainer.train("-tune", lines, "bishop_pair", "-tune-passes", 1)
    old = pathlib.Path("params.txt").read_bytes()
    result = trainer.run(
        "-tune", lines, "bishop_pair", "-tune-passes", 1, "-tune-resume",
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096)))
    expect(result.returncode == 1 and "params.txt: cannot be written" in result.stderr,
           f"status {result.returncode}, {result.stderr}")
    expect(pathlib.Path("params.txt").read_bytes() == old, "the old weights were lost")
    expect(not os.path.exists("params.part"), "an unfinished file stays")
    files()


def main():
    trainer = Trainer(sys.argv[1], sys.argv[2])
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        trainer.make_lines(int(sys.argv[3]) if len(sys.argv) > 3 else 20000, "lines.epd")
        first = check_way_back(trainer, "lines.epd")
        check_report(first)
        check_sameness(trainer, "lines.epd", first)
        check_recipe(trainer, "lines.epd")
        check_pull(trainer, "lines.epd")
        check_merging(trainer, "lines.epd")
        check_start(trainer)
        check_names(trainer, "lines.epd")
        check_resuming(trainer, "lines.epd")
        check_overflowing_weights(trainer, "lines.epd")
        check_personality(trainer, "lines.epd")
        check_interruption(trainer, "lines.epd")
        check_reader_gone(trainer, "lines.epd")
        check_two_trainings(trainer, "lines.epd")
        check_changed_file(trainer, "lines.epd")
        check_without_workers(trainer, "lines.epd")
        check_saving(trainer, "lines.epd")
        check_bad_input(trainer, "lines.epd")
        check_outputs_that_cannot_be(trainer, "lines.epd")
        check_resuming_from_what_is_none(trainer, "lines.epd")
        check_full_disk(trainer, "lines.epd")
        os.chdir("/")


if __name__ == "__main__":
    main()
