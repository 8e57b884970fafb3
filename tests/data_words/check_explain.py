#!/usr/bin/env python3
"""The word "explain" as a user says it: its table beside the one of the console, with options and
weights too; JSON that adds up to the score by the page's own arithmetic; a dialogue line by line;
files, packed or damaged, and what is refused.

    check_explain.py VESK_DATA VESK ROOT

Prints what is wrong; status 1 if anything is.
"""

import csv
import fractions
import gzip
import io
import json
import os
import pathlib
import re
import resource
import struct
import subprocess
import sys
import tempfile

from checks import expect, finish_checks

FRENCH = "rnbqkb1r/ppp2ppp/4pn2/3p4/3PP3/2N5/PPP2PPP/R1BQKBNR w KQkq -"
MEMORY = 300 << 20  # bytes of address space, the program with its libraries among them
OPTIONS = "Activity_Knight=29,57", "King_Safety=150,80", "Mtl_Pawn=90,110"


def run(*words, stdin=None, **more):
    return subprocess.run([vesk_data, "explain", *map(str, words)], input=stdin,
                          stdin=None if stdin is not None else subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120, **more)


def explained(*words, **more):
    """The lines of JSON, and the result."""
    result = run("--form", "json", *words, **more)
    return [json.loads(line) for line in result.stdout.splitlines()], result


def console_tables(fens, folder, *words):
    """The tables that the console shows of positions, in a folder of its own."""
    lines = "".join(f"fen {fen}\nev\n" for fen in fens) + "quit\n"
    said = subprocess.run([vesk, "-c", "-threads", "1", "-hash", "1", *words], input=lines,
                          cwd=folder, stdout=subprocess.PIPE, text=True, timeout=120).stdout
    tables = []
    for part in said.split("           white  black    pos    mtl\n")[1:]:
        end = part.index("eval= ")
        tables.append("           white  black    pos    mtl\n" +
                      part[:part.index("\n", end) + 1])
    return tables


def tables_of(text):
    """The same out of explain's text."""
    return ["           white  black    pos    mtl\n" + part[:part.index("\n", part.index("eval= ")) + 1]
            for part in text.split("           white  black    pos    mtl\n")[1:]]


# ---- What the page says about the numbers, done anew

def float32(number):
    return struct.unpack("f", struct.pack("f", number))[0]


def tapered(mg, eg, phase):
    """The blend, rounded as the evaluation rounds: the end game's half to 32 bits, the sum once."""
    blend = (1 - fractions.Fraction(phase)) * mg + fractions.Fraction(float32(eg * phase))
    return int(float(blend))


def check_sums(answer):
    name = answer["fen"]
    phase = float32(answer["phase"])
    halves = "mg", "eg"
    expect(all(sum(row["total"][half] for row in answer["terms"]) == answer["sum"][half]
               for half in halves), f"{name}: the rows do not make up the sum")
    for row in answer["terms"]:
        acting = [weight for weight in answer["weights"] if weight["term"] == row["name"]]
        for side in ("white", "black"):
            for half in halves:
                expect(sum(weight[side][half] for weight in acting)
                       == row[side][half] + row["material"][side][half],
                       f"{name}: the weights of {row['name']} do not make up its {side} {half}")
    for weight in answer["weights"]:
        if weight["name"] in PARTS:
            continue
        expect(all(round(weight[side]["times"] * weight["value"][half]) == weight[side][half]
                   for side in ("white", "black") for half in halves),
               f"{name}: {weight['name']} does not add its value so many times")
    value = tapered(answer["sum"]["mg"], answer["sum"]["eg"], phase)
    expect(value == answer["tapered"], f"{name}: the blend is {value}, not {answer['tapered']}")
    score = int(float32(float32(value) * float32(answer["scale"])))
    expect(score == answer["score"]["white"], f"{name}: the score is {answer['score']}, not {score}")
    expect(answer["score"]["mover"] == (score if answer["side"] == "white" else -score),
           f"{name}: the mover's score is {answer['score']}")


# Weights of which each part is cut to whole centipawns by itself.
PARTS = {"knight_mobility", "bishop_mobility", "rook_mobility", "queen_mobility", "pawn_shield",
         "king_danger1", "king_danger2", "candidate_passer", "ppawn_eking_dist",
         "ppawn_fking_dist", "ppawn_connected"}


# ---- The checks

def weight_as_csv(weight):
    """A weight of JSON as it stands in the list of a row."""
    entry = weight.get("square", weight.get("rank"))
    name = weight["name"] + (f" {entry}" if entry is not None else "")
    return (f"{name}={weight['value']['mg']:.10g}/{weight['value']['eg']:.10g}"
            f"*{weight['white']['times']:.6g}/{weight['black']['times']:.6g}")


def check_numbers(fens, folder):
    answers, result = explained(folder / "all.epd")
    expect(result.returncode == 0 and len(answers) == len(fens), "not all positions are explained")
    for answer in answers:
        if answer["judged_by"] == "terms":
            check_sums(answer)
    again, _ = explained("--jobs", 3, folder / "all.epd")
    expect(again == answers, "three jobs give other answers")
    rows = list(csv.DictReader(io.StringIO(run("--form", "csv", folder / "all.epd").stdout.decode())))
    expect([(row["fen"], row["score_white"], row["judged_by"]) for row in rows]
           == [(answer["fen"], str(answer["score"]["white"]), answer["judged_by"])
               for answer in answers], "CSV gives other scores")
    for row, answer in zip(rows, answers):
        for term in answer.get("terms", []):
            expect(row[f"{term['name']}_material_black_eg"]
                   == str(term["material"]["black"]["eg"]), f"CSV: {term['name']} differs")
        for column in "hard_to_win", "hung":
            expect(row[column].split("; ") == (answer.get(column) or [""]),
                   f"CSV: {column} is {row[column]}")
        expect(row["acting_weights"] == "; ".join(map(weight_as_csv, answer.get("weights", []))),
               f"CSV: other weights act: {row['acting_weights']}")


def check_console(fens, folder):
    options = folder / "options.cfg"
    options.write_text("Hash = 1\n" + "".join(
        option.replace("=", " = ") + " # so\n" for option in OPTIONS))
    weights = pathlib.Path(root) / "weights" / "params.txt"
    own = folder / "own"
    own.mkdir()
    (own / "params.txt").write_bytes(weights.read_bytes())
    sets = [word for option in OPTIONS for word in ("--set", option)]
    for said, words in ((console_tables(fens, folder), []),
                        (console_tables(fens, folder, "-cfg", "options.cfg"),
                         ["--options", options]),
                        (console_tables(fens, folder, "-cfg", "options.cfg"), sets),
                        (console_tables(fens, own), ["--weights", weights])):
        shown = tables_of(run(*words, folder / "all.epd").stdout.decode())
        expect(len(said) > 30, f"the console shows only {len(said)} tables")
        expect(shown == said, f"{words}: the tables are not those of the console")
    result = run("--quiet", FRENCH, cwd=own)
    expect(result.stderr == b"", "--quiet is not quiet")
    expect(b"params.txt in this folder is left out" in run(FRENCH, cwd=own).stderr,
           "a params.txt is passed over without a word")


def check_dialogue():
    """Each line is answered before the next one is sent, a bad one too."""
    with subprocess.Popen([vesk_data, "explain", "--form", "json", "-"], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as process:
        for number, line in enumerate((FRENCH, "rubbish", "startpos", FRENCH.replace(" w ", " b ")), 1):
            process.stdin.write(line.encode() + b"\n")
            process.stdin.flush()
            answer = json.loads(process.stdout.readline())
            expect(answer["line"] == number and ("error" in answer) == (line == "rubbish"),
                   f"line {number} of a dialogue is answered by {answer}")
        process.stdin.close()
        expect(process.wait(60) == 1, "the status of a dialogue with a bad line is not 1")


def check_inputs(folder):
    (folder / "lines.epd").write_bytes(
        b"\xef\xbb\xbf# a comment\r\n\r\n" + FRENCH.encode() + b' bm e5; id "a \xfc";\r\n'
        + b"8/8/8/8/8/8/8/8 w - -\n8/8/8 w - -\n" + FRENCH.replace(" w ", " x ").encode() + b"\n"
        + b"k\0k\n" + FRENCH.encode())
    answers, result = explained("--json", "--report", folder / "report", folder / "lines.epd")
    report = json.loads((folder / "report").read_text())
    expect([(answer["line"], "error" in answer) for answer in answers]
           == [(3, False), (4, True), (5, True), (6, True), (7, True), (8, False)],
           f"lines are told as {answers}")
    expect(answers[0]["id"] == "a \N{REPLACEMENT CHARACTER}", "the id of a line")
    expect(result.returncode == 1 and result.stderr.count(b"lines.epd:") == 4, "refusals of lines")
    expect(report["positions"]["explained"] == 2, f"the report is {report}")
    (folder / "lines.epd.gz").write_bytes(gzip.compress((folder / "all.epd").read_bytes()))
    packed = run("--form", "csv", folder / "lines.epd.gz")
    if b"cannot read" not in packed.stderr:
        expect(packed.stdout == run("--form", "csv", folder / "all.epd").stdout, "a packed file")
    for words, status in ((["--form", "json", *FRENCH.split()], 0), ([*FRENCH.split(), "0", "1"], 0),
                          (["8/8/8/8/8/8/8/9 w - -"], 1), ([folder / "none.epd"], 1), ([folder], 1),
                          (["--weights", folder / "all.epd", FRENCH], 1),
                          (["--options", folder / "all.epd", FRENCH], 1), ([], 2),
                          (["--form", "xml", FRENCH], 2), (["--term", "kings", FRENCH], 2),
                          (["--set", "Threats=1,1", FRENCH], 2), (["--help"], 0)):
        result = run(*words)
        expect(result.returncode == status and (status == 0 or result.stderr != b""),
               f"{words}: status {result.returncode}, {result.stderr}")
    old = folder / "old.csv"
    old.write_bytes(b"old")
    (folder / "bad.epd").write_bytes(b"8/8/8/8/8/8/8/8 w - -\n")
    for words in ([folder / "none.epd"], [folder / "bad.epd"], ["8/8/8/8/8/8/8/9 w - -"]):
        for form in "text", "json", "csv":
            result = run("--form", form, *words, "--output", old)
            expect(result.returncode == 1 and b"no position for it" in result.stderr
                   and old.read_bytes() == b"old" and not (folder / "old.csv.part").exists(),
                   f"{words}: an output without a position replaced another: {result.stderr}")
    chosen, _ = explained("--term", "king", "--term", "mtl_pawn", FRENCH)
    expect([row["name"] for row in chosen[0]["terms"]] == ["king"]
           and {"king", "pawns"} == {weight["term"] for weight in chosen[0]["weights"]},
           "--term shows other terms")
    if os.path.exists("/dev/full"):
        result = subprocess.run([vesk_data, "explain", folder / "all.epd"],
                                stdout=open("/dev/full", "wb"), stderr=subprocess.PIPE, timeout=60)
        expect(result.returncode == 1 and b"No space" in result.stderr, "a full disk is not told of")


def check_long_line():
    """200 megabytes in one line, and 100 in short ones, in little memory."""
    def limit():
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))

    sanitized = re.search(rb"__[at]san_init", pathlib.Path(vesk_data).read_bytes())
    with subprocess.Popen([vesk_data, "explain", "--form", "json", "--max-messages", "1", "-"],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          preexec_fn=None if sanitized else limit) as process:
        block = FRENCH.encode() + b" " * 1000000
        for _ in range(200):
            process.stdin.write(block)
        process.stdin.write(b"\n" + FRENCH.encode() + b"\n")
        answers, errors = process.communicate(timeout=200)
        lines = [json.loads(line) for line in answers.splitlines()]
        expect(len(lines) == 2 and "longer than" in lines[0].get("error", "")
               and "score" in lines[1], f"a long line is answered by {answers[:200]}")
        expect(b"-:1:" in errors or b"input:1:" in errors, f"a long line is told of as {errors}")


def main():
    fens = [line.split("\t")[0] for line in
            (pathlib.Path(root) / "tests" / "data" / "eval.tsv").read_text().splitlines()
            if not line.startswith("#")]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "all.epd").write_text("".join(fen + "\n" for fen in fens))
        check_numbers(fens, folder)
        check_console(fens, folder)
        check_dialogue()
        check_inputs(folder)
        check_long_line()
    return finish_checks()


if __name__ == "__main__":
    vesk_data, vesk, root = (os.path.abspath(word) for word in sys.argv[1:4])
    sys.exit(main())
