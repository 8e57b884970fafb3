#!/usr/bin/env python3
"""Fits what vesk-uci tells about a score's chances (Source/host/chances.cpp) to games that it plays
against itself.

    fit_chances.py [--games N] [--nodes N] [--seed N] [--jobs N] [ENGINE]

A game begins with eight half-moves by lot and goes on if a search finds it within 1.5 pawns. Both
sides think for so many nodes a move. It ends by mate, stalemate, the third repetition, fifty moves
or bare kings, and as a draw after 300 half-moves; the board is the engine's own. Each position from
the twentieth half-move on gives its score, from the mover's view, and the result.

The chance of a win is 1 / (1 + exp((a - score) / b)), that of a loss the same for the negative
score, and the rest is the draw's: a and b, in centipawns, are those that make what happened most
likely. Below them the chances are shown beside what happened, by score.
"""

import argparse
import collections
import concurrent.futures
import math
import os
import pathlib
import random
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "scripts"))

import uci_games

LIMIT = 300.0           # seconds for a reply
RANDOM_PLIES = 8
BALANCED = 150          # centipawns
FIRST_PLY = 20
LONGEST = 300           # half-moves
LARGEST = 1500          # centipawns; decided anyway
SCORE = re.compile(r" score cp (-?\d+) ")
MATE = re.compile(r" score mate (-?\d+)")


class Player:
    """An engine, and the game on its board."""

    def __init__(self, path, nodes):
        self.engine = uci_games.Engine(str(path))
        self.nodes = nodes
        self.engine.send("uci")
        self.engine.wait_for("uciok", LIMIT)

    def ask(self, line, end):
        lines = []
        self.engine.send(line)
        self.engine.wait_for(end, LIMIT, lines.append)
        return lines

    def set_up(self, moves):
        self.engine.send("position startpos" + (f" moves {' '.join(moves)}" if moves else ""))

    def look(self):
        """FEN and key of the board."""
        lines = self.ask("d", "Key:")
        return lines[-2].split(": ", 1)[1], lines[-1]

    def legal_moves(self):
        self.engine.send("setoption name MultiPV value 255")
        lines = self.ask("go depth 1", "bestmove")
        self.engine.send("setoption name MultiPV value 1")
        return sorted({line.split(" pv ")[1].split()[0] for line in lines if " pv " in line})

    def search(self):
        """Score, or a mate's sign times infinity, and move; None for no move."""
        lines = self.ask(f"go nodes {self.nodes}", "bestmove")
        move = lines[-1].split()[1]
        said = [line for line in lines if " score " in line]
        mate = MATE.search(said[-1])
        if mate:
            sign = -1 if mate.group(1).startswith("-") or mate.group(1) == "0" else 1
            return sign * math.inf, move
        return int(SCORE.search(said[-1] + " ").group(1)), move


def is_drawn(fen, seen):
    pieces = fen.split()[0]
    return (max(seen.values()) >= 3 or int(fen.split()[4]) >= 100
            or not re.search("[pqr]", pieces, re.IGNORECASE)
            and len(re.findall("[bn]", pieces, re.IGNORECASE)) < 2)


def open_game(player, dice):
    while True:
        moves = []
        for _ in range(RANDOM_PLIES):
            player.set_up(moves)
            legal = player.legal_moves()
            if not legal:
                break
            moves.append(dice.choice(legal))
        player.set_up(moves)
        if len(moves) == RANDOM_PLIES and abs(player.search()[0]) <= BALANCED:
            return moves


def play_game(path, nodes, seed):
    """Pairs of score and result, 1, 0.5 or 0, from the mover's view."""
    dice = random.Random(seed)
    player = Player(path, nodes)
    try:
        player.engine.send("ucinewgame")
        moves = open_game(player, dice)
        scores = []
        seen = collections.Counter()
        white = 0.5
        while len(moves) < LONGEST:
            player.set_up(moves)
            fen, key = player.look()
            seen[key] += 1
            if is_drawn(fen, seen):
                break
            score, move = player.search()
            if move == "(none)":
                if score == -math.inf:
                    white = float(len(moves) % 2)
                break
            scores.append((len(moves), score))
            moves.append(move)
    finally:
        player.engine.close()
    return [(score, white if ply % 2 == 0 else 1 - white) for ply, score in scores
            if ply >= FIRST_PLY and abs(score) <= LARGEST]


def chance_of_win(score, a, b):
    return 1 / (1 + math.exp(max(-700.0, min(700.0, (a - score) / b))))


def chance(score, result, a, b):
    win, loss = chance_of_win(score, a, b), chance_of_win(-score, a, b)
    return {1.0: win, 0.0: loss, 0.5: 1 - win - loss}[result]


def cost(counts, a, b):
    return -sum(number * math.log(max(1e-9, chance(score, result, a, b)))
                for (score, result), number in counts.items())


def fit(counts):
    """By steps that are halved where none of them helps."""
    a, b, step = 100.0, 100.0, 64.0
    best = cost(counts, a, b)
    while step >= 0.5:
        tries = [(a + da, b + db) for da, db in ((step, 0), (-step, 0), (0, step), (0, -step))
                 if a + da > 0 and b + db > 5]
        found = min((cost(counts, *point), point) for point in tries)
        if found[0] < best:
            best, (a, b) = found
        else:
            step /= 2
    return a, b


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--games", type=int, default=400)
    parser.add_argument("--nodes", type=int, default=10000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("engine", nargs="?", type=pathlib.Path, default=ROOT / "vesk-uci")
    arguments = parser.parse_args()
    engine = arguments.engine.resolve()
    seeds = range(arguments.seed, arguments.seed + arguments.games)
    samples = []
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for done, found in enumerate(pool.map(
                lambda seed: play_game(engine, arguments.nodes, seed), seeds), 1):
            samples += found
            if sys.stderr.isatty():
                print(f"\r{done} games, {len(samples)} positions", end="", file=sys.stderr)
    counts = collections.Counter(samples)
    a, b = fit(counts)
    print(f"{arguments.games} games of {arguments.nodes} nodes a move, {len(samples)} positions")
    print(f"a = {a:.0f}, b = {b:.0f} centipawns; "
          f"cost a position {cost(counts, a, b) / len(samples):.4f}")
    print("score  positions   won  drawn  lost   curve: won  drawn  lost")
    groups = collections.defaultdict(collections.Counter)
    for (score, result), number in counts.items():
        groups[round(score / 100)][result] += number
    for group in sorted(groups):
        if abs(group) > 6:
            continue
        total = sum(groups[group].values())
        won, drawn, lost = (groups[group][result] / total for result in (1.0, 0.5, 0.0))
        win, loss = chance_of_win(100 * group, a, b), chance_of_win(-100 * group, a, b)
        print(f"{100 * group:5} {total:10} {won:5.2f} {drawn:6.2f} {lost:5.2f} "
              f"{win:12.2f} {1 - win - loss:6.2f} {loss:5.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
