#!/usr/bin/env python3
"""Compares Vesk's books with those of the Polyglot tool, which is the format's own home.

usage: judge_polyglot.py ENGINE GAMES.pgn

The tool counts the same games, reads a book that Vesk made, and makes one that Vesk plays from.
Ends with status 77, which counts as skipped, where the package 'polyglot' is not installed.
"""
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile

SKIPPED = 77
PLIES = 36               # of each game; Vesk stops at the end of the line that passes it
START_KEY = 0x463B96181691FC9C
FIRST_MOVES = {f"{file}{rank}": f"{file}2{file}{rank}" for file in "abcdefgh" for rank in "34"}
FIRST_MOVES |= {"Na3": "b1a3", "Nc3": "b1c3", "Nf3": "g1f3", "Nh3": "g1h3"}


class Failure(Exception):
    pass


def check(condition, text):
    if not condition:
        raise Failure(text)


def read_games(path):
    """The games of a file without comments: results and moves."""
    games = []
    with open(path, encoding="latin-1") as file:
        for line in file:
            if line.startswith("[Result"):
                games.append((line.split('"')[1], []))
            elif not line.startswith("["):
                words = re.sub(r"\d+\.+", " ", line).split()
                games[-1][1].extend(word for word in words if word[0].isalpha())
    return [(result, moves[:PLIES]) for result, moves in games]


def write_games(games, path, result=None):
    """Writes the games, each on a line, with their own results or all with the same."""
    with open(path, "w", encoding="latin-1") as file:
        for own_result, moves in games:
            end = result or own_result
            words = [f"{i // 2 + 1}. {move}" if i % 2 == 0 else move
                     for i, move in enumerate(moves)]
            file.write(f'[Event "t"]\n[Result "{end}"]\n\n{" ".join(words)} {end}\n\n')


def read_book(path):
    """The records of a book in their order: (key, move, weight)."""
    with open(path, "rb") as file:
        data = file.read()
    check(len(data) % 16 == 0, f"{path} has an odd rest")
    return [record[:3] for record in struct.iter_unpack(">QHHI", data)]


def move_text(move):
    def square(number):
        return "abcdefgh"[number % 8] + "12345678"[number // 8]
    return square(move >> 6 & 63) + square(move & 63)


def run(words):
    done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=120, check=False)
    text = done.stdout.decode("latin-1")
    check(done.returncode == 0 and "tellusererror" not in text,
          f"{' '.join(words)} ends with {done.returncode}:\n{text}")
    return text


def both_books(engine, tool, games, result):
    """Vesk's printed count of nodes, Vesk's book and the tool's, all out of the same games."""
    write_games(games, "games.pgn", result)
    text = run([engine, "-mkbook", "games.pgn"])
    run([tool, "make-book", "-pgn", "games.pgn", "-bin", "tool.bin", "-max-ply", str(PLIES),
         "-min-game", "1", "-min-score", "0"])
    return int(re.search(r"nmoves= (\d+)", text)[1]), read_book("tmp_book.bin"), \
        read_book("tool.bin")


def compare_counts(engine, tool, games):
    """How often each move was played, as both count it."""
    nodes, own, other = both_books(engine, tool, games, "1/2-1/2")
    check(own == [], "draws alone make no book")
    check(nodes == len(other), f"{nodes} nodes, the tool has {len(other)} moves")
    print(f"moves played: {nodes} in both")
    for result, winner in (("1-0", "White"), ("0-1", "Black")):
        nodes, own, other = both_books(engine, tool, games, result)
        # A won game is worth four in Vesk's book and two in the tool's; three wins are needed.
        own_counts = {record[:2]: record[2] / 4 for record in own}
        other_counts = {record[:2]: record[2] / 2 for record in other if record[2] >= 6}
        check(len(own) > 100, "too few records to compare")
        check(own_counts == other_counts, f"counts differ where {winner} wins")
        print(f"moves of {winner}, won three times or more: {len(own)} with the same counts")


def check_tool_reads_book(engine, tool, games):
    """The tool's list of lines begins with the moves and the shares of Vesk's book."""
    write_games(games, "games.pgn")
    run([engine, "-mkbook", "games.pgn"])
    records = [record for record in read_book("tmp_book.bin") if record[0] == START_KEY]
    check(len(records) >= 2, "too few first moves")
    run([tool, "dump-book", "-bin", "tmp_book.bin", "-color", "white", "-out", "lines.txt"])
    with open("lines.txt", encoding="latin-1") as file:
        found = dict(re.findall(r"^\d+: 1\. (\w+)\{(\d+)%\}", file.read(), re.M))
    total = sum(weight for _, _, weight in records)
    wanted = {move_text(move): 100 * weight // total for _, move, weight in records}
    read = {FIRST_MOVES[move]: int(share) for move, share in found.items()}
    check(read.keys() == wanted.keys(), f"first moves {read}, wanted {wanted}")
    for move, share in read.items():
        check(abs(share - wanted[move]) <= 1, f"shares {read}, wanted {wanted}")
    run([tool, "info-book", "-bin", "tmp_book.bin"])
    print(f"the tool reads Vesk's book: {len(read)} first moves with their shares")


class Player:
    def __init__(self, engine, book):
        self.process = subprocess.Popen([engine, "-book", book], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, encoding="latin-1", bufsize=1)
        self.send("setoption name OwnBook value true")
        self.send("setoption name OwnBook_Depth value 60")

    def send(self, line):
        self.process.stdin.write(line + "\n")

    def book_moves(self, moves):
        """The book's moves behind a game, and the move that is played."""
        self.send("position startpos" + (" moves " + " ".join(moves) if moves else ""))
        self.send("go depth 1")
        listed = []
        for line in self.process.stdout:
            if line.startswith("info string ( book moves are:"):
                listed = line.split()[6:-1]
            if line.startswith("bestmove"):
                return listed, line.split()[1]
        raise Failure("the engine has ended")

    def quit(self):
        self.send("quit")
        check(self.process.wait(10) == 0, "the engine ends badly")


def king_move(text):
    return {"e1h1": "e1g1", "e1a1": "e1c1", "e8h8": "e8g8", "e8a8": "e8c8"}.get(text, text)


def check_vesk_plays_book(engine, tool, games):
    write_games(games, "games.pgn")
    run([tool, "make-book", "-pgn", "games.pgn", "-bin", "tool.bin", "-min-game", "3"])
    lists = {}
    for key, move, weight in read_book("tool.bin"):
        if weight > 0:
            lists.setdefault(key, []).append(move_text(move))
    player = Player(engine, "tool.bin")
    longest = 0
    for _ in range(20):
        moves = []
        while True:
            listed, best = player.book_moves(moves)
            if not listed:
                break
            check(moves or listed == lists[START_KEY], f"first moves {listed}")
            check(listed in lists.values(), f"{listed} is no list of the book")
            check(best[:4] in listed or best[:4] in map(king_move, listed),
                  f"{best} is not of {listed}")
            moves.append(best)
        longest = max(longest, len(moves))
    player.quit()
    check(longest >= 4, f"only {longest} moves were played from the book")
    print(f"Vesk plays from the tool's book: up to {longest} moves of a game")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    engine, path = (os.path.abspath(name) for name in sys.argv[1:])
    tool = shutil.which("polyglot", path=os.environ.get("PATH", "") + ":/usr/games")
    if tool is None:
        print("skipped: the package 'polyglot' is not installed")
        sys.exit(SKIPPED)
    games = read_games(path)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        try:
            compare_counts(engine, tool, games)
            check_tool_reads_book(engine, tool, games)
            check_vesk_plays_book(engine, tool, games)
        except Failure as failure:
            sys.exit(f"FAILED: {failure}")
        finally:
            os.chdir("/")


if __name__ == "__main__":
    main()
