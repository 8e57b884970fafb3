#!/usr/bin/env python3
"""Drives vesk-data positions as a user does.

usage: check_positions.py VESK_DATA VESK ROOT

What comes out is given to the programs that it is for: the runner of test suites and, where
vesk-tune lies beside vesk, the merging of shards and the trainer.
"""
import gzip
import json
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import time
import xml.dom.minidom
from pathlib import Path

MEGABYTE = 1 << 20


class Failure(Exception):
    pass


def check(condition, text):
    if not condition:
        raise Failure(text)


class Word:
    """The word in a folder of its own."""

    def __init__(self, program, folder):
        self.program = program
        self.folder = Path(folder)

    def path(self, name):
        return self.folder / name

    def write(self, name, lines):
        text = lines if isinstance(lines, bytes) else "".join(f"{line}\n" for line in lines).encode()
        self.path(name).write_bytes(text)
        return name

    def lines(self, name):
        return self.path(name).read_text().splitlines()

    def run(self, *arguments, data=None, wanted=0):
        """Returns standard output and standard error."""
        done = subprocess.run([self.program, "positions", *map(str, arguments)], cwd=self.folder,
                              input=data, capture_output=True, timeout=200)
        errors = done.stderr.decode(errors="replace")
        check(done.returncode == wanted,
              f"{arguments}: status {done.returncode}, not {wanted}: {errors}")
        return done.stdout, errors

    def report(self, *arguments, wanted=0):
        out, errors = self.run(*arguments, "--check", "--json", wanted=wanted)
        return json.loads(out), errors


def make_lines(seed, games, per_game=30, first=1):
    """Training lines of made-up games: rooks and pawns on drawn squares."""
    rng = random.Random(seed)
    lines = []
    for game in range(first, first + games):
        result = rng.choice((0.0, 0.5, 1.0))
        for ply in range(per_game):
            squares = rng.sample(range(8, 56), 10)
            board = [""] * 64
            for square, piece in zip(squares, "PPPPPppppp"):
                board[square] = piece
            board[0], board[63] = "K", "k"
            board[rng.randrange(1, 7)] = "R" if ply % 3 else "Q"
            # Nobody is in check: the pieces of the first rank are shut in by these.
            for square in range(8, 16):
                board[square] = "P" if square < 13 else board[square]
            white = sum(1 for piece in board if piece.isupper())
            if white > 16 or board[54] == "P" or is_attacked(board):
                continue
            side = "wb"[ply % 2]
            own = result if side == "w" else 1.0 - result
            score = round((own - 0.5) * 300 + rng.gauss(0, 120))
            lines.append(f"{fen(board)} {side} - - ce {score}; gr {own}; c0 \"game {game}\";")
    return lines


def is_attacked(board):
    """Whether white's queen or rook or a pawn of either side may reach a king: too much is taken
    for an attack."""
    piece = next(i for i in range(8) if board[i] in ("Q", "R"))
    column = any(board[i] == "" for i in range(piece + 8, 64, 8))
    return (column and board[piece + 8] == "") or board[9] == "p"


def fen(board):
    ranks = []
    for rank in range(7, -1, -1):
        text = "".join(board[8 * rank + file] or "1" for file in range(8))
        ranks.append(re.sub("1+", lambda ones: str(len(ones.group())), text))
    return "/".join(ranks)


def position_of(line):
    return " ".join(line.split()[:4])


def game_of(line):
    found = re.search(r'c0 "game ([^"]*)"', line)
    return found.group(1) if found else None


def check_stored(word, root):
    """Real-looking files with slips: what is refused and what stays."""
    for kind in ("training", "test"):
        name = f"mixed-{kind}.epd"
        data = (root / "tests/data/positions" / name).read_bytes()
        word.write(name, data)
        wanted = (root / "tests/data/positions" / f"mixed-{kind}.txt").read_text()
        for jobs in (1, 3):
            _, errors = word.run("--max-messages", 100, "--jobs", jobs, "--output", "sound.epd",
                                 "--report", "report.txt", name, wanted=1)
            check(errors == wanted, f"{name} is judged otherwise:\n{errors}")
        # What is left is sound as a whole, and none of it has changed.
        sound = word.lines("sound.epd")
        check(sound, f"nothing of {name} is left")
        originals = data.decode("latin-1").splitlines()
        check(all(line in originals for line in sound), "a line has been changed")
        word.run("--check", "--kind", kind, "sound.epd")
        Path(word.path("sound.epd")).rename(word.path(f"sound-{kind}.epd"))


def check_readers(word, vesk, tune):
    """The programs that the lines are for take all of them."""
    for name in ("sound-test.epd", "sound-training.epd"):
        done = subprocess.run([vesk, "-quiet", "-d", "1", "-anepd", name], cwd=word.folder,
                              capture_output=True, text=True, timeout=100)
        count = len(word.lines(name))
        check(done.returncode == 0 and done.stderr == "", f"-anepd refuses some of {name}: {done}")
        check(f"/ {count} correct" in done.stdout, f"-anepd passes over lines: {done.stdout}")
    if not tune.exists():
        print("vesk-tune is not there: merging and training are not compared")
        return
    lines = make_lines(5, 60)
    word.write("a.epd", lines[:900] + ["# lines 900"])
    word.write("b.epd", lines[500:] + [lines[0]])
    word.run("--unique", "--marks", "keep", "--trailer", "--output", "ours.epd", "a.epd", "b.epd")
    subprocess.run([tune, "-merge", "merged.epd", "a.epd", "b.epd"], cwd=word.folder, check=True,
                   capture_output=True, timeout=100)
    check(word.path("ours.epd").read_bytes() == word.path("merged.epd").read_bytes(),
          "shards are merged otherwise than by the tool for it")
    word.run("--shuffle", 3, "--unique", "--output", "mixed.epd", "a.epd", "b.epd",
             "sound-training.epd")
    done = subprocess.run([tune, "-tune", "mixed.epd", "-tune-passes", "0"], cwd=word.folder,
                          capture_output=True, text=True, timeout=200)
    check(done.returncode == 0 and done.stderr == "", f"the trainer refuses lines: {done}")
    check(f"{len(word.lines('mixed.epd'))} positions:" in done.stdout
          and "left out: 0 in check, 0 judged without weights, 0 with a ce beyond 5000, 0 refused"
          in done.stdout, f"the trainer leaves lines out: {done.stdout}")


def check_unique_and_order(word):
    lines = make_lines(1, 100)
    word.write("a.epd", lines + lines[:700] + [position_of(lines[3]) + " gr 0.125;"])
    first = {}
    for line in lines:
        first.setdefault(position_of(line), line)
    out, _ = word.run("--unique", "a.epd")
    check(out.decode().splitlines() == list(first.values()), "the first lines do not stay")
    out, _ = word.run("--shuffle", 4, "a.epd")
    shuffled = out.decode().splitlines()
    check(sorted(shuffled) == sorted(word.lines("a.epd")), "shuffling loses or changes lines")
    check(shuffled != word.lines("a.epd"), "shuffling leaves the order")
    other, _ = word.run("--shuffle", 5, "a.epd")
    check(other != out, "another seed gives the same order")
    both, _ = word.run("--shuffle", 4, "--unique", "a.epd", "--jobs", 3)
    wanted = set(first.values())
    check(set(both.decode().splitlines()) == wanted, "shuffled lines are not unique")


def check_split(word):
    """Games are not torn, and those of two files that have the same mark are two games."""
    word.write("a.epd", make_lines(2, 200))
    word.write("b.epd", make_lines(3, 200))
    word.run("--split", 0.25, "--validation", "v.epd", "--output", "t.epd", "a.epd", "b.epd")
    train, held = word.lines("t.epd"), word.lines("v.epd")
    check(len(train) + len(held) == len(word.lines("a.epd")) + len(word.lines("b.epd")),
          "lines are lost between the parts")
    games = {game_of(line) for line in train}, {game_of(line) for line in held}
    check(not games[0] & games[1], "a game stands in both parts")
    check(len(games[0] | games[1]) == 400, "games of two files have become one")
    check(0.15 < len(games[1]) / 400 < 0.35, f"the share is off: {len(games[1])} of 400")
    by_number = {}
    for part, marks in enumerate(games):
        for mark in marks:
            by_number.setdefault(mark.split(".")[1], set()).add(part)
    check(any(len(parts) == 2 for parts in by_number.values()),
          "games with one number always come to the same part")
    word.run("--split", 0.25, "--validation", "v2.epd", "--output", "t2.epd", "--shuffle", 1,
             "--seed", 1, "--jobs", 2, "a.epd", "b.epd")
    check(sorted(word.lines("v2.epd")) == sorted(held), "shuffling moves games between the parts")
    keep, _ = word.run("--marks", "keep", "a.epd", "b.epd")
    check(keep == word.path("a.epd").read_bytes() + word.path("b.epd").read_bytes(),
          "marks are not kept")


def check_guessed_games(word):
    """Lines without marks: a game lasts until the result changes or pieces are back."""
    lines = make_lines(6, 3, per_game=200)
    bare = [re.sub(r' c0 "[^"]*";', "", line) for line in lines]
    full = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - "
    at = next(i for i in range(20, 40) if " w " in bare[i]) + 1
    bare = bare[:at] + [full + re.search(r"gr [\d.]+;", bare[at - 1]).group()] + bare[at:]
    word.write("bare.epd", bare)
    out, _ = word.run("--marks", "all", "bare.epd")
    marked = out.decode().splitlines()
    check([re.sub(r' c0 "[^"]*";', "", line) for line in marked] == bare, "marking changes lines")
    check(all(game_of(line) for line in marked), "a line has got no mark")
    check(game_of(marked[at - 1]) != game_of(marked[at]), "pieces that come back begin no game")
    again, _ = word.run("--marks", "all", "-", data=out)
    check(again == out, "marks are not left alone")
    # A second comment would hide the points of the first.
    points = full + 'gr 1.0; c0 "e4=5";'
    out, _ = word.run("--marks", "all", "-", data=f"{points}\n".encode())
    check(out.decode() == points + "\n", "a line with points has been marked")


def check_balance(word):
    lines = make_lines(7, 120)
    word.write("a.epd", lines)
    out, _ = word.run("--balance", "result", "a.epd")
    counts = {}
    for line in out.decode().splitlines():
        own = float(re.search(r"gr ([\d.]+)", line).group(1))
        white = own if line.split()[1] == "w" else 1.0 - own
        counts[white] = counts.get(white, 0) + 1
    check(len(counts) == 3 and len(set(counts.values())) == 1, f"not balanced: {counts}")
    order = {line: i for i, line in enumerate(lines)}
    places = [order[line] for line in out.decode().splitlines()]
    check(places == sorted(places), "balancing changes the order")
    out, _ = word.run("--sample", 100, "--balance", "both", "a.epd")
    check(len(out.decode().splitlines()) == 100, "the sample has another size")


def check_memory(word):
    """The same output for any memory and any number of threads. 16 megabytes for three stages are
    less than the keys of these positions take, and than the lines that wait to be shuffled."""
    ranks = [re.sub("1+", lambda ones: str(len(ones.group())),
                    "".join("P" if bit == "1" else "1" for bit in format(mask, "08b")))
             for mask in range(256)]
    lines = [f"{king}/8/8/8/8/{ranks[i]}/{ranks[k]}/7K w - - ce {i}; gr 1.0; c0 \"game {i}\";"
             for king in ("k7", "1k6") for i in range(255) for k in range(255)]
    word.write("big.epd", lines + lines[:20000])
    outs = set()
    for extra in ((), ("--memory", 16, "--jobs", 3)):
        out, _ = word.run("--unique", "--sample", 120000, "--shuffle", 9, "big.epd", *extra)
        outs.add(out)
    check(len(outs) == 1, "the output depends on memory or threads")
    _, errors = word.run("--unique", "--shuffle", 9, "--memory", 16, "--scratch", "no/folder",
                         "--output", "none.epd", "big.epd", wanted=1)
    check("scratch file" in errors and not word.path("none.epd").exists(), errors)
    out = outs.pop().decode().splitlines()
    check(len(out) == 120000 and len(set(out)) == 120000, "not unique, or another number")


def check_endless_line(word):
    """Hundreds of megabytes in one line, through a pipe."""
    script = ("import resource, subprocess, sys\n"
              "child = subprocess.Popen(sys.argv[1:], stdin=subprocess.PIPE)\n"
              "for i in range(200): child.stdin.write(b'x' * (1 << 20))\n"
              "child.stdin.close()\n"
              "print(child.wait(), resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)\n")
    done = subprocess.run([sys.executable, "-c", script, word.program, "positions", "-", "--output",
                           "none.epd"], cwd=word.folder, capture_output=True, text=True, timeout=200)
    status, kilobytes = map(int, done.stdout.split()[-2:])
    check(status == 1 and "standard input:1: is longer" in done.stderr, f"not told: {done}")
    # A sanitized program takes more for its own ends.
    check(kilobytes < 120 * 1024 or re.search("san", word.program), f"{kilobytes} KB for one line")
    check(not word.path("none.epd").exists(), "a file without lines has been written")


def check_losses(word):
    lines = make_lines(9, 50)
    word.write("a.epd", lines)
    older = word.write("older.epd", ["what was there"])
    # Nothing to write, a full disk, an output that is an input.
    _, errors = word.run("--output", older, "-", data=b"nonsense\n", wanted=1)
    check("no line for it" in errors and word.lines(older) == ["what was there"], errors)
    _, errors = word.run("--output", "/dev/full", "a.epd", wanted=1)
    check("No space left" in errors, errors)
    with open("/dev/full", "wb") as full:
        done = subprocess.run([word.program, "positions", "a.epd"], cwd=word.folder, stdout=full,
                              stderr=subprocess.PIPE, text=True, timeout=100)
    check(done.returncode == 1 and "No space left" in done.stderr, f"a full disk: {done}")
    _, errors = word.run("--output", "a.epd", "a.epd", wanted=1)
    check("would be replaced" in errors and word.lines("a.epd") == lines, errors)
    # The scratch folder is only needed where memory does not do.
    word.run("--unique", "--scratch", "no/folder", "--check", "a.epd")
    # Files that cannot be read, or not to their end; the others are used.
    whole = "a.epd"
    if ".gz" in subprocess.run([word.program, "--version"], capture_output=True, text=True).stdout:
        packed = gzip.compress(word.path("a.epd").read_bytes())
        whole = word.write("whole.epd.gz", packed)
        word.write("cut.epd.gz", packed[:-20])
        _, errors = word.run("cut.epd.gz", wanted=1)
        check("cut.epd.gz: ends too early" in errors, errors)
    out, errors = word.run("no.epd", ".", whole, wanted=1)
    check(out.decode().splitlines()[0] == lines[0].replace("game ", "game 3."), "nothing was used")
    check("no.epd: cannot be opened" in errors and ".: cannot be opened" in errors, errors)


def check_interruption(word):
    """Ended in the middle: the older file is whole, and nothing else is left in the folder."""
    older = word.write("older.epd", ["what was there"])
    before = sorted(os.listdir(word.folder))
    data = "".join(f"{line}\n" for line in make_lines(10, 200)).encode()
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL):
        child = subprocess.Popen([word.program, "positions", "--shuffle", "1", "--unique",
                                  "--output", older, "--memory", "16", "-"], cwd=word.folder,
                                 stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.PIPE)
        for _ in range(3):
            child.stdin.write(data)
        child.stdin.flush()
        time.sleep(0.2)
        child.send_signal(number)
        # Nothing more comes through the pipe: it must not wait for that.
        check(child.wait(30) == -number, f"signal {number}: {child.returncode}")
        child.communicate()
        check(word.lines(older) == ["what was there"], "the older file has been lost")
        after = sorted(os.listdir(word.folder))
        if number != signal.SIGKILL:
            check(after == before, f"files are left over: {set(after) - set(before)}")
        else:
            check(set(after) - set(before) <= {"older.epd.part"}, f"left over: {after}")


def check_report_and_page(word):
    lines = make_lines(11, 200)
    word.write("a.epd", lines)
    report, _ = word.report("a.epd", "--statistics", "page.html")
    check(report["lines"]["sound"] == len(lines) and report["refusals"] == 0, f"{report}")
    check(0.001 < report["factor"] < 0.05, f"factor {report['factor']}")
    check(sum(report["phases"]) == len(lines), "the phases do not add up")
    page = word.path("page.html").read_text()
    check("Result by score" in page and f"{len(lines):,} positions" in page, "the page is wrong")
    check("src=" not in page and "href=" not in page, "the page needs other files")
    word.run("--check", "--statistics", "picture.svg", "a.epd")
    xml.dom.minidom.parse(str(word.path("picture.svg")))
    report, errors = word.report("a.epd", "no.epd", wanted=1)
    check(report["failed_files"] == 1 and "no.epd" in errors, f"{report}")


def check_usage(word):
    for arguments in (["--split", "0.1", "a.epd"], [], ["--balance", "colour", "a.epd"],
                      ["--check", "--output", "x", "a.epd"], ["--memory", "1", "a.epd"],
                      ["--split", "0.1", "--validation", "x", "--output", "x", "a.epd"],
                      ["--split", "0.1", "--validation", "x", "--output", "./x", "a.epd"],
                      ["--split", "0.1", "--validation", "x", "--report", "x", "a.epd"],
                      ["--split", "0.1", "--validation", "x.part", "--output", "x", "a.epd"],
                      ["--statistics", "x", "--report", "./x", "a.epd"],
                      ["--scratch", "", "a.epd"], ["--ratio", "2", "a.epd"], ["--unik", "a.epd"]):
        _, errors = word.run(*arguments, wanted=2)
        check("option" in errors or "--help" in errors, f"{arguments}: {errors}")
    check(not word.path("x").exists(), "a wrong command line has made a file")
    out, _ = word.run("--help")
    check(b"--shuffle SEED" in out and max(map(len, out.splitlines())) <= 92, "the page is wrong")


def main():
    program, vesk, root = os.path.abspath(sys.argv[1]), Path(sys.argv[2]).absolute(), Path(
        sys.argv[3]).absolute()
    with tempfile.TemporaryDirectory() as folder:
        word = Word(program, folder)
        check_stored(word, root)
        check_readers(word, vesk, vesk.with_name("vesk-tune"))
        for part in (check_unique_and_order, check_split, check_guessed_games, check_balance,
                     check_memory, check_endless_line, check_losses, check_report_and_page,
                     check_usage):
            part(word)
        with tempfile.TemporaryDirectory() as other:
            check_interruption(Word(program, other))
    print("positions: all as it should be")


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(f"check_positions: {failure}")
