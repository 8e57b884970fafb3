#!/usr/bin/env python3
"""Checks bench/match.py: its statistics against values worked out by hand and against matches drawn
by chance, its files against whatever may befall them, and whole matches between engines that only
know the moves of one short game.

    check_match.py

Status 77 (skipped) where pgn-extract is not installed.
"""

import math
import os
import pathlib
import random
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]
for place in ("scripts", "bench"):
    sys.path.insert(0, str(ROOT / place))

import match_stats as stats
import match_board
import uci_games
from check_referee import START, make_engine
from match_board import Board, find_fault, squares_of
from match_play import Clocks, Limit, Played, Rules, adjudicate, read_score
from match_record import Record, RecordFault

MATCH = ROOT / "bench/match.py"
SETTINGS = {"the limit": "nodes 1"}


def near(value, wanted, error):
    assert abs(value - wanted) <= error, (value, wanted)


# ---- Statistics.

def check_elo():
    near(stats.elo_of(10 / 11), 400, 1e-9)
    near(stats.share_of(-400), 1 / 11, 1e-12)
    assert stats.elo_of(1) == math.inf and stats.elo_of(0) == -math.inf
    counts = stats.count_pairs([0, 0.5, 0.5, *[1] * 10, *[1.5] * 5, 2, 2])
    assert counts == [1, 2, 10, 5, 2]
    # 11.25 of 20 points; the squares about 0.5625 sum to 1.109375.
    mean, variance = stats.moments(counts)
    near(mean, 0.5625, 1e-12)
    near(variance, 1.109375 / 20, 1e-12)
    # The error of the mean is sqrt(0.05546875 / 20) = 0.052663, and 1.96 of that 0.103219.
    value, low, high = stats.elo_range(counts)
    near(value, 400 * math.log10(0.5625 / 0.4375), 1e-9)
    near(low, 400 * math.log10(0.459281 / 0.540719), 0.01)
    near(high, 400 * math.log10(0.665719 / 0.334281), 0.01)
    # (0.0625 / sqrt(2 * 0.05546875)) * 347.4356 with 1.96 * 347.4356 / sqrt(40).
    near(stats.normalised_elo(counts)[0], 65.194, 0.01)
    near(stats.normalised_elo(counts)[1], 107.671, 0.01)
    assert stats.elo_range([0, 2, 3, 2, 0]) is None
    assert stats.normalised_elo([0, 0, 9, 0, 0]) is None


def check_ratio():
    # Where every pair is won or lost twice, the likeliest distribution is the mean itself:
    # 60 ln(0.640065 / 0.5) + 40 ln(0.359935 / 0.5).
    near(stats.log_likelihood_ratio([40, 0, 0, 0, 60], 0, 100), 1.6706, 0.01)
    counts = [10, 40, 100, 55, 15]
    near(stats.log_likelihood_ratio(counts, 0, 5),
         stats.log_likelihood_ratio(counts[::-1], 0, -5), 1e-9)
    near(stats.log_likelihood_ratio(counts, 0, 5), -stats.log_likelihood_ratio(counts, 5, 0), 1e-9)
    # Close hypotheses: (s1 - s0) * (2 * mean - s0 - s1) / (2 * variance of the mean), the form of
    # a normal distribution with the variance that is there.
    mean, variance = stats.moments(counts)
    first, second = stats.share_of(0), stats.share_of(5)
    near(stats.log_likelihood_ratio(counts, 0, 5),
         (second - first) * (2 * mean - first - second) / (2 * variance / sum(counts)), 0.05)
    assert stats.log_likelihood_ratio([0] * 5, 0, 5) == 0
    for mean in (0.3, 0.5, 0.9):
        chances = stats.likeliest([0.1, 0.2, 0.4, 0.2, 0.1], mean)
        near(sum(chances), 1, 1e-9)
        near(sum(share * chance for share, chance in zip(stats.PAIR_SHARES, chances)), mean, 1e-9)
    low, high = stats.sprt_bounds()
    near(low, -2.9444, 1e-4)
    near(high, 2.9444, 1e-4)
    assert [stats.verdict(ratio, (low, high)) for ratio in (-3, 0, 3)] == [0, None, 1]


def drawn_match(chance, elo, elos):
    """What the test says of pairs drawn by chance with this strength."""
    # Half of the pairs are even; the others lean by one step, or by two, as strong as told.
    lean = (stats.share_of(elo) - 0.5) / 0.3
    weights = [0.1 * (1 - lean), 0.2 * (1 - lean), 0.4, 0.2 * (1 + lean), 0.1 * (1 + lean)]
    weights = [weight / sum(weights) for weight in weights]
    near(sum(share * weight for share, weight in zip(stats.PAIR_SHARES, weights)),
         0.5 + 0.2 * lean, 1e-9)
    counts = [0] * 5
    while True:
        counts[chance.choices(range(5), weights)[0]] += 1
        found = stats.verdict(stats.log_likelihood_ratio(counts, *elos), stats.sprt_bounds())
        if found is not None:
            return found, sum(counts)


def check_error_rates(matches=250, elos=(0, 50)):
    """Of the matches that are drawn with the strength of either hypothesis about one in twenty may
    end with the other; with that share, 0.05 + 3 sqrt(0.05 * 0.95 / 250) are a rare accident."""
    chance = random.Random(20)
    for truth in (0, 1):
        # drawn_match's lean gives two thirds of the strength told to it.
        elo = stats.elo_of(0.5 + 1.5 * (stats.share_of(elos[truth]) - 0.5))
        found = [drawn_match(chance, elo, elos) for _ in range(matches)]
        wrong = sum(verdict != truth for verdict, _ in found) / matches
        assert 0.005 < wrong < 0.05 + 3 * math.sqrt(0.05 * 0.95 / matches), (truth, wrong)


def check_words():
    assert stats.summary([], []) == "games 0"
    text = stats.summary([1, 0.5, 0, 1], [1.5, 1])
    assert text.startswith("games 4: won 2, drawn 1, lost 1; 62.5 %, Elo +88.7 (too few"), text
    text = stats.summary([1, 0.5] * 10 + [0, 0.5] * 2, [1.5] * 10 + [0.5] * 2)
    # 0.25 and 0.75 with a mean of 2/3 and a variance of 0.0347222; 1.96 errors are 0.105433.
    assert text == "games 24: won 10, drawn 12, lost 2; 66.7 %, Elo +120.4 (+42.8 to +212.0 with " \
                   "95 %), normalised +219.7 ± 139.0", text
    text = stats.sprt_words(3.0, (0, 5), stats.sprt_bounds())
    assert text == "SPRT 0 to 5: log-likelihood ratio +3.00 (-2.94 to 2.94), 5 Elo accepted", text


# ---- Boards and clocks.

def check_board():
    board = Board(START)
    for move in "e2e4 a7a6 e4e5 d7d5 e5d6 b8c6 g1f3 c8g4 f1e2 d8d6 e1g1 e8c8".split():
        assert board.play(move)
    assert board.positions[-1] == squares_of(
        "2kr1bnr/1pp1pppp/p1nq4/8/6b1/5N2/PPPPBPPP/RNBQ1RK1 w - -"), board.positions[-1]
    assert board.quiet == 2 and board.whites_turn and not board.may_be_over
    assert not board.play("e7e5") and not board.play("h3h4") and not board.play("g1f1")
    board = Board("8/1P5k/8/8/8/8/8/K7 w - - 0 1")
    assert board.play("b7b8n") and board.may_be_over
    assert board.positions[-1] == squares_of("1N6/7k/8/8/8/8/8/K7 b - -")
    board = Board(START)
    shuffle = "g1f3 g8f6 f3g1 f6g8 " * 2
    found = [board.may_be_over for move in shuffle.split() if board.play(move)]
    assert found == [False] * 7 + [True], found


def check_faults():
    for fen, fault in (
            (START, None), ("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP w KQkq -", "7 ranks"),
            ("rnbqkbnr/pppppppp/9/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", "rank 6 holds"),
            ("rnbqkbnr/ppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -", "rank 7 has 7 squares"),
            ("rnbq1bnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQ -", "0 black kings"),
            ("rnbqkbnr/ppppppp1/8/8/8/8/PPPPPPPP/RNBQKBNp w Qkq -", "a pawn on"),
            ("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR x KQkq -", "the side to move"),
            ("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKB1R w KQxq -", "the castling rights"),
            ("rnbqkbn1/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w k -", "the castling right k"),
            ("rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq e9", "the en-passant square"),
            ("7k/8/8/8/8/8/8/K6R w - -", "the side that is not to move is in check"),
            ("7k/8/8/8/8/8/8/K6R b - -", None), ("7k/6P1/8/8/8/8/8/K7 w - -", "the side that is"),
            ("7k/8/6N1/8/8/8/8/K7 w - -", "the side that is"),
            ("7k/8/8/7n/8/8/8/K6R w - -", None), ("7K/6p1/8/8/8/8/8/k7 b - -", None),
            ("8/8/8/8/8/6p1/7K/k7 b - -", "the side that is"),
            ("b6k/8/8/8/8/8/8/7K b - -", "the side that is"),
            ("k7/8/8/8/8/8/8/7K w -", "a position has four fields")):
        found = find_fault(fen)
        assert (found is None) if fault is None else (found or "").startswith(fault), (fen, found)


def check_clocks():
    clocks = Clocks(Limit(base=2, increment=0.5, moves=2, margin=0.1))
    assert clocks.words(0) == "go wtime 2000 btime 2000 winc 500 binc 500 movestogo 2"
    assert clocks.charge(0, 1.0) and clocks.left == [1.5, 2.0]
    assert clocks.words(0) == "go wtime 1500 btime 2000 winc 500 binc 500 movestogo 1"
    assert clocks.charge(0, 1.55) and clocks.left == [2.5, 2.0]     # forgiven, and a new control
    near(clocks.patience(1), 2.1, 1e-9)
    assert not clocks.charge(1, 2.2)
    assert Clocks(Limit(nodes=5)).words(1) == "go nodes 5"
    assert read_score(b"info depth 3 score cp -35 pv a\ninfo depth 4 score cp 9 upperbound\n") == (
        -35, "-0.35/3", False)
    assert read_score(b"info depth 3 score mate -2\n")[:2] == (-29998, "-M2/3")
    assert read_score(b"info depth 9 multipv 2 score cp 5\n") == (None, "", False)


def check_adjudication():
    rules = Rules(Limit(), draw=(3, 2, 10), resign=(2, 300))
    assert adjudicate(rules, [0, 5, -10, 3], 4, True) is None       # too early
    assert adjudicate(rules, [0, 5, -10, 3], 6, True) == ("1/2-1/2", "draw adjudication")
    assert adjudicate(rules, [0, 5, -11, 3], 6, True) is None
    assert adjudicate(rules, [0, 5, None, 3], 6, True) is None
    assert adjudicate(rules, [300, -310, 320, -300], 4, True) == ("1-0", "resign adjudication")
    assert adjudicate(rules, [300, -310, 320, -300], 4, False) == ("0-1", "resign adjudication")
    assert adjudicate(rules, [-310, 320, -300, 400], 4, True) == ("0-1", "resign adjudication")
    assert adjudicate(rules, [300, -310, 320, 300], 4, True) is None    # they do not agree
    assert adjudicate(rules, [300, -299, 320, -300], 4, True) is None


# ---- Files.

def make_game(result="1-0"):
    return Played(START, "a", 'b "c"', ["e2e4", "e7e5"], ["e4", "e5"], ["+0.35/12 0.100s", ""],
                  result, "checkmate", None)


def refused(path, resume, settings=None):
    try:
        Record(path, settings or SETTINGS, resume).close()
    except RecordFault as fault:
        return str(fault)
    return None


def check_record(folder):
    path = folder / "games.pgn"
    record = Record(path, SETTINGS, False)
    assert "another match is writing it" in refused(path, True)
    for pair in range(2):
        record.add(pair, 0, 1, make_game(), {"Event": "e"})
    record.close()
    text, state = path.read_bytes(), pathlib.Path(f"{path}.state").read_bytes()
    assert b'[Black "b \\"c\\""]' in text and b"1. e4 {+0.35/12 0.100s} 1... e5 1-0" in text, text
    assert "go on with --resume" in refused(path, False)
    assert "games.pgn.state:1: the limit was" in refused(path, True, {"the limit": "nodes 2"})
    # Whatever was cut or added, the games whose lines are there stay.
    for games, lines, kept in ((text, state, 2), (text + b"rest", state, 2), (text, state[:-1], 1),
                               (text[:-1], state, 1), (text, state + b'{"pair": 3', 2),
                               (text[:10], state, 0)):
        path.write_bytes(games)
        pathlib.Path(f"{path}.state").write_bytes(lines)
        record = Record(path, SETTINGS, True)
        assert len(record.done) == kept, (len(record.done), kept)
        assert path.read_bytes() == text[:len(text) // 2 * kept]
        record.add(7, 1, 0, make_game(), {"Event": "e"})
        record.close()
        assert path.read_bytes().startswith(text[:len(text) // 2 * kept] + b"[Event")
        assert b'[Round "8.2"]' in path.read_bytes()
    pathlib.Path(f"{path}.state").write_bytes(state.replace(b'"pair": 0', b'"pair" 0'))
    assert "games.pgn.state:2: this is no line" in refused(path, True)
    path.write_bytes(b"somebody's games\n")
    pathlib.Path(f"{path}.state").unlink()
    assert "no state of their match" in refused(path, True)
    assert path.read_bytes() == b"somebody's games\n"
    assert "No such file" in refused(folder / "none" / "games.pgn", False)


def check_full_disk(folder):
    """A game for which there is no room leaves the files as they were."""
    for limit in (600, 300):    # the games or the state run full
        path = folder / f"full{limit}.pgn"
        record = Record(path, SETTINGS, False)
        record.add(0, 0, 1, make_game(), {})
        before = path.read_bytes(), pathlib.Path(f"{path}.state").read_bytes()
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        old = resource.getrlimit(resource.RLIMIT_FSIZE)
        room = len(before[0]) + 50 if limit == 600 else max(map(len, before)) * 2 + 50
        if limit == 300:    # the state is made the longer one
            os.ftruncate(record.state, room - 20)
            os.lseek(record.state, 0, os.SEEK_END)
            before = before[0], pathlib.Path(f"{path}.state").read_bytes()
        resource.setrlimit(resource.RLIMIT_FSIZE, (room, old[1]))
        try:
            record.add(1, 0, 1, make_game(), {})
            raise AssertionError("there was room")
        except RecordFault as fault:
            assert str(fault).startswith(str(path)) and "too large" in str(fault), fault
        finally:
            resource.setrlimit(resource.RLIMIT_FSIZE, old)
        assert (path.read_bytes(), pathlib.Path(f"{path}.state").read_bytes()) == before, limit
        record.close()


# ---- Whole matches.

def run_match(*words, **variables):
    found = subprocess.run([sys.executable, MATCH, *map(str, words)], capture_output=True,
                           text=True, env={**os.environ, **variables}, timeout=300, check=False)
    return found.returncode, found.stdout, found.stderr


def check_matches(folder):
    openings = folder / "openings.epd"
    openings.write_text(f"# two\n{START}\n{START}\n", encoding="ascii")
    engine = make_engine(folder, {})
    games, plot = folder / "match.pgn", folder / "match.svg"
    words = ("--openings", openings, "--pgn", games, "--plot", plot, "--sprt", 0, 5,
             "--concurrency", 2, engine, engine)
    status, output, errors = run_match("--games", 3, *words)
    assert status == 0 and "games 3: won " in output and "undecided" in output, (output, errors)
    text = games.read_text(encoding="ascii")
    assert text.count("1. f3 e5 2. g4 Qh4# {+M1/1 0.") == 3, text
    assert '[White "engine.py (1)"]' in text
    assert text.count('[Termination "checkmate"]') == 3
    xml.etree.ElementTree.parse(plot)
    status, output, errors = run_match("--resume", *words)
    assert status == 0 and "games 4: won 2, drawn 0, lost 2; 50.0 %" in output, (output, errors)
    assert "pairs with 0, 0.5, 1, 1.5 and 2 points: 0, 0, 2, 0, 0" in output, output
    rounds = sorted(re.findall(r'\[Round "(.*)"\]', games.read_text(encoding="ascii")))
    assert rounds == ["1.1", "1.2", "2.1", "2.2"], rounds
    assert run_match(*words)[0] == 1
    assert run_match("--resume", "--tc", "1+0.1", *words)[2].count("the limit was") == 1


def check_losses(folder):
    """Games that an engine loses, and matches that cannot be played."""
    for changes, words, wanted in (
            ({2: ["sleep 0.8", "bestmove g2g4"]}, ("--tc", "0.6"), "forfeit: time, 0-1"),
            ({2: ["sleep 0.8", "bestmove g2g4"]}, ("--tc", "0.6", "--margin", 9000), None),
            ({2: ["sleep 30"]}, ("--tc", "0.5+0.1"), "forfeit: time, 0-1"),
            ({1: ["bestmove e7e4"]}, (), "forfeit: illegal move e7e4, 1-0"),
            # The referee's view of an illegal move counts, whatever the other engine makes of it.
            ({0: ["bestmove e1e2"]}, (), "forfeit: illegal move e1e2, 0-1"),
            ({0: ["bestmove a1a3"]}, (), "forfeit: illegal move a1a3, 0-1"),
            ({2: ["exit 0"]}, (), "forfeit: the engine ended while 'bestmove' was awaited, 0-1")):
        engine = make_engine(folder, changes)
        status, output, errors = run_match(*words, engine, engine)
        assert status == 0 and "won 1, drawn 0, lost 1" in output, (changes, output, errors)
        assert errors == "" if wanted is None else wanted in errors, (changes, errors)
    engine = make_engine(folder, {})
    bad = folder / "bad.epd"
    for text, wanted in (
            ("#\n\n8/8/8/8/8/8/8/8 w - -\n", "bad.epd:3: 0 white kings"),
            ("", "no positions in it"),
            ("7k/5K2/6Q1/8/8/8/8/8 b - -\n", "bad.epd:1: no move can be played here")):
        bad.write_text(text, encoding="ascii")
        status, output, errors = run_match("--openings", bad, engine, engine)
        assert status == 1 and wanted in errors, (text, errors)
    for words, wanted in ((("--openings", folder / "none.epd", engine, engine), "No such file"),
                          ((engine, folder / "none"), "none"),
                          (("--option1", "Hash=16", engine, engine), "has no option 'Hash'"),
                          ((engine, "/bin/cat"), "/bin/cat: ")):
        if "/bin/cat" not in words:
            status, output, errors = run_match(*words)
            assert status == 1 and wanted in errors and "Traceback" not in errors, (words, errors)
    for words in (("--tc", "x"), ("--tc", "2", "--nodes", "5"), ("--sprt", 5, 0), ("--resume",),
                  ("--option1", "Hash"), ("--draw", "score=3")):
        assert run_match(*words, engine, engine)[0] == 2, words


def check_no_room(folder):
    """A match whose files run full ends with all that is in them; with room it goes on."""
    engine = make_engine(folder, {})
    games = folder / "room.pgn"
    words = [sys.executable, MATCH, "--games", "400", "--pgn", games, engine, engine]
    found = subprocess.run(
        words, capture_output=True, text=True, timeout=100, check=False,
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1500, 1500)))
    played = games.read_text(encoding="ascii").count("[Event")
    assert found.returncode == 1 and "room.pgn: File too large" in found.stderr, found
    assert "Traceback" not in found.stderr and f"games {played}: " in found.stdout, found
    assert games.read_text(encoding="ascii").endswith(" 0-1\n\n") and played >= 2
    words[3] = str(played + 2)
    found = subprocess.run([*words, "--resume"], capture_output=True, text=True, check=False)
    assert found.returncode == 0 and f"games {played + 2}: " in found.stdout, found


def check_interrupt(folder):
    """Ctrl-C leaves the games that are over, and what goes on from there has them all."""
    engine = make_engine(folder, {3: ["sleep 0.1", "bestmove d8h4"]})
    games = folder / "broken.pgn"
    words = [sys.executable, str(MATCH), "--games", "6", "--pgn", str(games), str(engine),
             str(engine)]
    process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    while not games.exists() or games.read_text(encoding="ascii").count("[Event") < 2:
        assert process.poll() is None
        time.sleep(0.02)
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)
    played = games.read_text(encoding="ascii").count("[Event")
    assert process.returncode == 1 and "broken off; --resume goes on" in errors, errors
    assert 2 <= played < 6 and f"games {played}: " in output, (played, output)
    found = subprocess.run([*words, "--resume"], capture_output=True, text=True, check=False)
    assert found.returncode == 0 and "games 6: won 3, drawn 0, lost 3" in found.stdout, found
    assert games.read_text(encoding="ascii").count("[Event") == 6


def main():
    check_elo()
    check_ratio()
    check_error_rates()
    check_words()
    check_board()
    check_faults()
    check_clocks()
    check_adjudication()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        check_record(folder)
        check_full_disk(folder)
        if uci_games.find_referee() is None:
            print("pgn-extract is not installed: no matches are played")
            return uci_games.SKIPPED
        check_matches(folder)
        check_losses(folder)
        check_no_room(folder)
        check_interrupt(folder)
    print("matches are as they should be")
    return 0


if __name__ == "__main__":
    sys.exit(main())
