#!/usr/bin/env python3
"""Lets two UCI engines play a match and tells who is the stronger one.

    match.py [--games N] [--openings FILE] [--nodes N | --movetime MS] [--pgn FILE]
             [--concurrency N] FIRST SECOND

An engine is PROGRAM or PROGRAM@FOLDER. It runs in FOLDER, where Vesk looks for params.txt: so one
program can play against itself with two sets of weights. Each opening (a FEN or EPD a line) is
played twice, with the colours exchanged; without --games that is done once for each. A game ends by
mate or stalemate, the third repetition, fifty moves, bare material, or as a draw after 400
half-moves, as the package pgn-extract finds it to be. An engine that plays an illegal move, ends,
or says nothing for five minutes loses the game.
"""

import argparse
import concurrent.futures
import math
import pathlib
import queue
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "scripts"))

import uci_games
from uci_games import EngineFault, Game, Record

LONGEST = 400           # half-moves
REPLY_LIMIT = 300.0     # seconds
NO_MOVE = ("null", "(none)", "0000")


def start_engine(text):
    program, _, folder = text.partition("@")
    engine = uci_games.Engine(str(pathlib.Path(program).resolve()), folder or None,
                              errors=subprocess.DEVNULL)
    engine.send("uci")
    engine.wait_for("uciok", REPLY_LIMIT)
    return engine


def ask_move(engine, record, limit):
    played = f" moves {' '.join(record.moves)}" if record.moves else ""
    engine.send(f"position fen {record.fen}{played}")
    engine.send(f"go {limit}")
    words = engine.wait_for("bestmove", REPLY_LIMIT)[0].split()
    return words[1] if len(words) > 1 else ""


def forfeit(plies, whites_turn, reason):
    return plies, "0-1" if whites_turn else "1-0", f"forfeit: {reason}"


def find_result(record, white_begins, is_last=False):
    """Half-moves, result and reason of a game that is over, or None."""
    end = record.find_end(is_last)
    if end is None or end[1] != "*":
        return end
    return forfeit(end[0], (end[0] % 2 == 0) == white_begins, end[2])


def play(white, black, fen, limit):
    """Plays a game and gives it, with what the referee is to find true of it."""
    record = Record(fen, [])
    white_begins = fen.split()[1] == "w"
    for engine in (white, black):
        engine.send("ucinewgame")
    end = find_result(record, white_begins)
    while end is None and len(record.moves) < LONGEST:
        whites_turn = (len(record.moves) % 2 == 0) == white_begins
        try:
            move = ask_move(white if whites_turn else black, record, limit)
        except EngineFault as fault:
            end = find_result(record, white_begins, is_last=True)
            end = end or forfeit(len(record.moves), whites_turn, fault)
            break
        if not uci_games.is_move(move):
            reason = "no move" if move in NO_MOVE else f"illegal move {move}"
            end = find_result(record, white_begins, is_last=True)
            end = end or forfeit(len(record.moves), whites_turn, reason)
            break
        record.moves.append(move)
        end = find_result(record, white_begins)
    end = end or find_result(record, white_begins, is_last=True)
    plies, result, why = end or (len(record.moves), "1/2-1/2", "length")
    claim = {"length": "unfinished"}.get(why, None if why.startswith("forfeit") else why)
    return Game(record.moves[:plies], fen, result=result, claim=claim, tags={"Termination": why})


def play_pair(names, waiting, opening, limit, games):
    """Plays an opening with both colours, games of them, by engines that wait for a game."""
    played = []
    engines = waiting.get()
    for turn in range(games):
        order = (0, 1) if turn == 0 else (1, 0)
        game = play(*(engines[side] for side in order), f"{opening} 0 1", limit)
        game.tags.update(White=names[order[0]], Black=names[order[1]])
        played.append(game)
        if game.tags["Termination"].startswith("forfeit"):
            for engine in engines:
                engine.close()
            engines = [start_engine(name) for name in names]
    waiting.put(engines)
    return played


def points(game, is_first_white):
    """What the game is worth for the first engine."""
    white = {"1-0": 1, "0-1": 0, "1/2-1/2": 0.5}[game.result]
    return white if is_first_white else 1 - white


def elo(share):
    return -400 * math.log10(1 / share - 1) if 0 < share < 1 else math.copysign(math.inf, share - .5)


def summary(results):
    """Wins, draws and losses of the first engine, and the difference in Elo with its error."""
    count = len(results)
    wins, draws = results.count(1), results.count(0.5)
    share = sum(results) / count
    deviation = math.sqrt(sum((result - share) ** 2 for result in results) / count / count)
    low, high = (elo(min(max(share + sign * 1.96 * deviation, 0), 1)) for sign in (-1, 1))
    return (f"games {count}: won {wins}, drawn {draws}, lost {count - wins - draws}; "
            f"{100 * share:.1f} %, Elo {elo(share):+.1f} ({low:+.1f} to {high:+.1f} with 95 %)")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--games", type=int)
    parser.add_argument("--openings", type=pathlib.Path)
    parser.add_argument("--nodes", type=int, default=10000)
    parser.add_argument("--movetime", type=int)
    parser.add_argument("--concurrency", type=int, default=1)
    parser.add_argument("--pgn", type=pathlib.Path)
    parser.add_argument("first")
    parser.add_argument("second")
    return parser.parse_args()


def read_openings(path):
    lines = path.read_text(encoding="ascii").splitlines() if path else [uci_games.START]
    return [" ".join(line.split()[:4]) for line in lines if line.strip() and line[0] not in "#;"]


def play_all(options, names, openings):
    """Plays the games one opening after the other. Gives them, and their points."""
    limit = f"movetime {options.movetime}" if options.movetime else f"nodes {options.nodes}"
    count = options.games or 2 * len(openings)
    games, results = [], []
    waiting = queue.Queue()
    for _ in range(options.concurrency):
        waiting.put([start_engine(name) for name in names])
    with concurrent.futures.ThreadPoolExecutor(options.concurrency) as pool:
        pairs = [pool.submit(play_pair, names, waiting, openings[first // 2 % len(openings)], limit,
                             min(2, count - first)) for first in range(0, count, 2)]
        for pair in pairs:
            for turn, game in enumerate(pair.result()):
                games.append(game)
                results.append(points(game, turn == 0))
                if options.pgn:
                    with options.pgn.open("a", encoding="ascii") as file:
                        file.write(uci_games.to_pgn(game, {"Round": len(games)}))
                if game.tags["Termination"].startswith("forfeit"):
                    print(game.tags["Termination"], file=sys.stderr)
            if sys.stderr.isatty():
                print(f"\r{summary(results)}", end="", file=sys.stderr)
    while not waiting.empty():
        for engine in waiting.get():
            engine.close()
    if sys.stderr.isatty():
        print(file=sys.stderr)
    return games, results


def main():
    options = arguments()
    if uci_games.find_referee() is None:
        print("The games are judged by pgn-extract, which is not installed: "
              "apt-get install pgn-extract", file=sys.stderr)
        return 2
    games, results = play_all(options, (options.first, options.second),
                              read_openings(options.openings))
    wrong = [complaint for complaint in uci_games.judge(games) if complaint is not None]
    for complaint in wrong:
        print(complaint, file=sys.stderr)
    print(summary(results))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
