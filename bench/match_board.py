"""Where the pieces of a game stand: what moves do to squares, and no rules. Whether a move is legal
and how a game has ended is known from the referee alone; the board only tells when asking it can be
worth while, which costs as much time as some moves.
"""

import collections

FIFTY_MOVES = 100       # half-moves
SQUARES = {f"{file}{rank}": 8 * (8 - rank) + column
           for column, file in enumerate("abcdefgh") for rank in range(1, 9)}
EMPTY = "."
MATING = frozenset("QRPqrp")    # pieces that leave no game drawn by bare material
# A king's two squares to the side, and what its rook does.
ROOK_LEAPS = {("e1", "g1"): ("h1", "f1"), ("e1", "c1"): ("a1", "d1"),
              ("e8", "g8"): ("h8", "f8"), ("e8", "c8"): ("a8", "d8")}
STRAIGHT = ((0, 1), (0, -1), (1, 0), (-1, 0))
DIAGONAL = ((1, 1), (1, -1), (-1, 1), (-1, -1))
LEAPS = ((1, 2), (1, -2), (-1, 2), (-1, -2), (2, 1), (2, -1), (-2, 1), (-2, -1))


def squares_of(fen):
    """The 64 squares of a FEN as one text, from a8 to h8 and down."""
    text = fen.split()[0].replace("/", "")
    for digit in "12345678":
        text = text.replace(digit, EMPTY * int(digit))
    return text


class Board:
    """The squares behind each half-move of a game."""

    def __init__(self, fen):
        self.squares = list(squares_of(fen))
        self.whites_turn = fen.split()[1] == "w"
        self.quiet = 0                              # half-moves without a capture or a pawn's move
        self.positions = ["".join(self.squares)]
        self.seen = collections.Counter([(self.positions[0], self.whites_turn)])
        self.may_be_over = False

    def play(self, move):
        """Plays a word of UCI's. False, with nothing done, if no piece of the mover stands there,
        or one stands on its target."""
        source, target = SQUARES[move[:2]], SQUARES[move[2:4]]
        piece, taken = self.squares[source], self.squares[target]
        if piece == EMPTY or piece.isupper() != self.whites_turn or \
                (taken != EMPTY and taken.isupper() == self.whites_turn):
            return False
        is_pawn = piece in "Pp"
        if is_pawn and source % 8 != target % 8 and taken == EMPTY:     # en passant
            self.squares[source // 8 * 8 + target % 8] = EMPTY
        leap = ROOK_LEAPS.get((move[:2], move[2:4])) if piece in "Kk" else None
        if leap:
            rook, beside = SQUARES[leap[0]], SQUARES[leap[1]]
            self.squares[beside], self.squares[rook] = self.squares[rook], EMPTY
        if len(move) > 4:
            piece = move[4].upper() if self.whites_turn else move[4]
        self.squares[target], self.squares[source] = piece, EMPTY
        self.whites_turn = not self.whites_turn
        self.quiet = 0 if is_pawn or taken != EMPTY else self.quiet + 1
        position = "".join(self.squares)
        self.positions.append(position)
        self.seen[position, self.whites_turn] += 1
        # Castling and en passant are looked over, so this is true at least where it must be.
        self.may_be_over = (self.quiet >= FIFTY_MOVES
                            or self.seen[position, self.whites_turn] >= 3
                            or (position.count(EMPTY) >= 61 and MATING.isdisjoint(position)))
        return True


def is_attacked(squares, square, by_white):
    """Whether a piece of that side attacks the square."""
    row, column = divmod(square, 8)

    def at(rows, columns):
        if not (0 <= row + rows < 8 and 0 <= column + columns < 8):
            return None
        return squares[8 * (row + rows) + column + columns]

    def is_one_of(piece, kinds):
        return piece in (kinds.upper() if by_white else kinds)

    for ways, kinds in ((STRAIGHT, "rq"), (DIAGONAL, "bq")):
        for rows, columns in ways:
            distance = 1
            while at(distance * rows, distance * columns) == EMPTY:
                distance += 1
            piece = at(distance * rows, distance * columns)
            if piece and is_one_of(piece, kinds):
                return True
    steps = [(way, "n") for way in LEAPS] + [(way, "k") for way in STRAIGHT + DIAGONAL]
    steps += [((1 if by_white else -1, side), "p") for side in (-1, 1)]
    return any(is_one_of(at(*way) or EMPTY, kind) for way, kind in steps)


def find_fault(fen):
    """What keeps a text from being a position to play from, or None."""
    fields = fen.split()
    if len(fields) < 4:
        return "a position has four fields: pieces, side, castling, en passant"
    ranks = fields[0].split("/")
    if len(ranks) != 8:
        return f"{len(ranks)} ranks in place of 8"
    for number, rank in zip(range(8, 0, -1), ranks):
        if any(char not in "pnbrqkPNBRQK12345678" for char in rank):
            return f"rank {number} holds what is no piece: {rank}"
        width = sum(int(char) if char.isdigit() else 1 for char in rank)
        if width != 8:
            return f"rank {number} has {width} squares"
    squares = squares_of(fen)
    for king, name in (("K", "white"), ("k", "black")):
        if squares.count(king) != 1:
            return f"{squares.count(king)} {name} kings"
    if any(char in "Pp" for char in squares[:8] + squares[56:]):
        return "a pawn on the first or the last rank"
    if fields[1] not in ("w", "b"):
        return f"the side to move is '{fields[1]}'"
    if fields[2] != "-" and any(char not in "KQkq" for char in fields[2]):
        return f"the castling rights are '{fields[2]}'"
    for right, king, rook in (("K", "e1", "h1"), ("Q", "e1", "a1"), ("k", "e8", "h8"),
                              ("q", "e8", "a8")):
        pieces = squares[SQUARES[king]] + squares[SQUARES[rook]]
        if right in fields[2] and pieces != ("KR" if right.isupper() else "kr"):
            return f"the castling right {right} without its king and rook at home"
    if fields[3] != "-" and fields[3] not in SQUARES:
        return f"the en-passant square is '{fields[3]}'"
    waiting = squares.index("k" if fields[1] == "w" else "K")
    if is_attacked(squares, waiting, fields[1] == "w"):
        return "the side that is not to move is in check"
    return None
