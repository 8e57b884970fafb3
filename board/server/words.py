"""What a page may say, and what of it is believed: nothing that has not been looked at here.

A page says JSON objects with a member `type`. Each reader below gives back a value that is safe to
be handed on, or raises Refusal with a sentence for the page. No text of a page ever becomes a line
of an engine's dialogue by itself: lines are made of parts that passed a pattern.
"""

import re

LONGEST_MESSAGE = 1 << 16   # bytes of one message; a game of 600 moves has some 6,000
MOST_PLIES = 3000           # half-moves of a game
MOST_LINES = 255            # of an analysis, as many as the engine gives
LONGEST_THINK = 3600 * 1000     # milliseconds of one search that has a limit
TASTE_NAMES = (
    "Mtl_Pawn", "Mtl_Knight", "Mtl_Bishop", "Mtl_Rook", "Mtl_Queen",
    "Activity_Knight", "Activity_Bishop", "Activity_Rook", "Activity_Queen",
    "Pawn_Structure", "Passed_Pawns", "King_Safety", "Threats")
LOWEST_SCALE, HIGHEST_SCALE = 20, 200   # per cent, as the engine keeps them

FEN = re.compile(r"[1-8pnbrqkPNBRQK/]{15,71} [wb] (?:-|K?Q?k?q?) (?:-|[a-h][36])"
                 r"(?: [0-9]{1,4} [0-9]{1,4})?")
MOVE = re.compile(r"[a-h][1-8][a-h][1-8][qrbn]?")
NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9 _-]{0,39}")
# Of a clock, milliseconds; of the others, what `go` of UCI means by them.
LIMITS = {"movetime": (1, LONGEST_THINK), "depth": (1, 100), "nodes": (1, 10**12),
          "wtime": (1, 10**8), "btime": (1, 10**8), "winc": (0, 10**7), "binc": (0, 10**7)}


class Refusal(Exception):
    """What a page said cannot be used; the text tells it why."""


def read_number(value, name, low, high):
    """A whole number of that range."""
    if isinstance(value, bool) or not isinstance(value, int) or not low <= value <= high:
        raise Refusal(f"{name} takes a whole number from {low} to {high}")
    return value


def read_fen(value):
    """A FEN by its form. Whether the position can be is for the engine to say."""
    if not isinstance(value, str) or FEN.fullmatch(value) is None:
        raise Refusal("that is no FEN")
    return value


def read_moves(value):
    """A list of moves as UCI writes them; the engine tells which of them are not legal."""
    if not isinstance(value, list) or len(value) > MOST_PLIES:
        raise Refusal(f"moves takes a list of at most {MOST_PLIES} moves")
    if not all(isinstance(move, str) and MOVE.fullmatch(move) for move in value):
        raise Refusal("there is something among the moves that is none")
    return value


def read_name(value):
    """A name that is one of a file as well: nothing but letters, figures, blanks, - and _."""
    if not isinstance(value, str) or NAME.fullmatch(value) is None:
        raise Refusal("a name has 1 to 40 letters, figures, blanks, - and _, "
                      "a letter or figure first")
    return value.rstrip()


def read_taste(value):
    """A taste as pairs of per cent, middle game and endgame, by the name of the option. What is
    left out is at 100."""
    if value is None:
        return {}
    if not isinstance(value, dict) or not set(value) <= set(TASTE_NAMES):
        raise Refusal("a taste names options that there are not")
    taste = {}
    for name in TASTE_NAMES:
        pair = value.get(name, [100, 100])
        if not isinstance(pair, list) or len(pair) != 2:
            raise Refusal(f"{name} takes two numbers")
        pair = tuple(read_number(half, name, LOWEST_SCALE, HIGHEST_SCALE) for half in pair)
        if pair != (100, 100):
            taste[name] = pair
    return taste


def read_limits(value):
    """The words behind `go`. Without a limit it is an analysis until `stop`."""
    if not isinstance(value, dict) or not set(value) <= set(LIMITS):
        raise Refusal("limits takes movetime, depth, nodes and clocks")
    words = [f"{name} {read_number(number, name, *LIMITS[name])}"
             for name, number in value.items()]
    return " ".join(words) or "infinite"


def read_position(message):
    """The line of UCI that sets up the position of a message."""
    moves = read_moves(message.get("moves", []))
    line = f"position fen {read_fen(message.get('fen'))}"
    return f"{line} moves {' '.join(moves)}" if moves else line
