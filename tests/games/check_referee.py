#!/usr/bin/env python3
"""Checks the judges of games themselves: each way to be wrong must be found out, by the referee of
scripts/uci_games.py and by the drivers that play for it.

    check_referee.py

Status 77 (skipped) where pgn-extract is not installed.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

import uci_games
from uci_games import Game, Look, Record, START

FOOLS_MATE = "f2f3 e7e5 g2g4 d8h4"
SHUFFLE = "g1f3 g8f6 f3g1 f6g8 "
ROOK = "7k/8/8/8/8/8/R7/K7 w - - 0 1"
ROOK_SHUFFLE = "a2b2 h8g8 b2a2 g8h8 "
PROMOTION = "8/1P5k/8/8/8/8/8/K7 w - - 0 1"
CASTLING = "r3k2r/8/8/8/8/8/8/R3K2R w KQkq - 0 1"
BLOCKED = "4k3/8/8/8/1p6/1P5p/7P/4K3 {} - - 0 1"
STALEMATE = "7k/5K2/6Q1/8/8/8/8/8 b - - 0 1"
MATE = "7k/6Q1/6K1/8/8/8/8/8 b - - 0 1"
# Moves, start, and whether they are legal.
MOVES = (
    ("e2e4 e7e5 g1f3 b8c6 f1b5 a7a6 e1g1", START, True),
    ("e2e4 e7e5 e1e3", START, False),
    ("e2e4 e2e4", START, False),
    ("e2e5", START, False),
    ("e2e4 d7d5 f1b5 a7a6", START, False),                      # in check
    ("e2e4 d7d5 f1b5 c7c6 b5c6 b8c6", START, True),
    ("e2e4 e7e5 d2d4 f8b4 b1c3 a7a6 c3d5", START, False),       # pinned
    ("e2e4 a7a6 e4e5 d7d5 e5d6", START, True),
    ("e2e4 d7d5 e4e5 a7a6 e5d6", START, False),                 # one move late
    ("e1g1 e8c8", CASTLING, True),
    ("a1a8 e8g8", CASTLING, False),                             # in check
    ("h1h7 e8e7 a1a7 e7d8 e1g1", CASTLING, False),              # without its rook
    ("h1f1 e8g8", CASTLING, False),                             # through an attacked square
    ("e1e2 a8a7 e2e1 a7a8 e1c1", CASTLING, False),              # the king has moved
    ("b7b8n", PROMOTION, True),
    ("b7b8b h7h8 b8a7", PROMOTION, True),
    ("b7b8q", PROMOTION, True),
    ("b7b8", PROMOTION, False),
    ("b7b8k", PROMOTION, False),
    ("a1a2q", PROMOTION, False),
    # A pawn that walks onto an enemy's square.
    ("b3b4", BLOCKED.format("w"), False),
    ("b4b3", BLOCKED.format("b"), False),
    ("h2h3", BLOCKED.format("w"), False),
    ("h3h2", BLOCKED.format("b"), False),
    # Nothing but moves gets into the games.
    ("e2e4 0000", START, False),
    ("e2e4 --", START, False),
    ("e2e4 (", START, False),
    ("e2e4 }", START, False),
    ("e2e4 e5", START, False),
    ("e2e4\n\n*", START, False),
)
# Moves, start, result, claim, and whether it is true.
CLAIMS = (
    (FOOLS_MATE, START, "0-1", "checkmate", True),
    (FOOLS_MATE, START, "1-0", "checkmate", False),
    (FOOLS_MATE, START, "1/2-1/2", "checkmate", False),
    (FOOLS_MATE, START, "1/2-1/2", "stalemate", False),
    (FOOLS_MATE, START, "*", "checkmate", True),
    (FOOLS_MATE, START, "*", "no move", True),
    (FOOLS_MATE, START, "*", "over", True),
    (FOOLS_MATE, START, "*", "unfinished", False),
    (FOOLS_MATE[:14], START, "0-1", "checkmate", False),
    (FOOLS_MATE[:14], START, "*", "no move", False),
    (FOOLS_MATE[:14], START, "*", "over", False),
    (FOOLS_MATE[:14], START, "*", "unfinished", True),
    (FOOLS_MATE[:14], START, "1/2-1/2", "unfinished", True),
    (FOOLS_MATE[:14], START, "1-0", "unfinished", False),
    ("g5g6", "7k/5K2/8/6Q1/8/8/8/8 w - - 0 1", "1/2-1/2", "stalemate", True),
    ("g5g6", "7k/5K2/8/6Q1/8/8/8/8 w - - 0 1", "1-0", "stalemate", False),
    ("g5g6", "7k/5K2/8/6Q1/8/8/8/8 w - - 0 1", "1-0", "checkmate", False),
    ("g5g6", "7k/5K2/8/6Q1/8/8/8/8 w - - 0 1", "*", "unfinished", False),
    ("g5g7", "7k/5K2/8/6Q1/8/8/8/8 w - - 0 1", "1-0", "checkmate", True),
    ("", STALEMATE, "*", "no move", True),
    ("", MATE, "*", "no move", True),
    ("", MATE.replace("b -", "w -"), "*", "no move", False),
    (SHUFFLE * 2, START, "1/2-1/2", "repetition", True),
    (SHUFFLE * 2, START, "1-0", "repetition", False),
    ((SHUFFLE * 2)[:-5], START, "1/2-1/2", "repetition", False),
    (SHUFFLE * 2, START, "1/2-1/2", "fifty moves", False),
    # The first time the castling rights were others.
    ("e1e2 e8e7 e2e1 e7e8 " * 2, CASTLING, "1/2-1/2", "repetition", False),
    (ROOK_SHUFFLE * 25, ROOK, "1/2-1/2", "fifty moves", True),
    (ROOK_SHUFFLE * 25, ROOK, "*", "over", True),
    ((ROOK_SHUFFLE * 25)[:-5], ROOK, "1/2-1/2", "fifty moves", False),
    ("b7b8n", PROMOTION, "1/2-1/2", "material", True),
    ("b7b8q", PROMOTION, "1/2-1/2", "material", False),
    ("", START, "1/2-1/2", "material", False),
)
# What stood on the board, the line that was printed there, and whether it is legal.
LINES = (
    (0, "d2d4 d7d5 c2c4", True),
    (0, "d2d4 d7d5 c2c5", False),
    (1, "c7c5 g1f3", True),
    (1, "g1f3", False),
    (2, "g1f3 b8c6 f1b5 a7a6 e1g1", True),
    (2, "g1f3 b8c6 f1b5 a7a6 e1g2", False),
    (2, "d8h4", False),
    (2, "g1f3 ) (", False),
)
# What an engine prints for "go" behind so many half-moves, and what the driver says of the game
# when it is called with the words behind that. The engine plays both sides.
REPLIES = {0: ["bestmove f2f3"], 1: ["bestmove e7e5"], 2: ["bestmove g2g4 ponder d8h4"],
           3: ["info depth 1 score mate 1 pv d8h4", "bestmove d8h4"], 4: ["bestmove null"]}
PLAYED = (
    ({}, "0-1 checkmate, 4 plies"),
    ({1: ["bestmove e7e4"]}, "illegal move e7e4"),
    ({1: ["info depth 1 score cp 0 pv e7e5 e2e5", "bestmove e7e5"]},
     "illegal move e2e5 in the line of game 1 (made up) black: info depth 1"),
    ({2: ["bestmove g2g4 ponder d8h5"]}, "illegal move d8h5 in the line"),
    ({2: ["bestmove null"]}, "the game is not what it is called: over"),
    ({2: ["info depth 1 score mate 1 pv g2g4", "bestmove g2g4"]},
     "the game is not what it is called: checkmate"),
    ({2: ["bestmove"]}, "no 'bestmove ' within 3 s", "--reply-limit", "3"),
    ({2: ["bestmove g2g4 d8h4"]}, "game 1 (made up) white: malformed reply"),
    ({2: ["something else", "bestmove g2g4"]}, "white: unexpected line: something else"),
    ({2: ["sleep 2.2", "bestmove g2g4"]}, "game 1 (made up) white: lost on time"),
    ({2: ["exit 0"]}, "white: the engine ended while 'bestmove ' was awaited"),
    ({"quit": ["exit 3"]}, "did not end well after quit: status 3"),
    ({"quit": ["bestmove a2a3", "exit 0"]}, "a reply that nobody had asked for: bestmove a2a3"),
)
ENGINE = """#!{python}
import json
import pathlib
import sys
import time

replies = json.loads(pathlib.Path(__file__).with_suffix(".json").read_text())
plies = 0
for line in sys.stdin:
    words = line.split()
    if words[0] == "position":
        plies = len(words) - words.index("moves") - 1 if "moves" in words else 0
    known = dict(uci=["uciok"], isready=["readyok"], go=replies.get(str(plies), []),
                 quit=replies.get("quit", ["exit 0"]))
    for text in known.get(words[0], []):
        if text.startswith("sleep"):
            time.sleep(float(text.split()[1]))
        elif text.startswith("exit"):
            sys.exit(int(text.split()[1]))
        else:
            print(text, flush=True)
"""


def check_verdicts():
    games = [Game(moves.split(" ") if moves else [], fen) for moves, fen, _ in MOVES]
    wanted = [is_legal for _, _, is_legal in MOVES]
    for moves, fen, result, claim, is_true in CLAIMS:
        games.append(Game(moves.split(), fen, result=result, claim=claim))
        wanted.append(is_true)
    for ply, line, is_legal in LINES:
        # Others beside it, on the same move too, must not hide it.
        others = [(0, ["g1f3"], ""), (ply, line.split()[:1], ""), (1, ["e7e6", "d2d4"], "")]
        others = others if line != "g1f3" and line != "d8h4" else []
        games.append(Game("e2e4 e7e5".split(), START, lines=[*others, (ply, line.split(), "line")]))
        wanted.append(is_legal)
    for game, complaint, is_right in zip(games, uci_games.judge(games), wanted):
        assert (complaint is None) == is_right, (game, complaint)
    assert uci_games.judge([]) == []


def check_looks():
    """The end of a game that has gone on behind it, and the first move that is not legal."""
    shuffle = SHUFFLE.split()
    for fen, moves, look in (
            (START, FOOLS_MATE.split(), Look(4, 1, (4, "0-1", "checkmate"))),
            (START, [*FOOLS_MATE.split(), "a2a3", "a7a6"], Look(4, 1, None)),
            (START, shuffle * 3, Look(12, 12, (8, "1/2-1/2", "repetition"))),
            (START, shuffle, Look(4, 4, None)),
            (START, ["e2e5", "e7e5"], Look(0, 0, None)),
            (ROOK.replace(" 0 1", " 98 90"), ["a2b2", "h8g8", "b2b3"],
             Look(3, 101, (2, "1/2-1/2", "fifty moves"))),
            (PROMOTION, ["b7b8b", "h7h8"], Look(2, 1, (1, "1/2-1/2", "material"))),
            (BLOCKED.format("w"), ["e1e2", "b4b3"], Look(1, 1, None)),
            ("7k/5K2/8/6Q1/8/8/8/8 w - - 0 1", ["g5g6"], Look(1, 1, (1, "1/2-1/2", "stalemate")))):
        assert uci_games.look_at(fen, moves) == look, (moves, uci_games.look_at(fen, moves))
    # However seldom the referee looks, a game does not go beyond fifty moves.
    record = Record(ROOK.replace(" 0 1", " 93 90"), [])
    moves = iter(ROOK_SHUFFLE.split() * 3)
    end = record.find_end()
    while end is None:
        record.moves.append(next(moves))
        end = record.find_end()
    assert end == (7, "1/2-1/2", "fifty moves") and len(record.moves) == 7, record.moves
    record = Record(START, "e2e4 e7e5 e1e3".split())
    assert record.find_end() == (2, "*", "illegal move e1e3")


def make_engine(folder, changes):
    path = folder / "engine.py"
    path.write_text(ENGINE.replace("{python}", sys.executable), encoding="ascii")
    path.chmod(0o755)
    path.with_suffix(".json").write_text(json.dumps({**REPLIES, **changes}), encoding="ascii")
    return path


def run_driver(*words, **variables):
    result = subprocess.run([sys.executable, *words], stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True, env={**os.environ, **variables})
    return result.returncode, result.stdout


def check_drivers(folder):
    """The drivers play with engines that go wrong in one place."""
    schedule = folder / "games.json"
    schedule.write_text(json.dumps([{"name": "made up", "base": 2000, "opening": ""}]))
    driver = ROOT / "tests/games/play_games.py"
    for changes, text, *words in PLAYED:
        engine = make_engine(folder, changes)
        status, output = run_driver(driver, engine, "--schedule", schedule, *words)
        record = json.loads(output.splitlines()[0])
        assert text in record.get("failure", record.get("result")), (changes, record)
        assert status == (1 if changes else 0), (changes, output)
    openings = folder / "openings.epd"
    openings.write_text(START + "\n")
    match = ROOT / "bench/match.py"
    for changes, result in (({}, "won 1, drawn 0, lost 1"),
                            ({1: ["bestmove e7e4"]}, "forfeit: illegal move e7e4"),
                            ({2: ["bestmove null"]}, "forfeit: no move"),
                            ({2: ["exit 0"]}, "forfeit: the engine ended")):
        engine = make_engine(folder, changes)
        status, output = run_driver(match, "--openings", openings, engine, engine)
        assert status == 0 and result in output and "lost 1;" in output, (changes, output)
    status, output = run_driver(driver, engine, PGN_EXTRACT="/nowhere")
    assert status == uci_games.SKIPPED and "not installed" in output, output
    status, output = run_driver(match, engine, engine, PGN_EXTRACT="/nowhere")
    assert status == 2 and "apt-get install pgn-extract" in output, output


def main():
    if uci_games.find_referee() is None:
        print("pgn-extract is not installed")
        return uci_games.SKIPPED
    check_verdicts()
    check_looks()
    with tempfile.TemporaryDirectory() as folder:
        check_drivers(pathlib.Path(folder))
    print("the referee finds what is wrong")
    return 0


if __name__ == "__main__":
    sys.exit(main())
