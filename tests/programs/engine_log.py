"""The engine as the test hands it to a chess program: as it is, or behind two `tee` that write down
what is said; and what can be read from that. The engine takes the place of the shell, and so is the
host's own child in both cases."""
import re
import subprocess

from desktop import Failure

WRAPPER = """#!/bin/bash
exec {engine} < <(exec tee {folder}/$$.in) > >(exec tee {folder}/$$.out)
"""
MOVE = re.compile(r"[a-h][1-8][a-h][1-8][qrbn]?$")


def write_wrapper(path, engine, folder):
    folder.mkdir()
    path.write_text(WRAPPER.format(engine=engine, folder=folder))
    path.chmod(0o755)


def whole_lines(path):
    return path.read_text(errors="replace").rpartition("\n")[0].splitlines()


def answers(folder):
    """The moves of all engines that speak into a folder, in the order of each."""
    moves = []
    for path in sorted(folder.glob("*.out")):
        for line in whole_lines(path):
            words = line.split()
            if words[:1] == ["bestmove"]:
                if len(words) < 2 or not MOVE.match(words[1]):
                    raise Failure(f"the engine answers '{line}'")
                moves.append(words[1])
    return moves


def plies_of(words):
    """Half-moves of the game that a "position" tells of."""
    moves = words.index("moves") if "moves" in words else len(words)
    plies = max(len(words) - moves - 1, 0)
    if words[1] == "fen":
        plies += 2 * (int(words[7]) - 1) + (words[3] == "b")
    return plies


def plies_told(folder):
    """How far the host says that the game has come: what it took from the engine is in there."""
    most = 0
    for path in folder.glob("*.in"):
        for line in whole_lines(path):
            words = line.split()
            if words[:1] == ["position"]:
                most = max(most, plies_of(words))
    return most


class Adviser:
    """An engine of our own that finds the moves of the player who sits before the program."""

    def __init__(self, engine):
        self.process = subprocess.Popen([engine], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, bufsize=1)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def best_move(self, moves):
        self.process.stdin.write(f"position startpos moves {' '.join(moves)}\ngo depth 4\n")
        for line in self.process.stdout:
            words = line.split()
            if words[:1] == ["bestmove"]:
                return words[1]
        raise Failure("the engine that advises the player has ended")
