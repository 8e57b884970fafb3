#!/usr/bin/env python3
"""The word "tables" as a user says it: sound tables pass, and of files damaged in all ways none does;
what is missing is named; the report is the same for any number of threads; odd files, a full disk
and a file that others cut short meanwhile end no run.

    check_tables.py VESK_DATA VESK ROOT [--mutations N] [--seed N] [--tables FOLDER]

Prints what is wrong, and by which check each kind of damage was found first; status 1 if anything
is wrong.
"""

import argparse
import collections
import json
import os
import pathlib
import random
import resource
import shutil
import subprocess
import sys
import tempfile
import threading

from checks import expect, finish_checks

PAGE = 4096
BATCH = 200         # damaged files that are checked by one run
MEMORY = 300 << 20  # bytes that a run may hold, whatever the files' length


def run(*words, **more):
    return subprocess.run([program, "tables", *map(str, words)], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=500, **more)


def report_of(*words, **more):
    """The JSON of a run, and the run."""
    result = run("--json", *words, **more)
    return json.loads(result.stdout), result


# ---- Damage. Each takes the bytes, a source of chances and the other files by name.

def zero_page(data, dice, _):
    """A page of zeros, as a download leaves it; of a short file a sixteenth."""
    page = PAGE if len(data) >= 4 * PAGE else max(1, len(data) // 16)
    at = dice.randrange((len(data) + page - 1) // page) * page
    end = min(len(data), at + page)
    return data[:at] + bytes(end - at) + data[end:]


def zero_rest(data, dice, _):
    """The right length, but nothing from some page on: room made before the download began."""
    at = dice.randrange(len(data)) // 16 * 16
    return data[:at] + bytes(len(data) - at)


def cut(data, dice, _):
    return data[:dice.randrange(len(data))]


def cut_evenly(data, dice, _):
    """Cut to a length that a table may have."""
    return data[:dice.randrange(len(data) // 64) * 64 + 16]


def flip_bit(data, dice, _):
    at = dice.randrange(len(data))
    return data[:at] + bytes([data[at] ^ 1 << dice.randrange(8)]) + data[at + 1:]


def flip_byte(data, dice, _):
    at = dice.randrange(len(data))
    return data[:at] + bytes([data[at] ^ dice.randrange(1, 256)]) + data[at + 1:]


def change_front(data, dice, _):
    """A byte of what leads somewhere."""
    at = dice.randrange(min(len(data), 200))
    return data[:at] + bytes([dice.choice((0, 1, 2, 4, 16, 127, 128, 255))]) + data[at + 1:]


def overwrite(data, dice, _):
    at = dice.randrange(len(data))
    end = min(len(data), at + dice.choice((2, 4, 32, 200, 1000)))
    return data[:at] + dice.randbytes(end - at) + data[end:]


def take_out(data, dice, _):
    at = dice.randrange(len(data))
    return data[:at] + data[at + dice.choice((1, 2, 16, 64, 512)):]


def put_in(data, dice, _):
    at = dice.randrange(len(data) + 1)
    return data[:at] + dice.randbytes(dice.choice((1, 2, 16, 64, 512))) + data[at:]


def move_block(data, dice, _):
    """Two stretches of the same length change places."""
    size = dice.choice((16, 32, 64, 512))
    if len(data) < 4 * size:
        size = len(data) // 4
    first = dice.randrange(len(data) - 2 * size)
    second = dice.randrange(first + size, len(data) - size + 1)
    return data[:first] + data[second:second + size] + data[first + size:second] \
        + data[first:first + size] + data[second + size:]


def swap_file(_, dice, others):
    """Another file under this name, of either kind."""
    return others[dice.choice(sorted(others))]


def swap_front(data, dice, others):
    """The header of another file in front of this one's blocks."""
    other = others[dice.choice(sorted(others))]
    at = dice.randrange(1, min(len(data), len(other), 200))
    return other[:at] + data[at:]


def swap_checksum(data, dice, others):
    return data[:-16] + others[dice.choice(sorted(others))][-16:]


def web_page(_, dice, __):
    return b"<!DOCTYPE html><title>404 Not Found</title>" + b" " * dice.randrange(300)


DAMAGES = (zero_page, zero_rest, cut, cut_evenly, flip_bit, flip_byte, change_front, overwrite,
           take_out, put_in, move_block, swap_file, swap_front, swap_checksum, web_page)


def damaged(name, tables, dice):
    """A way of damage and what it makes of a file: other bytes than it had."""
    way = dice.choice(DAMAGES)
    while True:
        changed = way(tables[name], dice, tables)
        if changed != tables[name]:
            return way.__name__, changed
        way = dice.choice(DAMAGES)


def check_mutations(tables, count, seed, folder):
    """Checks so many damaged files: none may pass. Returns by kind of damage how many were found
    by which check first."""
    found = collections.defaultdict(collections.Counter)
    dice = random.Random(f"tables {seed}")
    names = sorted(tables)
    for begin in range(0, count, BATCH):
        batch = folder / "batch"
        ways = {}
        for number in range(begin, min(count, begin + BATCH)):
            name = dice.choice(names)
            place = batch / str(number)
            place.mkdir(parents=True)
            way, changed = damaged(name, tables, dice)
            (place / name).write_bytes(changed)
            ways[str(place / name)] = way
        report, result = report_of("--jobs", 2, "--max-messages", 0, *ways)
        expect(result.returncode == 1, f"status {result.returncode} for damaged files")
        expect(len(report["tables"]) == len(ways), "not every file is in the report")
        for table in report["tables"]:
            way = ways[table["file"]]
            reasons = [fault["reason"] for fault in table["faults"]]
            expect(not table["sound"] and reasons, f"{table['file']}, {way}: passed as sound")
            found[way][reasons[0] if reasons else "NONE"] += 1
            found[way]["(checksum differs)"] += table["checksum"] == "differs"
        shutil.rmtree(batch)
    return found


def print_found(found):
    for way, reasons in sorted(found.items()):
        told = sum(count for reason, count in reasons.items() if not reason.startswith("("))
        text = ", ".join(f"{reason} {count}" for reason, count in reasons.most_common())
        print(f"{way}: {told}; {text}")


# ---- Sound tables

def check_sound(real):
    report, result = report_of(real)
    expect(all(table["sound"] and table["checksum"] == "agrees" and table["decoded"]
               for table in report["tables"]), f"{real}: not all sound")
    expect(report["files"]["all"] == report["files"]["sound"] == len(list(real.iterdir())),
           "files that are counted")
    expect(report["3 pieces"] == {
        "results, sound": 5, "results, bytes": 8464, "results, missing": 0,
        "distances, sound": 5, "distances, bytes": 17360, "distances, missing": 0},
        f"3 pieces: {report.get('3 pieces')}")
    for jobs in 1, 3:
        again = run("--json", "--jobs", jobs, real)
        expect((again.stdout, again.stderr) == (result.stdout, result.stderr),
               f"another report with {jobs} threads")
    quick, _ = report_of("--quick", real)
    expect(quick["files"]["all blocks decoded"] == 0, "--quick decodes")


def check_sets(real, folder):
    """Several folders, files in two of them, missing ones, and one of three pieces alone."""
    three = folder / "three"
    more = folder / "more"
    three.mkdir()
    more.mkdir()
    for path in real.iterdir():
        if len(path.stem) == 4:
            shutil.copy(path, three)
    for name in "KQvKR.rtbw", "KQvKR.rtbz", "KQvK.rtbw":
        shutil.copy(real / name, more)
    result = run(three)
    expect(result.returncode == 0 and not result.stderr, f"three pieces: {result.stderr}")
    report, result = report_of(more)
    expect(result.returncode == 1 and b"KQvKR.rtbw: tables it leads to are missing: KRvK.rtbw\n"
           in result.stderr, f"missing: {result.stderr}")
    report, result = report_of(f"{three}::{more}:")
    expect(result.returncode == 0 and not result.stderr, f"two folders: {result.stderr}")
    shadowed = [table["file"] for table in report["tables"] if table["shadowed"]]
    expect(shadowed == [f"{more}/KQvK.rtbw"], f"shadowed: {shadowed}")
    expect(report["4 pieces"]["results, missing"] == 29, "missing of 4 pieces")
    report, result = report_of(three, more)
    expect(result.returncode == 1 and f"3 pieces in {three}" in report, "two paths")
    (three / "KQvK.rtbw").rename(three / "KQvK.rtbw.part")
    result = run(three)
    expect(result.returncode == 1 and b"KQvK.rtbz: no results beside the distances" in
           result.stderr, f"alone: {result.stderr}")


# ---- What is no sound file

def check_odd_files(real, folder):
    odd = folder / "odd"
    odd.mkdir()
    (odd / "KQvK.rtbw").mkdir()
    os.mkfifo(odd / "KRvK.rtbw")
    (odd / "KBvK.rtbw").symlink_to("nowhere")
    (odd / "KNvK.rtbw").write_bytes(b"")
    shutil.copy(real / "KPvK.rtbw", odd / "kpvk.RTBW")
    shutil.copy(real / "KPvK.rtbw", os.fsencode(odd) + b"/K\xff\x1bPvK.rtbw")
    with open(odd / "KQRBvKNP.rtbw", "wb") as file:  # seven pieces, far larger than what a run may hold
        file.truncate(600 << 20)
    report, result = report_of(odd)
    faults = {table["file"].rpartition("/")[2]: [fault["reason"] for fault in table["faults"]]
              for table in report["tables"]}
    expect(result.returncode == 1 and report["failed_files"] == 3, f"odd files: {result.stderr}")
    expect(faults == {
        "KQvK.rtbw": [], "KRvK.rtbw": [], "KBvK.rtbw": [],
        "KNvK.rtbw": ["cut short or too long"], "kpvk.RTBW": ["name of no table"],
        "K\ufffd\x1bPvK.rtbw": ["name of no table"],
        "KQRBvKNP.rtbw": ["no table inside"]}, f"odd files: {faults}")
    expect(b"\x1b" not in result.stderr, "a name commands the terminal")
    (odd / "empty").mkdir()
    result = run(odd / "empty")
    expect(result.returncode == 1 and b"empty: holds no table" in result.stderr,
           f"a folder without tables passes as sound: {result}")
    with open(odd / "KQRBvKNP.rtbw", "r+b") as file:
        file.truncate((600 << 20) + 16)
    result = run(odd / "KQRBvKNP.rtbw")
    expect(result.returncode == 1, "a large file of zeros")
    # The most that any run has held so far. A sanitized program takes more for its own ends.
    held = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    expect(held << 10 < MEMORY or "san" in program, f"{held} KiB held for a large file")


def check_changing_file(real, folder):
    """A file that is cut and written again all the time: whatever is found, the run ends."""
    path = folder / "KRvKP.rtbw"
    whole = (real / path.name).read_bytes()
    path.write_bytes(whole)
    done = threading.Event()

    def change():
        while not done.is_set():
            os.truncate(path, 100)
            path.write_bytes(whole)

    writer = threading.Thread(target=change)
    writer.start()
    for _ in range(20):
        result = run(path)
        expect(result.returncode in (0, 1), f"status {result.returncode} for a changing file")
    done.set()
    writer.join()


def check_words(real):
    for words in (), ("-",), ("--sample",), ("--sample", "-1", real), ("--output", "x", real), \
            ("--fast", real):
        expect(run(*words).returncode == 2, f"status of {words}")
    expect(run("nowhere").returncode == 1, "a folder that is not there")
    help_page = run("--help")
    expect(help_page.returncode == 0 and b"--quick" in help_page.stdout, "--help")
    with open("/dev/full", "wb") as full:
        result = subprocess.run([program, "tables", str(real / "KQvK.rtbw")], stdout=full,
                                stderr=subprocess.PIPE, timeout=100)
    expect(result.returncode == 1 and b"cannot be written" in result.stderr, "a full disk")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("engine")
    parser.add_argument("root", type=pathlib.Path)
    parser.add_argument("--mutations", type=int, default=600)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--tables", type=pathlib.Path)
    arguments = parser.parse_args()
    global program
    program = arguments.program
    real = (arguments.root / "tests/data/syzygy").resolve()
    tables = {path.name: path.read_bytes() for path in (arguments.tables or real).iterdir()}
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(scratch)
        check_sound(real)
        check_sets(real, folder)
        check_odd_files(real, folder)
        check_changing_file(real, folder)
        check_words(real)
        found = check_mutations(tables, arguments.mutations, arguments.seed, folder)
    print_found(found)
    return finish_checks()


if __name__ == "__main__":
    sys.exit(main())
