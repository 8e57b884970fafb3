#!/usr/bin/env python3
"""Checks that stored results which differ from the program's are found and written anew.

usage: check_refreshing.py ROOT VESK PRINT_EVALS

Works on a copy of a few cases of each kind, where one value in some files is changed.
scripts/refresh_results -n must report each of them and write nothing; without -n it must make the
same bytes of them again, and leave all other files as they are.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PARTS = (
    "bench/signature.txt", "scripts/check_signature", "scripts/refresh_results", "tests/exactness",
    "tests/uci/run_transcript.py", "tests/uci/mend_transcript.py", "tests/uci/mkbook.uci",
    "tests/uci/scan_pgn.uci", "tests/data/search.tsv", "tests/data/eval.tsv",
    "tests/data/eval-options.tsv", "tests/data/weights-options.tsv",
    "tests/data/default-weights.tsv", "tests/data/eval-trace.txt", "tests/data/pgn/book-basic*",
    "tests/data/pgn/book-limit*", "tests/data/scan/eval.*", "tests/data/scan/rook-ending.*")
SEARCHES = 4        # so many rows of the stored searches are kept
# The value that is changed in a file, as the first group of a pattern, and what is said of it.
CHANGED = {
    "tests/data/search.tsv": (rb"\n\w+\t(?:[^\t]*\t){7}(\d+)\t", " rows, 1 differ\n"),
    "tests/data/eval.tsv": (rb"\t(-?\d+)\t\d+\t\d+\t1\t", "eval.tsv: differs\n"),
    "tests/data/weights-options.tsv": (rb"mtl_queen\t(\d+)\t", "weights-options.tsv: differs\n"),
    "tests/data/default-weights.tsv": (rb"mtl_rook\t(\d+)\t", "default-weights.tsv: differs\n"),
    "tests/data/eval-trace.txt": (rb"eval= (-?\d+)", "eval-trace.txt: differs\n"),
    "tests/data/pgn/book-basic.bin": (rb"(?s)^.{10}(..)", "book-basic.bin: differs\n"),
    "tests/data/pgn/book-limit.out": (rb"ngames= (\d+)", "book-limit.out: differs\n"),
    "tests/data/scan/eval.form2.out": (rb"games= (\d+)", "eval.form2.out: differs\n"),
    "tests/data/scan/rook-ending.form4.epd": (rb"ce (-?\d+)", "rook-ending.form4.epd: differs\n"),
    "tests/uci/mkbook.uci": (rb"nmoves= (\d+)", "FAILED"),
    "bench/signature.txt": (rb"(\d+)", "signature differs: "),
}


def copy_parts(root, copy):
    for part in PARTS:
        for path in sorted(root.glob(part)):
            goal = copy / path.relative_to(root)
            goal.parent.mkdir(parents=True, exist_ok=True)
            if path.is_dir():
                shutil.copytree(path, goal, ignore=shutil.ignore_patterns("__pycache__"))
            else:
                shutil.copy(path, goal)


def keep_few_searches(table):
    rows = table.read_text(encoding="ascii").splitlines(True)
    heads = sum(row.startswith("#") for row in rows)
    table.write_text("".join(rows[:heads + SEARCHES]), encoding="ascii")


def contents(folder):
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*")
            if path.is_file() and "__pycache__" not in path.parts}


def changed(data, pattern):
    """The bytes with another value where the pattern's first group is."""
    match = re.search(pattern, data)
    expect(match, f"nothing matches {pattern}")
    last = match.end(1) - 1
    other = b"0123456789".find(data[last:last + 1])
    other = data[last] ^ 1 if other < 0 else ord("0") + (other + 1) % 10
    return data[:last] + bytes([other]) + data[last + 1:]


def expect(condition, text):
    if not condition:
        raise SystemExit(text)


def refresh(copy, *words):
    """The status and what is printed."""
    result = subprocess.run([copy / "scripts/refresh_results", *words], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return result.returncode, result.stdout


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    root = pathlib.Path(sys.argv[1])
    os.environ["VESK"] = str(pathlib.Path(sys.argv[2]).resolve())
    os.environ["PRINT_EVALS"] = str(pathlib.Path(sys.argv[3]).resolve())
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder)
        copy_parts(root, copy)
        keep_few_searches(copy / "tests/data/search.tsv")
        before = contents(copy)

        for name, (pattern, _) in CHANGED.items():
            (copy / name).write_bytes(changed(before[name], pattern))
        with_changes = contents(copy)
        status, output = refresh(copy, "-n")
        expect(status == 1 and contents(copy) == with_changes,
               f"-n wrote, or ended with status {status}:\n{output}")
        for name, (_, report) in CHANGED.items():
            expect(report in output, f"{name} is not reported:\n{output}")

        status, output = refresh(copy)
        after = contents(copy)
        wrong = [name for name in before | after if before.get(name) != after.get(name)]
        expect(status == 0 and not wrong, f"status {status}, {wrong} differ:\n{output}")
    print(f"{len(CHANGED)} files with a change found and written anew")


if __name__ == "__main__":
    main()
