#!/usr/bin/env python3
"""What all words of vesk-data have in common, seen from outside: reports that would take the place
of something else, devices and pipes as outputs, standard files that are closed, limits of the
system, and a run that is broken off.

    check_frame.py VESK_DATA VESK ROOT

Prints what is wrong; status 1 if anything is.
"""

import gzip
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time

from checks import expect, finish_checks


def run(*words, **more):
    more.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run([vesk_data, *map(str, words)], stdout=more.pop("stdout", subprocess.PIPE),
                          stderr=subprocess.PIPE, text=True, timeout=60, **more)


def shell(command, *words):
    return subprocess.run(["/bin/sh", "-c", f'"$0" {command}', vesk_data, *map(str, words)],
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          text=True, timeout=60, check=False)


def check_places(folder, book):
    """Refused before anything is lost."""
    copy = folder / "copy.bin"
    copy.write_bytes(book.read_bytes())
    (folder / "link.bin").symlink_to(copy)
    os.link(copy, folder / "second.bin")
    out = folder / "out.txt"
    out.write_text("old")
    for reason, words in (
            ("is an input", ("check", copy, "--report", copy)),
            ("is an input", ("check", copy, "--report", folder / "link.bin")),
            ("is an input", ("check", copy, "--report", folder / "second.bin")),
            ("is where the output goes", ("dump", copy, "--output", out, "--report", out)),
            ("is where the output goes", ("dump", copy, "--output", folder / "new.txt", "--report",
                                          f"{folder}/../{folder.name}/new.txt")),
            ("is a folder", ("check", copy, "--report", folder)),
            ("not there", ("check", copy, "--report", folder / "nowhere" / "report")),
            ("needs a value", ("dump", copy, "--output", "")),
            ("needs a value", ("dump", copy, "--report=")),
            ("needs a value", ("dump", copy, "--start", ""))):
        result = run("book", *words)
        expect(result.returncode == 2 and reason in result.stderr, f"{reason}: {result.stderr}")
    expect(copy.read_bytes() == book.read_bytes() and out.read_text() == "old", "something is lost")
    expect(not (folder / "new.txt").exists(), "something is made")


def check_devices(folder, book):
    dump = "book dump --max-ply 1"
    plain = run(*dump.split(), book)
    beside = folder / "appended.txt"
    beside.write_text("kept\n")
    result = shell(dump + ' "$1" --output /dev/stdout --report /dev/stderr >>"$2"', book, beside)
    expect(result.returncode == 0 and result.stderr == plain.stderr, f"names of what is open: {result}")
    expect(beside.read_text() == "kept\n" + plain.stdout, "what was there is gone")
    expect(os.path.islink("/dev/stdout"), "a link of the system is gone")
    result = run("book", "check", book, "--report", "-", "--max-messages", "0")
    expect("positions" in result.stdout and not (folder / "-").exists(), "- is no standard output")
    result = run("book", "check", book, "--report", "/dev/full")
    expect(result.returncode == 1 and "No space left" in result.stderr, "a full device takes a report")
    pipe = folder / "pipe"
    os.mkfifo(pipe)
    with subprocess.Popen(["cat", str(pipe)], stdout=subprocess.PIPE) as reader:
        result = run("book", "check", book, "--json", "--report", pipe)
        expect(reader.communicate(timeout=60)[0].startswith(b'{"word"'), "a pipe gets no report")


def check_closed(folder, book):
    plain = run("book", "dump", "--max-ply", "1", book)
    out = folder / "closed.txt"
    result = shell('book dump --max-ply 1 "$1" --output "$2" <&- >&- 2>&-', book, out)
    expect(result.returncode == 1 and out.read_text() == plain.stdout,
           "without standard files others take their place")
    for words in "--help", "--version", "book check --help", "help book":
        for target in ">&-", ">/dev/full":
            result = shell(f"{words} {target}")
            expect(result.returncode == 1 and "cannot be written" in result.stderr,
                   f"{words} {target}: {result}")
    result = shell("book check - <&-")
    expect(result.returncode == 1 and "Bad file descriptor" in result.stderr, "a closed input is empty")


def check_broken_off(folder, book):
    """The older file is still there, and nothing else, also if the signal comes at once."""
    out = folder / "broken.bin.gz"
    for number in 10 * (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT):
        old = gzip.compress(b"old")
        out.write_bytes(old)
        part = pathlib.Path(f"{out}.part")
        with subprocess.Popen([vesk_data, "book", "merge", str(book), "-", "--output", str(out)],
                              stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as process:
            end = time.monotonic() + 30
            while not part.exists() and time.monotonic() < end:
                pass
            expect(part.exists(), "no unfinished file is seen")
            process.send_signal(number)
            expect(process.wait(60) == -number, f"signal {number} ends it otherwise")
        expect(out.read_bytes() == old and not part.exists(),
               f"signal {number} leaves {sorted(p.name for p in folder.glob('broken*'))}")


def check_ended(folder, tables):
    """Words that are ended in the middle of their work end at once, of the signal."""
    os.mkfifo(folder / "endless.epd")
    folders = [folder / f"tables{i}" for i in range(400)]  # of seconds of work
    for link in folders:
        link.symlink_to(tables)
    for words in (("explain", "-"), ("explain", folder / "endless.epd"), ("tables", *folders)):
        for number in signal.SIGINT, signal.SIGTERM:
            with subprocess.Popen([vesk_data, *map(str, words)], stdin=subprocess.PIPE,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
                time.sleep(0.2)
                process.send_signal(number)
                status = process.wait(60)
            expect(status == -number, f"{words[0]}: signal {number} gives status {status}")


def check_jobs(folder, data):
    """Reports and messages of several files are the same for any number of threads, also what is
    told of a file before it is read and what --max-messages leaves out."""
    game = (data / "pgn" / "games.pgn").read_text()
    first, second = folder / "first.pgn", folder / "second.pgn"
    first.write_text((game + "\n\n[Event \"x\"]\n\n1. e4 e5 2. Ke3 1-0\n\n") * 30)
    # Scores that change their sign with the mover, which [%eval] does not.
    moves = "1. e4 {[%eval 0.31]} e5 {[%eval -0.29]} 2. Nf3 {[%eval 0.33]} Nc6 {[%eval -0.3]} " \
            "3. Bb5 {[%eval 0.35]} a6 {[%eval -0.31]} 4. Ba4 {[%eval 0.3]} Nf6 {[%eval -0.32]} 1-0"
    second.write_text(f'[Event "x"]\n\n{moves}\n\n' * 400)
    lines, more = folder / "first.epd", folder / "second.epd"
    lines.write_text(("4k3/8/8/8/8/8/4P3/4K3 w - - gr 1;\n" * 50 + "broken gr 1;\n") * 200)
    more.write_text("4k3/8/8/8/8/8/4P3/4K3 w - - gr 2;\n" * 5)
    for words in (("games", first, second, folder / "missing", second),
                  ("positions", lines, folder / "missing", more, lines)):
        told = []
        for jobs in 1, 2, 4:
            report = folder / "report.json"
            result = run(*words, "--jobs", jobs, "--json", "--report", report, "--max-messages", 20)
            told.append((result.stdout, result.stderr, report.read_text()))
        expect("missing: " in told[0][1], f"{words[0]}: a missing file is not told of")
        expect("only counted" in told[0][1], f"{words[0]}: there are too few messages")
        for other in told[1:]:
            expect(other == told[0], f"{words[0]}: other messages or another report with threads")


def become_nobody():
    os.setgroups([])
    os.setgid(65534)
    os.setuid(65534)


def can_run(shown, as_user):
    try:
        return run("explain", shown, **as_user).returncode == 0
    except (OSError, subprocess.SubprocessError):
        return False


def check_unreadable(folder, book):
    """A file that may not be read is named with the reason, the others are gone on with."""
    shown = folder / "shown.epd"
    shown.write_text("4k3/8/8/8/8/8/4P3/4K3 w - - 0 1\n")
    hidden = folder / "hidden"
    hidden.write_text(shown.read_text())
    hidden.chmod(0)
    folder.chmod(0o755)
    as_user = {"preexec_fn": become_nobody} if os.geteuid() == 0 else {}
    if not can_run(shown, as_user):
        print("left out: files that may not be read; the program is hidden from other users itself")
        return
    for words in (("games", hidden), ("positions", "--check", hidden), ("book", "check", hidden),
                  ("explain", hidden), ("tables", hidden), ("explain", "--weights", hidden, shown),
                  ("games", hidden / "below")):
        result = run(*words, **as_user)
        denied = "Permission denied" in result.stderr or "Not a directory" in result.stderr
        expect(result.returncode in (1, 2) and str(hidden) in result.stderr and denied,
               f"{words[0]}: a hidden file: {result}")
    for words in (("explain", hidden, shown), ("explain", shown, folder / "nowhere"),
                  ("explain", "--form", "csv", folder, shown)):
        result = run(*words, **as_user)
        expect(result.returncode == 1 and "4P3" in result.stdout, f"one fails of several: {result}")
    result = run("book", "merge", book, hidden, "--output", folder / "merged.bin", **as_user)
    expect(result.returncode == 1 and not (folder / "merged.bin").exists(),
           f"half of the books are merged: {result}")
    for words in (("explain", shown), ("explain", "--form", "json", shown), ("book", "dump", book)):
        result = run(*words, "--output", "/dev/full")
        expect(result.returncode == 1 and "No space left" in result.stderr,
               f"a full device takes what {words[0]} writes: {result}")


def limit(kind, most):
    return lambda: resource.setrlimit(kind, (most, most))


def check_limits(folder, book):
    """What the system denies is told, and the older file is still there, and nothing else."""
    out = folder / "limited.bin"
    out.write_bytes(b"old")
    merge = ("book", "merge", book, book, "--output", out)
    limits = [("File too large", merge, limit(resource.RLIMIT_FSIZE, 512))]
    # A sanitized program takes more addresses than any limit leaves.
    program = pathlib.Path(vesk_data).read_bytes()
    if not re.search(rb"__[at]san_init", program):
        games = folder / "endless.pgn"
        games.write_bytes(b"x" * 4096)
        limits += [("not enough memory", ("games", games, "--output", out, "--jobs", "256"),
                    limit(resource.RLIMIT_AS, 400 << 20))]
    before = sorted(os.listdir(folder))
    for reason, words, preexec in limits:
        result = run(*words, preexec_fn=preexec)
        expect(result.returncode == 1 and reason in result.stderr, f"{reason}: {result}")
        expect(out.read_bytes() == b"old", f"{reason}: the older file is gone")
        expect(sorted(os.listdir(folder)) == before, f"{reason}: something is left over")


def main():
    global vesk_data
    vesk_data, _, root = sys.argv[1:]
    book = pathlib.Path(root).resolve() / "tests" / "data" / "small.bin"
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name).resolve()
        check_places(folder, book)
        check_devices(folder, book)
        check_closed(folder, book)
        check_limits(folder, book)
        check_jobs(folder, book.parent)
        check_unreadable(folder, book)
        check_ended(folder, book.parent / "syzygy")
        if ".gz" in run("--version").stdout:
            check_broken_off(folder, book)
    return finish_checks()


sys.exit(main())
