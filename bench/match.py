#!/usr/bin/env python3
"""Lets two UCI engines play a match and tells who is the stronger one.

    match.py [--games N] [--openings FILE] [--nodes N | --movetime MS] [--pgn FILE]
             [--concurrency N] FIRST SECOND

An engine is PROGRAM or PROGRAM@FOLDER. It runs in FOLDER, where Vesk looks for params.txt: so one
program can play against itself with two sets of weights. Each opening (a FEN or EPD a line) is
played twice, with the colours exchanged; without --games that is done once for each. A game ends by
mate or stalemate, the third repetition, fifty moves, bare material, or as a draw after 400
half-moves. Engines are taken to play legal moves; one that does not, or ends, loses the game.
"""

import argparse
import collections
import concurrent.futures
import math
import pathlib
import queue
import re
import subprocess
import sys

START = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq -"
LONGEST = 400           # half-moves
KNIGHT = ((1, 2), (2, 1), (2, -1), (1, -2), (-1, -2), (-2, -1), (-2, 1), (-1, 2))
KING = ((1, 0), (1, 1), (0, 1), (-1, 1), (-1, 0), (-1, -1), (0, -1), (1, -1))


class Board:
    """As much of the rules as it takes to see that a game has ended."""

    def __init__(self, text):
        fields = text.split()
        self.squares = {}
        for rank, row in zip(range(7, -1, -1), fields[0].split("/")):
            file = 0
            for char in row:
                if char.isdigit():
                    file += int(char)
                else:
                    self.squares[file, rank] = char
                    file += 1
        self.white = fields[1] == "w"
        self.castling = fields[2]
        self.passed = fields[3]
        self.quiet = 0
        self.seen = collections.Counter([self.key()])

    def key(self):
        return frozenset(self.squares.items()), self.white, self.castling, self.capturable()

    def capturable(self):
        """The square passed by a double step if a pawn stands to take there."""
        if self.passed == "-":
            return None
        file, rank = ord(self.passed[0]) - ord("a"), int(self.passed[1]) - 1
        pawn, side = ("P", rank - 1) if self.white else ("p", rank + 1)
        beside = any(self.squares.get((file + step, side)) == pawn for step in (-1, 1))
        return self.passed if beside else None

    def make(self, text):
        """Plays a move in coordinates; raises ValueError for what cannot be one."""
        if not re.fullmatch(r"[a-h][1-8][a-h][1-8][qrbn]?", text):
            raise ValueError(text)
        source, target = ((ord(text[i]) - ord("a"), int(text[i + 1]) - 1) for i in (0, 2))
        piece = self.squares.pop(source, None)
        if piece is None or piece.isupper() != self.white:
            raise ValueError(text)
        taken = self.squares.pop(target, None)
        pawn = piece in "Pp"
        if pawn and source[0] != target[0] and taken is None:
            self.squares.pop((target[0], source[1]), None)
        if piece in "Kk" and abs(source[0] - target[0]) == 2:
            corner = 7 if target[0] > source[0] else 0
            rook = self.squares.pop((corner, source[1]))
            self.squares[(source[0] + target[0]) // 2, source[1]] = rook
        if len(text) == 5:
            piece = text[4].upper() if self.white else text[4]
        self.squares[target] = piece
        for home, rights in (((4, 0), "KQ"), ((4, 7), "kq"), ((0, 0), "Q"), ((7, 0), "K"),
                             ((0, 7), "q"), ((7, 7), "k")):
            if home in (source, target):
                self.castling = "".join(right for right in self.castling if right not in rights)
        double = pawn and abs(source[1] - target[1]) == 2
        self.passed = f"{text[0]}{(source[1] + target[1]) // 2 + 1}" if double else "-"
        self.quiet = 0 if pawn or taken else self.quiet + 1
        self.white = not self.white
        self.seen[self.key()] += 1

    def in_check(self):
        """Whether the side to move stands in check."""
        king = next(at for at, piece in self.squares.items()
                    if piece == ("K" if self.white else "k"))

        def enemy(at, kinds):
            piece = self.squares.get(at, ".")
            return piece.isupper() != self.white and piece.lower() in kinds

        def beside(steps, kinds):
            return any(enemy((king[0] + x, king[1] + y), kinds) for x, y in steps)

        forward = 1 if self.white else -1
        if (beside(KNIGHT, "n") or beside(KING, "k")
                or beside(((-1, forward), (1, forward)), "p")):
            return True
        for x, y in KING:
            at = king[0] + x, king[1] + y
            while 0 <= at[0] < 8 and 0 <= at[1] < 8 and at not in self.squares:
                at = at[0] + x, at[1] + y
            if enemy(at, "rq" if x == 0 or y == 0 else "bq"):
                return True
        return False

    def draw(self):
        """Why the game is drawn, or None."""
        if self.seen[self.key()] >= 3:
            return "repetition"
        if self.quiet >= 100:
            return "fifty moves"
        rest = [piece for piece in self.squares.values() if piece not in "Kk"]
        if not rest or (len(rest) == 1 and rest[0] in "NnBb"):
            return "material"
        return None


class Engine:
    """One engine process."""

    def __init__(self, text):
        program, _, folder = text.partition("@")
        self.process = subprocess.Popen(
            [str(pathlib.Path(program).resolve())], cwd=folder or None, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.ask("uci", "uciok")

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def ask(self, line, answer):
        self.send(line)
        for reply in self.process.stdout:
            if reply.startswith(answer):
                return reply
        raise BrokenPipeError("the engine has ended")

    def move(self, opening, moves, limit):
        played = f" moves {' '.join(moves)}" if moves else ""
        self.send(f"position fen {opening} 0 1{played}")
        return self.ask(f"go {limit}", "bestmove").split()[1]

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()


def play(white, black, opening, limit):
    """Plays a game. Returns the result from white's view, 1, 0.5 or 0, why, and the moves."""
    board = Board(opening)
    moves = []
    for engine in (white, black):
        engine.send("ucinewgame")
    while len(moves) < LONGEST:
        side = 1 if board.white else 0
        why = board.draw()
        if why:
            return 0.5, why, moves
        try:
            move = (white if board.white else black).move(opening, moves, limit)
            if move in ("null", "(none)", "0000"):
                return (1 - side, "mate", moves) if board.in_check() else (0.5, "stalemate", moves)
            board.make(move)
        except (OSError, ValueError, KeyError) as problem:
            return 1 - side, f"forfeit: {problem}", moves
        moves.append(move)
    return 0.5, "length", moves


def play_pair(names, waiting, opening, limit, games):
    """Plays an opening with both colours, games of them, by engines that wait for a game. Returns
    results for the first engine."""
    results = []
    engines = waiting.get()
    for turn in range(games):
        white, black = engines if turn == 0 else reversed(engines)
        result, why, moves = play(white, black, opening, limit)
        results.append((result if turn == 0 else 1 - result, turn, result, why, moves))
        if why.startswith("forfeit"):
            for engine in engines:
                engine.close()
            engines = [Engine(name) for name in names]
    waiting.put(engines)
    return results


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


def write_game(file, names, opening, game):
    _, turn, result, why, moves = game
    white, black = names if turn == 0 else reversed(names)
    text = {1: "1-0", 0: "0-1", 0.5: "1/2-1/2"}[result]
    file.write(f'[White "{white}"]\n[Black "{black}"]\n[Result "{text}"]\n[SetUp "1"]\n'
               f'[FEN "{opening} 0 1"]\n[Termination "{why}"]\n\n{" ".join(moves)} {text}\n\n')


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
    lines = path.read_text(encoding="ascii").splitlines() if path else [START]
    return [" ".join(line.split()[:4]) for line in lines if line.strip() and line[0] not in "#;"]


def main():
    options = arguments()
    names = options.first, options.second
    limit = f"movetime {options.movetime}" if options.movetime else f"nodes {options.nodes}"
    openings = read_openings(options.openings)
    games = options.games or 2 * len(openings)
    results = []
    waiting = queue.Queue()
    for _ in range(options.concurrency):
        waiting.put([Engine(name) for name in names])
    with concurrent.futures.ThreadPoolExecutor(options.concurrency) as pool:
        pairs = []
        for first in range(0, games, 2):
            opening = openings[first // 2 % len(openings)]
            pairs.append((opening, pool.submit(
                play_pair, names, waiting, opening, limit, min(2, games - first))))
        for opening, pair in pairs:
            for game in pair.result():
                results.append(game[0])
                if options.pgn:
                    with options.pgn.open("a", encoding="ascii") as file:
                        write_game(file, names, opening, game)
                if game[3].startswith("forfeit"):
                    print(game[3], file=sys.stderr)
            if sys.stderr.isatty():
                print(f"\r{summary(results)}", end="", file=sys.stderr)
    while not waiting.empty():
        for engine in waiting.get():
            engine.close()
    if sys.stderr.isatty():
        print(file=sys.stderr)
    print(summary(results))
    return 0


if __name__ == "__main__":
    sys.exit(main())
