#!/usr/bin/env python3
"""The words for opening books as a user says them: books shuffled, packed, cut and through a pipe,
outputs that fail, a file that is no book and much larger than the memory; what `play` shows beside
the engine's console; and the counts and merges of the Polyglot tool.

    check_book.py VESK_DATA VESK ROOT

Prints what is wrong; status 1 if anything is, 77 where that tool is not installed.
"""

import gzip
import json
import os
import pathlib
import random
import re
import resource
import shutil
import struct
import subprocess
import sys
import tempfile

from checks import expect, finish_checks

SKIPPED = 77
MEMORY = 256 << 20  # bytes of address space for a file that is no book
NO_BOOK = 48 << 20  # bytes of it


def run(*words, stdin=None, **more):
    return subprocess.run([vesk_data, "book", *map(str, words)], input=stdin,
                          stdin=None if stdin is not None else subprocess.DEVNULL,
                          stdout=more.pop("stdout", subprocess.PIPE), stderr=subprocess.PIPE,
                          timeout=120, **more)


def report(*words, **more):
    result = run(*words, "--json", **more)
    return json.loads(result.stdout), result


def records(data):
    return [data[i:i + 16] for i in range(0, len(data) - 15, 16)]


def by_position(data):
    """The moves with their weights and learning data, in no order, by key."""
    found = {}
    for record in records(data):
        key, rest = struct.unpack(">QQ", record)
        found.setdefault(key, set()).add(rest)
    return found


def is_sorted(data):
    fields = [struct.unpack(">QHHI", record) for record in records(data)]
    return all((a[0], -a[2]) <= (b[0], -b[2]) for a, b in zip(fields, fields[1:]))


# ---- Ways in and out

def check_inputs(folder, book, data):
    plain, result = report("check", book, "--max-messages", "0")
    expect(result.returncode == 0, "a sound book is found faulty")
    expect(plain["books"][0]["entries"] == len(data) // 16, "the entries are not counted")
    shuffled = records(data)
    random.Random(5).shuffle(shuffled)
    mixed = folder / "mixed.bin"
    mixed.write_bytes(b"".join(shuffled))
    found, result = report("check", mixed)
    expect(result.returncode == 1, "a shuffled book passes")
    told = re.findall(rb"entry (\d+): lower key", result.stderr)
    falls = [i + 1 for i in range(1, len(shuffled)) if shuffled[i][:8] < shuffled[i - 1][:8]]
    expect([int(number) for number in told] == falls[:len(told)] and len(told) > 5,
           "entries out of order are told by other numbers")
    # At random one position may come behind itself with a higher weight.
    expect(found["books"][0]["entries_out_of_order"] >= len(falls), "not all of them are counted")
    for name, value in plain["books"][0].items():
        if name not in ("file", "entries_out_of_order"):
            expect(found["books"][0][name] == value, f"shuffled, {name} is another")

    again = run("prune", mixed, "--output", "-")
    expect(by_position(again.stdout) == by_position(data), "sorting has changed the book")
    expect(is_sorted(again.stdout), "what is sorted is not in order")
    expect(run("prune", book).stdout == data, "a sound book does not come out as it was")

    packed = folder / "book.bin.gz"
    packed.write_bytes(gzip.compress(data))
    through_pipe, _ = report("check", "-", stdin=data)
    from_packed, result = report("check", packed)
    if b"cannot read" not in result.stderr:
        for other in through_pipe, from_packed:
            other["books"][0]["file"] = plain["books"][0]["file"]
            expect(other["books"] == plain["books"], "through a pipe or packed it is another book")
        out = folder / "out.bin.gz"
        run("merge", packed, packed, "--rule", "first", "--output", out)
        expect(gzip.decompress(out.read_bytes()) == data, "a packed output is another book")
        packed.write_bytes(gzip.compress(data)[:-9])
        result = run("merge", packed, book, "--output", folder / "none.bin")
        expect(result.returncode == 1 and b"ends too early" in result.stderr
               and not (folder / "none.bin").exists(), "an unfinished download is merged")


def check_failures(folder, book, data):
    for words in ("dump", book), ("prune", book), ("play", book), ("diff", book, "-"):
        empty = b"" if "-" in words else None
        with open("/dev/full", "wb") as full:
            result = run(*words, stdout=full, stdin=empty)
        expect(result.returncode == 1 and b"No space left" in result.stderr,
               f"a full disk is not noticed: {words[0]}")
        result = run(*words, "--output", "/dev/full", stdin=empty)
        expect(result.returncode == 1 and b"No space left" in result.stderr,
               f"a full device is not noticed: {words[0]}")
    result = subprocess.run(["/bin/sh", "-c", '"$0" book dump "$1" >&-', vesk_data, str(book)],
                            stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False)
    expect(result.returncode == 1, "a closed output is not noticed")
    environment = dict(os.environ, TMPDIR=str(folder / "nowhere"))
    result = run("check", "-", stdin=data, env=environment)
    expect(result.returncode == 1 and b"nowhere: cannot hold a file" in result.stderr,
           "a missing folder for the time of the run is not named")
    result = run("check", folder / "missing.bin", book)
    expect(result.returncode == 1 and b"missing.bin: cannot be opened: No such file" in result.stderr,
           "a missing book is not named")
    expect(b"positions on the book's own lines" in result.stdout, "the next book is not read")
    old, nothing = folder / "old.bin", folder / "nothing.bin"
    old.write_bytes(data)
    nothing.write_bytes(b"")
    for words in ("prune", book, "--min-weight", "65535"), ("prune", nothing), \
            ("merge", nothing, nothing):
        result = run(*words, "--output", old)
        expect(result.returncode == 1 and b"no entry for it" in result.stderr
               and old.read_bytes() == data, f"{words[0]}: an empty book replaced another")
    left = [path.name for path in folder.iterdir() if path.suffix == ".part"]
    expect(not left, f"unfinished files are left: {left}")


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))


def check_memory():
    """A line as long as the file, all of one byte: one position with an entry after another. A
    sanitized program cannot be held to that memory, and gets an eighth of the file."""
    megabytes = NO_BOOK >> (23 if sanitized else 20)
    block = b"e" * (1 << 20)
    for words in ("check",), ("prune", "--output", "/dev/null"):
        with subprocess.Popen([vesk_data, "book", *words, "--max-messages", "1", "-"],
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              preexec_fn=None if sanitized else limit_memory) as process:
            for _ in range(megabytes):
                process.stdin.write(block)
            process.stdin.close()
            said = process.stdout.read()
            process.stderr.read()
            expect(process.wait(120) in (0, 1), f"no book: {words[0]} ends otherwise")
            expect(words[0] == "prune" or str((megabytes << 20) // 16).encode() in said,
                   "not all entries of what is no book are counted")


# ---- Beside the engine

def check_play(folder, book):
    """The console's word shows the weights and the shares of the choice."""
    for variety in 0, 25, 70, 100:
        config = folder / "book.cfg"
        config.write_text(f"OwnBook = true\nOwnBook_File = {book}\nOwnBook_Variety = {variety}\n")
        said = subprocess.run([vesk, "-c", "-cfg", str(config)], input="book\ne4\nbook\nquit\n",
                              cwd=folder, stdout=subprocess.PIPE, text=True, timeout=60,
                              check=False).stdout
        rows = re.findall(r"^  (\w{4})  cnt= *(\d+), weight= *[\d.]+% -> *([\d.]+)%", said, re.M)
        shown = []
        for line in [], ["e4"]:
            found, _ = report("play", book, *line, "--variety", variety)
            shown += [(choice["squares"], str(choice["weight"]), choice["draws_of_1000"] / 10)
                      for choice in found["choices"] if choice["weight"] > 0]
        expect(len(shown) == len(rows) > 6, f"variety {variety}: other choices than the engine's")
        for (squares, weight, chance), row in zip(shown, rows):
            expect((squares, weight) == row[:2], f"variety {variety}: {squares} is {row}")
            expect(abs(chance - float(row[2])) < 0.2, f"variety {variety}: {squares} {chance} {row}")


# ---- Beside the Polyglot tool

def info_of(book, folder):
    said = subprocess.run([polyglot, "info-book", "-bin", str(book)], cwd=folder, timeout=60,
                          stdout=subprocess.PIPE, text=True, check=False).stdout
    return [int(number) for number in re.findall(r": *(\d+)", said)]


def dumped_by_polyglot(book, side, folder):
    """The choices of a side in polyglot's dump: for each move its share, in whole percents; it
    leaves out those below half of one. Lines stand each from the start:
    7: 1. e4 c5{40%} 2. Nf3 d6{55%} {trans: line=3, ply=4}"""
    target = folder / "dump.txt"
    subprocess.run([polyglot, "dump-book", "-bin", str(book), "-color", side, "-out", str(target)],
                   cwd=folder, timeout=60, stdout=subprocess.DEVNULL, check=False)
    choices = set()
    for line in re.findall(r"^\d+: (.*)$", target.read_text(), re.MULTILINE):
        way = ()
        for move in re.sub(r"\{trans.*", "", line).split():
            if move.endswith("."):
                continue
            way += (re.sub(r"\{.*", "", move),)
            if share := re.search(r"\{(\d+)%\}", move):
                choices.add((way, int(share[1])))
    return sorted((way[-1].rstrip("+#"), percent) for way, percent in choices)


def dumped(book, side):
    lines = run("dump", book, "--for", side).stdout.decode().splitlines()
    found = (re.match(r" *\d+\.+ (\S+)  ([0-9.]+)% \(", line) for line in lines)
    choices = ((match[1].rstrip("+#"), round(float(match[2]))) for match in found if match)
    return sorted(choice for choice in choices if choice[1] > 0)


def check_against_polyglot(folder, book):
    light = folder / "light.bin"  # with positions that nothing leads to any longer
    run("prune", book, "--min-share", "20", "--output", light)
    for path in book, light:
        _, _, white, black, isolated = info_of(path, folder)
        found = report("check", path, "--max-messages", "0")[0]["books"][0]
        expect(found["positions_that_the_start_does_not_lead_to"] == isolated,
               f"{path.name}: {isolated} positions are isolated")
        expect(found["positions"] - isolated == white + black, f"{path.name}: other positions")
        for side, count in ("white", white), ("black", black):
            tree = run("dump", path, "--for", side, "--json").stderr
            expect(json.loads(tree)["positions"]["in the tree"] == count,
                   f"{path.name}: {side} has {count} positions")
            theirs = dumped_by_polyglot(path, side, folder)
            expect(len(theirs) > count, f"{path.name}: polyglot shows no choices of {side}")
            expect(dumped(path, side) == theirs, f"{path.name}: {side} has other choices")
        if path == light:
            expect(isolated > 100, "no position is isolated")
            clean = folder / "clean.bin"
            run("prune", path, "--drop-unreachable", "--output", clean)
            expect(info_of(clean, folder)[2:] == [white, black, 0], "what is left is another book")

    theirs, ours = folder / "theirs.bin", folder / "ours.bin"
    subprocess.run([polyglot, "merge-book", "-in1", str(book), "-in2", str(light), "-out",
                    str(theirs)], cwd=folder, timeout=60, stdout=subprocess.DEVNULL, check=False)
    run("merge", book, light, "--output", ours)
    expect(by_position(ours.read_bytes()) == by_position(theirs.read_bytes()),
           "a merged book is another")


def main():
    global vesk_data, vesk, polyglot, sanitized
    vesk_data, vesk, root = sys.argv[1:]
    sanitized = re.search(rb"__[at]san_init", pathlib.Path(vesk_data).read_bytes())
    polyglot = shutil.which("polyglot") or shutil.which("polyglot", path="/usr/games")
    book = pathlib.Path(root).resolve() / "tests" / "data" / "small.bin"
    data = book.read_bytes()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        check_inputs(folder, book, data)
        check_failures(folder, book, data)
        check_memory()
        check_play(folder, book)
        if polyglot:
            check_against_polyglot(folder, book)
    status = finish_checks()
    if status == 0 and not polyglot:
        print("compared with no other tool: polyglot is not installed")
        return SKIPPED
    return status


sys.exit(main())
