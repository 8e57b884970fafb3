#!/usr/bin/env python3
"""Lets the tuning program play against itself, and looks at what it writes.

    check_selfplay.py VESK_TUNE VESK

Each check runs in an empty folder. Status 1 with a message at the first that fails.
"""

import collections
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

import uci_games

NODES = ("-selfplay-nodes", 200)
CLAIMS = {"mate": "checkmate", "stalemate": "stalemate", "repetition": "repetition",
          "fifty moves": "fifty moves", "material": "material", "length": "unfinished",
          "score": "unfinished"}
MOVES = re.compile(r"([A-Za-z][^\s{}]*)(?: \{([-+])(M?)([0-9.]+)/(\d+)\})?")


def fail(text):
    raise SystemExit(f"check_selfplay: {text}")


def expect(condition, text):
    if not condition:
        fail(text)


class Program:
    def __init__(self, path):
        self.path = str(pathlib.Path(path).resolve())

    def run(self, *words, **more):
        return subprocess.run([self.path, *map(str, words)], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=300, check=False, **more)

    def play(self, *words):
        result = self.run("-selfplay", *words)
        expect(result.returncode == 0 and result.stderr == "",
               f"{words}: status {result.returncode}\n{result.stdout}{result.stderr}")
        return result.stdout

    def refuses(self, message, *words, **more):
        result = self.run(*words, **more)
        expect(result.returncode == 1, f"{words}: status {result.returncode}, not 1")
        expect(message in result.stderr, f"{words}: no {message!r} in\n{result.stderr}")
        return result


def read(name):
    return pathlib.Path(name).read_text(encoding="ascii")


def games_of(text):
    """Each game's tags and text of moves."""
    blocks = text.split("\n\n")
    expect(blocks.pop() == "" and len(blocks) % 2 == 0, "the file does not end with a whole game")
    return [(dict(re.findall(r'\[(\w+) "(.*)"\]', tags)), moves)
            for tags, moves in zip(blocks[::2], blocks[1::2])]


def check_same_games(program):
    """Whatever the number of games at a time, in one piece or in two shards."""
    program.play(24, *NODES, "-selfplay-out", "one.pgn", "-selfplay-lines", "one.epd")
    program.play(24, *NODES, "-selfplay-out", "three.pgn", "-selfplay-lines", "three.epd",
                 "-threads", 3)
    expect(read("one.pgn") == read("three.pgn"), "three games at a time are other games")
    expect(read("one.epd") == read("three.epd"), "three games at a time give other lines")
    for first in (1, 13):
        program.play(12, *NODES, "-selfplay-out", f"from{first}.pgn", "-selfplay-first", first)
    expect(read("from1.pgn") + read("from13.pgn") == read("one.pgn"), "shards are other games")
    program.play(24, *NODES, "-selfplay-out", "seed.pgn", "-selfplay-seed", 2)
    own = {moves for _, moves in games_of(read("one.pgn"))}
    other = {moves for _, moves in games_of(read("seed.pgn"))}
    expect(len(own) == 24 and not own & other, "two seeds have a game in common")
    program.play(4, "-selfplay-depth", 3, "-selfplay-out", "depth.pgn")
    depths = {int(depth) for depth in re.findall(r"/(\d+)\}", read("depth.pgn"))}
    expect(depths and max(depths) <= 4, f"depths {depths} behind a limit of 3 and a fifth")


def check_rules():
    """The referee finds each game legal, and its end what it is called."""
    if uci_games.find_referee() is None:
        print("the referee is not installed: rules not checked")
        return
    text = read("one.pgn") + re.sub(r'\[Round "(\d+)"', r'[Round "1000\1"', read("openings.pgn"))
    moves = uci_games.ask_referee(text, "-C")
    games = []
    for tags, _ in games_of(text):
        claim = CLAIMS[tags["EndReason"]]
        result = "*" if claim == "unfinished" else tags["Result"]
        played = moves.get(int(tags["Round"]))
        expect(played is not None, f"game {tags['Round']} is not legal")
        games.append(uci_games.Game(played[1].split()[:-1], tags.get("FEN", uci_games.START),
                                    result=result, claim=claim))
    for game, complaint in zip(games, uci_games.judge(games)):
        expect(complaint is None, f"{complaint}: {game}")
    ends = collections.Counter(game.claim for game in games)
    expect(len(ends) >= 2, f"all games end in one way: {ends}")


def check_scores(vesk):
    """The scanner finds the scores that stand in the comments."""
    text = read("one.pgn")
    wanted = 0
    for tags, moves in games_of(text):
        found = MOVES.findall(moves.replace("{book}", ""))
        expect(moves.count("{book}") in (8, 9), f"drawn moves of game {tags['Round']}")
        expect(len(found) > 10, f"game {tags['Round']} has {len(found)} moves")
        drawn = [move for move in found if not move[4]]
        expect(8 <= len(drawn) <= 9 and found[:len(drawn)] == drawn,
               f"game {tags['Round']} begins with {len(drawn)} drawn moves")
        wanted += len(found)
    expect(vesk.run("-scan_pgn3", "one.pgn").returncode == 0, "the scanner refuses the games")
    scores = [int(score) for score in re.findall(r" ce (-?\d+);", read("tmp.epd"))]
    expect(0.2 * wanted < len(scores) <= wanted, f"{len(scores)} scores of {wanted} moves")
    expect(all(score >= -30000 for score in scores), "a score was not read")


def check_lines():
    """Each line is a position of its game with the score and the result of the side to move."""
    results = {tags["Round"]: tags["Result"] for tags, _ in games_of(read("one.pgn"))}
    lines = read("one.epd").splitlines()
    expect(len(lines) > 200, f"{len(lines)} lines of 24 games")
    for line in lines:
        match = re.fullmatch(r'(\S+ ([wb]) \S+ \S+) ce (-?\d+); gr ([01]\.[05]);'
                             r' c0 "game (\d+)";', line)
        expect(match is not None, f"no training line: {line}")
        _, side, score, result, number = match.groups()
        wanted = {"1-0": "1.0", "0-1": "0.0", "1/2-1/2": "0.5"}[results[number]]
        if side == "b":
            wanted = {"1.0": "0.0", "0.0": "1.0", "0.5": "0.5"}[wanted]
        expect(result == wanted, f"{results[number]} is not {result} in {line}")
        expect(abs(int(score)) <= 2000, f"a far score in {line}")


def check_openings(program):
    """Games begin from the openings that can be played, and the others are named."""
    fens = ["rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq e6",
            "r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq -",
            "rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3"]
    bad = ["8/8/8/8/8/8/8/8 w - -", "7k/5Q2/6K1/8/8/8/8/8 b - -", "nonsense"]
    pathlib.Path("fens.epd").write_text("\n".join([fens[0], bad[0], "", *fens[1:], *bad[1:]])
                                        + "\n", encoding="ascii")
    result = program.run("-selfplay", 30, *NODES, "-selfplay-out", "openings.pgn",
                         "-selfplay-openings", "fens.epd")
    expect(result.returncode == 1, f"bad openings give status {result.returncode}")
    named = re.findall(r"^fens\.epd:(\d+): ", result.stderr, re.M)
    expect(named == ["2", "6", "7"], f"named openings: {named}\n{result.stderr}")
    begun = collections.Counter(tags["FEN"].rsplit(" ", 2)[0]
                                for tags, _ in games_of(read("openings.pgn")))
    used = {fen.rsplit(" ", 1)[0] for fen in fens}
    expect({fen.rsplit(" ", 1)[0] for fen in begun} == used, f"begun from {begun}")
    pathlib.Path("none.epd").write_text("nonsense\n", encoding="ascii")
    program.refuses("holds no position", "-selfplay", 1, "-selfplay-out", "none.pgn",
                    "-selfplay-openings", "none.epd")
    program.refuses("lost.epd: cannot be read", "-selfplay", 1, "-selfplay-out", "none.pgn",
                    "-selfplay-openings", "lost.epd")
    expect(not pathlib.Path("none.pgn").exists(), "a file without games was left")


def check_resuming(program):
    """Wherever the files were cut, going on gives what one run gives."""
    games = pathlib.Path("one.pgn").read_bytes()
    lines = pathlib.Path("one.epd").read_bytes()
    words = (24, *NODES, "-selfplay-out", "cut.pgn", "-selfplay-lines", "cut.epd",
             "-selfplay-resume", "-threads", 2)
    first_lines = lines.index(b"game 2")
    cuts = [(0, 0), (5, 0), (len(games) // 2, len(lines)), (len(games), len(lines)),
            (len(games) - 1, len(lines) - 1), (len(games), len(lines) * 9 // 10),
            (len(games) // 3, first_lines), (games.index(b"\n\n"), len(lines) // 4)]
    for game_bytes, line_bytes in cuts:
        pathlib.Path("cut.pgn").write_bytes(games[:game_bytes])
        pathlib.Path("cut.epd").write_bytes(lines[:line_bytes])
        program.play(*words)
        for name, wanted in (("cut.pgn", games), ("cut.epd", lines)):
            expect(pathlib.Path(name).read_bytes() == wanted,
                   f"{name} is another one behind cuts at {game_bytes} and {line_bytes}")


def check_foreign_files(program):
    """Nothing is written over, or cut, that the run has not made."""
    out = ("-selfplay-out", "one.pgn")
    before = read("one.pgn")
    program.refuses("one.pgn: is there already", "-selfplay", 2, *out)
    program.refuses("one.pgn:1: no game that was played with these settings", "-selfplay", 30,
                    "-selfplay-nodes", 300, *out, "-selfplay-resume")
    # Other weights make another player of it.
    shutil.copy(pathlib.Path(__file__).resolve().parents[2] / "weights" / "params.txt", ".")
    program.refuses("one.pgn:1: no game that was played with these settings", "-selfplay", 30,
                    *NODES, *out, "-selfplay-resume")
    pathlib.Path("params.txt").unlink()
    for name in ("fens.epd", "none.epd"):
        kept = read(name)
        program.refuses(f"{name}:1: ", "-selfplay", 30, "-selfplay-out", name,
                        "-selfplay-resume")
        program.refuses(f"{name}:1: ", "-selfplay", 30, *NODES, *out, "-selfplay-lines", name,
                        "-selfplay-resume")
        expect(read(name) == kept, f"{name} was changed")
    pathlib.Path("link.pgn").symlink_to("target.pgn")
    program.refuses("link.pgn: ", "-selfplay", 1, "-selfplay-out", "link.pgn")
    program.refuses("link.pgn: ", "-selfplay", 1, "-selfplay-out", "link.pgn", "-selfplay-resume")
    expect(not pathlib.Path("target.pgn").exists(), "a link was followed")
    program.refuses("/dev/full: ", "-selfplay", 1, "-selfplay-out", "/dev/full",
                    "-selfplay-resume")
    expect(read("one.pgn") == before, "one.pgn was changed")


def check_endings(program):
    """A signal, a second run and a full disk leave whole games, and a run can go on."""
    words = [program.path, "-selfplay", "1000000", *map(str, NODES), "-selfplay-out", "long.pgn",
             "-selfplay-lines", "long.epd", "-threads", "2"]
    with subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True) as process:
        path = pathlib.Path("long.pgn")
        end = time.monotonic() + 60
        while time.monotonic() < end and not (path.exists() and path.stat().st_size > 5000):
            time.sleep(0.01)
        program.refuses("long.pgn: is being written by another run", "-selfplay", 1000000, *NODES,
                        "-selfplay-out", "long.pgn", "-selfplay-resume")
        process.send_signal(signal.SIGINT)
        output, errors = process.communicate(timeout=60)
    expect(process.returncode == 0 and errors == "", f"Ctrl-C: {process.returncode} {errors}")
    expect("-selfplay-resume goes on with it" in output, f"nothing tells how to go on: {output}")
    count = len(games_of(read("long.pgn")))
    expect(count > 0, "Ctrl-C left no game")
    program.play(count + 2, *NODES, "-selfplay-out", "long.pgn", "-selfplay-lines", "long.epd",
                 "-selfplay-resume")
    expect(len(games_of(read("long.pgn"))) == count + 2, "the run did not go on")

    limit = 9000
    result = program.refuses(
        "full.pgn: cannot be written", "-selfplay", 1000, *NODES, "-selfplay-out", "full.pgn",
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
    expect("games written" in result.stdout, "a full disk hides what was written")
    written = games_of(read("full.pgn"))
    expect(written and os.path.getsize("full.pgn") <= limit, f"{len(written)} games fit")


def check_options(program):
    cases = {
        "needs a number of games": ["-selfplay-out", "x.pgn"],
        "needs -selfplay-out": ["-selfplay", "3"],
        "-selfplay needs a whole number": ["-selfplay", "3.5", "-selfplay-out", "x.pgn"],
        "-selfplay-nodes needs a whole number from 100": ["-selfplay-nodes", "10k"],
        "option -selfplay-out needs a file": ["-selfplay", "3", "-selfplay-out", "-threads"],
        "there is no option -selfplay-node": ["-selfplay-node", "100"],
    }
    for message, words in cases.items():
        program.refuses(message, *words)
    expect(not pathlib.Path("x.pgn").exists(), "a refused run made its file")


def main():
    program, vesk = Program(sys.argv[1]), Program(sys.argv[2])
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        check_options(program)
        check_same_games(program)
        check_scores(vesk)
        check_lines()
        check_openings(program)
        check_rules()
        check_resuming(program)
        check_foreign_files(program)
        check_endings(program)
        os.chdir("/")
    print("games of the engine against itself are whole, legal and repeatable")


if __name__ == "__main__":
    main()
