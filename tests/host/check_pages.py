#!/usr/bin/env python3
"""Plays the dialogues that pages show against the real vesk-uci.

    check_pages.py VESK_UCI PAGE...

A dialogue is a block of a page, indented by four blanks, whose first line begins with "> ". Such
lines are sent; the others must come, in their order. A line of three dots stands for any lines, and
times, rates and fills of the table may be others. Every page must hold one. Status 1 if a page shows
what does not come.
"""

import pathlib
import re
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import uci_games

LIMIT = 60.0            # seconds
VARYING = re.compile(r"\b(time|nps|hashfull) \d+")


def dialogues_of(text):
    """Blocks of lines, each with the number of its first line in the page."""
    block, start = [], 0
    for number, line in enumerate([*text.splitlines(), ""], 1):
        if line.startswith("    "):
            start = start if block else number
            block.append(line[4:])
        else:
            if block and block[0].startswith("> "):
                yield start, block
            block = []


def pattern_of(line):
    """What the line of a page may be in truth."""
    return re.compile(VARYING.sub(lambda match: f"{match.group(1)} [0-9]+", re.escape(line).replace(
        r"\ ", " ")))


def play(program, block):
    """The complaint about a dialogue, or None."""
    with tempfile.TemporaryDirectory() as folder:
        engine = uci_games.Engine(str(program), folder)
        try:
            skips = False
            for line in block:
                if line.startswith("> "):
                    engine.send(line[2:])
                    skips = False
                elif line == "...":
                    skips = True
                else:
                    pattern = pattern_of(line)
                    while True:
                        got, _ = engine.wait_for("", LIMIT)
                        if pattern.fullmatch(got):
                            break
                        if not skips:
                            return f"shows '{line}', but there comes '{got}'"
                    skips = False
        except uci_games.EngineFault as fault:
            return f"'{line}': {fault}"
        finally:
            engine.close()
    return None


def main():
    program = pathlib.Path(sys.argv[1]).resolve()
    wrong = played = 0
    for name in sys.argv[2:]:
        blocks = list(dialogues_of(pathlib.Path(name).read_text(encoding="utf-8")))
        if not blocks:
            wrong += 1
            print(f"{name}: no dialogue")
        for number, block in blocks:
            played += 1
            complaint = play(program, block)
            if complaint is not None:
                wrong += 1
                print(f"{name}:{number}: {complaint}")
    print(f"{played} dialogues, {wrong} wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
