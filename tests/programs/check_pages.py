#!/usr/bin/env python3
"""Holds the pages on chess programs against what is tried, and tries what they tell to set.

usage: check_pages.py DOCS ENGINE

What a page writes into a program's list of engines, or on its command line, is what the programs
are started with in run_programs.py. Each setting of a page is sent to the engine, which must know
it and take its value. Each link leads somewhere.
"""
import ast
import re
import subprocess
import sys
from pathlib import Path

import hosts
from desktop import Failure

PATH = "/usr/games/vesk-uci"
COMPLAINTS = re.compile(r"no such option|\bis no\b", re.IGNORECASE)
LINES = 3


def check(condition, text):
    if not condition:
        raise Failure(text)


def blocks_of(page):
    """The indented blocks of a page, each without its indentation."""
    blocks = re.findall(r"(?:^(?: {4}.*)?\n)+", page, re.MULTILINE)
    return [re.sub(r"^ {4}", "", block, flags=re.MULTILINE).strip("\n") for block in blocks]


def check_lists(folder):
    """What the pages write is what the programs read in the test."""
    gnome_chess = hosts.GNOME_CHESS_ENGINES.partition("uci-go-option")[0]
    for name, text in [("pychess", hosts.PYCHESS_ENGINES), ("scid", hosts.SCID_ENGINES),
                       ("gnome-chess", gnome_chess), ("xboard", "xboard " + hosts.XBOARD_WORDS)]:
        expected = text.format(engine=PATH).strip()
        blocks = blocks_of((folder / f"{name}.md").read_text())
        check(any(block.startswith(expected) for block in blocks), f"{name}.md lacks\n{expected}")


def check_links(folder):
    for page in folder.glob("*.md"):
        for link in re.findall(r"\]\(([^)#]+)\)", page.read_text()):
            check((folder / link).exists(), f"{page.name} leads to {link}, which is not there")


def lichess_settings(page):
    part = re.search(r"uci_options:\n((?: {8}.+\n)+)", page)
    check(part, "lichess-bot.md sets nothing")
    pairs = [line.split(":", 1) for line in part.group(1).splitlines()]
    return {name.strip(): value.strip().strip('"') for name, value in pairs}


def script_settings(page):
    settings = {}
    for text in re.findall(r"configure\((\{.*?\})\)", page):
        settings |= ast.literal_eval(text)
    check(settings, "python-chess.md sets nothing")
    return settings


def plain(name):
    return re.sub(r"[ _]", "", name).lower()


class Engine:
    def __init__(self, path):
        self.process = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, bufsize=1)

    def ask(self, text, last):
        """Sends lines, and reads up to the one that begins with a word."""
        self.process.stdin.write(text + "\n")
        lines = []
        for line in self.process.stdout:
            lines.append(line.rstrip("\n"))
            if line.startswith(last):
                return lines
        raise Failure(f"the engine has ended after '{text}'")

    def end(self):
        self.process.stdin.close()
        check(self.process.wait(10) == 0, "the engine ends with another status than 0")


def check_settings(folder, path):
    engine = Engine(path)
    announced = {plain(line.split(" name ")[1].split(" type ")[0])
                 for line in engine.ask("uci", "uciok") if line.startswith("option ")}
    settings = [*lichess_settings((folder / "lichess-bot.md").read_text()).items(),
                *script_settings((folder / "python-chess.md").read_text()).items()]
    for name, value in settings:
        check(plain(name) in announced, f"the engine has no option {name}")
        words = str(value).lower() if isinstance(value, bool) else value
        for line in engine.ask(f"setoption name {name} value {words}\nisready", "readyok"):
            # Whether there are tables is a matter of the machine.
            check("Path" in name or not COMPLAINTS.search(line), f"{name} = {words}: {line}")
    for name in re.findall(r"^\| `([^`]+)` \|", (folder / "README.md").read_text(), re.MULTILINE):
        check(plain(name) in announced, f"README.md names {name}, which the engine has not")
    check_analysis(engine)
    engine.end()


def check_analysis(engine):
    """The analysis of python-chess.md: so many lines, each with its chances, and a timed move."""
    lines = engine.ask(f"setoption name MultiPV value {LINES}\nposition startpos\ngo depth 6",
                       "bestmove")
    for number in range(1, LINES + 1):
        check(any(f" multipv {number} " in line and " wdl " in line for line in lines),
              f"no line {number} with wdl in {lines}")
    answer = engine.ask("setoption name MultiPV value 1\ngo movetime 100", "bestmove")[-1]
    check(re.match(r"bestmove [a-h][1-8][a-h][1-8]", answer), f"a move was asked for: {answer}")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    folder = Path(sys.argv[1])
    try:
        check_lists(folder)
        check_links(folder)
        check_settings(folder, sys.argv[2])
    except Failure as failure:
        sys.exit(f"FAILED: {failure}")
    print("the pages hold")


if __name__ == "__main__":
    main()
