"""What the scripts share that let UCI engines talk and play: an engine's process, the games as PGN,
and the referee, the program pgn-extract, an independent reader of the rules. There are no rules of
chess in here: whether a move is legal and how a game stands is known from the referee alone.

Moves are words of UCI's notation everywhere. The referee reads them as long algebraic ones and
prints what it has understood in the long notation too, so that whatever it has read otherwise than
it was written shows as a difference.
"""

import collections
import dataclasses
import os
import queue
import re
import shutil
import subprocess
import threading
import time

SKIPPED = 77            # status of a test that lacks what it needs
START = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"
MOVE = re.compile(r"[a-h][1-8][a-h][1-8][qrbn]?")
PRINTED_MOVE = re.compile(r"\b([KQRBN]?)([a-h][1-8])([-x])([a-h][1-8])([QRBN]?)(?!\S)")
REFEREE_LIMIT = 300     # seconds
LOOK_EVERY = 8          # half-moves of a game between two looks of the referee
FIFTY_MOVES = 100       # half-moves
DRAWS = ("stalemate", "repetition", "fifty moves", "material")


# ---- Engines.

class EngineFault(Exception):
    """An engine that says nothing or has ended."""


class Engine:
    """An engine's process and the lines that it has printed and nobody has taken."""

    def __init__(self, path, folder=None, words=(), errors=subprocess.PIPE):
        self.process = subprocess.Popen(
            [path, *words], cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=errors, text=True, errors="replace")
        self.lines = queue.Queue()      # lines and the times of their arrival; None at the end
        self.errors = []
        self.readers = [threading.Thread(target=self.read_output, daemon=True)]
        if errors == subprocess.PIPE:
            self.readers.append(threading.Thread(target=self.read_errors, daemon=True))
        for reader in self.readers:
            reader.start()

    def read_output(self):
        for line in self.process.stdout:
            self.lines.put((line.rstrip("\n"), time.monotonic()))
        self.lines.put((None, time.monotonic()))

    def read_errors(self):
        self.errors.extend(self.process.stderr)

    def send(self, line):
        try:
            self.process.stdin.write(line + "\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            raise EngineFault("the engine has ended") from None

    def wait_for(self, start, limit, take=None):
        """Takes lines up to the one that begins with start; gives it and the time when it came.
        Each line is handed to take, if there is one."""
        end = time.monotonic() + limit
        while True:
            try:
                line, when = self.lines.get(timeout=max(0.0, end - time.monotonic()))
            except queue.Empty:
                raise EngineFault(f"no '{start}' within {limit:g} s") from None
            if line is None:
                self.lines.put((None, when))
                raise EngineFault(f"the engine ended while '{start}' was awaited")
            if take is not None:
                take(line)
            if line.startswith(start):
                return line, when

    def wait_for_end(self, limit, take):
        """Takes what the engine prints before it ends, and gives its status."""
        end = time.monotonic() + limit
        try:
            while True:
                line, _ = self.lines.get(timeout=max(0.0, end - time.monotonic()))
                if line is None:
                    return self.process.wait(timeout=max(0.1, end - time.monotonic()))
                take(line)
        except (queue.Empty, subprocess.TimeoutExpired):
            raise EngineFault(f"no end within {limit:g} s of quit") from None

    def close(self):
        """An engine may outlive its standard input."""
        self.process.kill()
        self.process.wait()
        for reader in self.readers:
            reader.join()
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        self.process.stdout.close()


# ---- Games as PGN.

@dataclasses.dataclass
class Game:
    """Moves from a position on, and what is to be true of them."""
    moves: list
    fen: str = START
    # Lines that were printed on the way: how many half-moves stood on the board, the line's moves,
    # and the text to show for it.
    lines: list = dataclasses.field(default_factory=list)
    result: str = "*"
    # None for legal moves alone; "checkmate" or one of the draws; "no move" for a mate or a
    # stalemate; "over" for these and fifty moves; "unfinished" for neither mate nor stalemate.
    claim: str | None = None
    tags: dict = dataclasses.field(default_factory=dict)


def is_move(word):
    return MOVE.fullmatch(word) is not None


def movetext(moves, variations, result):
    """The moves, a half-move a line, behind each the variations that stand in its place."""
    rows = []
    for ply, move in enumerate(moves):
        beside = (f"( {' '.join(line)} )" for line in variations.get(ply, ()))
        rows.append(" ".join([move, *beside]))
    return "\n".join([*rows, result])


def pgn_text(tags, fen, text):
    if fen != START:
        tags = {**tags, "SetUp": "1", "FEN": fen}
    rows = [f'[{name} "{value}"]\n' for name, value in tags.items()]
    return "".join(rows) + f"\n{text}\n\n"


def to_pgn(game, tags):
    """A game without its lines."""
    return pgn_text({"Event": "?", **tags, **game.tags, "Result": game.result}, game.fen,
                    " ".join([*game.moves, game.result]))


def longest_lines(lines):
    """The different ones, without those that another one begins with."""
    kept = []
    for line in sorted(set(lines)):
        if kept and line[:len(kept[-1])] == kept[-1]:
            kept.pop()
        kept.append(line)
    return kept


# ---- The referee.

class RefereeFault(Exception):
    """The referee did not do its work: nothing is known of the games."""


def find_referee():
    """The path of pgn-extract, or None. PGN_EXTRACT names one that lies elsewhere."""
    places = os.environ.get("PATH", "") + os.pathsep + "/usr/games"
    return shutil.which(os.environ.get("PGN_EXTRACT", "pgn-extract"), path=places)


def as_written(match):
    """A move that the referee has printed as UCI writes it, or what is none."""
    piece, source, sign, target, promotion = match.groups()
    # The referee lets a pawn walk onto an enemy's square as if it took the piece there.
    if not piece and sign == "x" and source[0] == target[0]:
        return f"{source}-onto-{target}"
    return source + target + promotion.lower()


def run_referee(text, *words):
    """What the referee prints of the games, as it comes: their numbers, and of each its result and
    its moves."""
    path = find_referee()
    if path is None:
        raise RefereeFault("pgn-extract is not installed")
    words = [path, "-s", "--nomovenumbers", *words]
    answer = subprocess.run(words, input=text, text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, timeout=REFEREE_LIMIT)
    if answer.returncode != 0:
        raise RefereeFault(f"{' '.join(words)}: status {answer.returncode}\n{answer.stderr}")
    found = {}
    for block in answer.stdout.split("[Event ")[1:]:
        tags, _, moves = block.partition("\n\n")
        number = int(re.search(r'\[Round "(\d+)"\]', tags).group(1))
        result = re.search(r'\[Result "([^"]*)"\]', tags).group(1)
        found[number] = result, moves
    return found


def ask_referee(text, *words):
    """What the referee prints of the games: their numbers, and of each its result and its moves
    with what stands between them, in one line. Games with an illegal move are left out, or end
    before it if they are to be kept broken."""
    found = run_referee(text, "-Wxlalg", "--nochecks", *words)
    return {number: (result, " ".join(PRINTED_MOVE.sub(
        as_written, moves.replace("(", " ( ").replace(")", " ) ")).split()))
            for number, (result, moves) in found.items()}


def numbered(number, fen, text, result):
    return pgn_text({"Event": "?", "Round": number, "Result": result}, fen, text)


def count_legal(starts):
    """Of each position with moves, how many of them are legal in turn."""
    text = "".join(numbered(number, fen, movetext(moves, {}, "*"), "*")
                   for number, (fen, moves) in enumerate(starts))
    found = ask_referee(text, "--keepbroken", "-C")
    counts = []
    for number, (_, moves) in enumerate(starts):
        read = found.get(number, ("*", ""))[1].split()
        pairs = enumerate(zip(moves, read))
        shortest = min(len(moves), len(read))
        counts.append(next((ply for ply, (move, own) in pairs if move != own), shortest))
    return counts


@dataclasses.dataclass
class Look:
    """How a game stands: how many of its moves are legal, the half-moves without progress, and
    where it has ended first, if it has: after how many half-moves, with what result, and why."""
    legal: int
    quiet: int
    end: tuple | None


def is_bare(fen):
    """Whether the pieces of a position mate in no way: at most a bishop or a knight."""
    if re.match(r"\S*[QRPqrp]", fen):
        return False
    pieces = [char for char in fen.split()[0] if char.isalpha() and char not in "Kk"]
    return not pieces or (len(pieces) == 1 and pieces[0] in "NnBb")


def look_at(fen, moves):
    """The referee's view of a game that is being played. Its own tests decide in the end."""
    found = ask_referee(numbered(0, fen, movetext(moves, {}, "*"), "*"), "--keepbroken",
                        "--fencomments", "--fixresulttags")
    result, text = found.get(0, ("*", ""))
    # A broken move's own comment stands before that of the position.
    read = re.findall(rf"({MOVE.pattern}) (?:\{{[^}}/]*\}} )?\{{ ([^}}]*/[^}}]*) \}}", text)
    legal = next((ply for ply, (move, own) in enumerate(zip(moves, read))
                  if move != own[0]), min(len(moves), len(read)))
    return make_look([fen, *(own[1] for own in read[:legal])], len(moves), result)


def make_look(fens, plies, result):
    """The look at a game of so many half-moves, whose legal ones lead to the positions."""
    end = None
    seen = collections.Counter()
    for ply, position in enumerate(fens):
        fields = position.split()
        seen[tuple(fields[:4])] += 1
        is_last = ply == plies
        if is_last and result != "*":
            end = ply, result, "stalemate" if result == "1/2-1/2" else "checkmate"
        elif seen[tuple(fields[:4])] >= 3:
            end = ply, "1/2-1/2", "repetition"
        elif int(fields[4]) >= FIFTY_MOVES:
            end = ply, "1/2-1/2", "fifty moves"
        elif is_bare(position):
            end = ply, "1/2-1/2", "material"
        if end:
            break
    return Look(len(fens) - 1, int(fens[-1].split()[4]), end)


def retell(fen, moves, is_so):
    """The referee's view of a game, and its moves as people write them. is_so says of the position
    behind so many half-moves whether it is the one that the moves were meant to lead to."""
    found = run_referee(numbered(0, fen, movetext(moves, {}, "*"), "*"), "-Wsan", "--keepbroken",
                        "--fencomments", "--fixresulttags")
    result, text = found.get(0, ("*", ""))
    # A broken move's own comment stands before that of the position.
    read = re.findall(r"([^\s{}]+) (?:\{ [^}/]* \} )?\{ ([^}]*/[^}]*) \}", " ".join(text.split()))
    legal = next((ply for ply, (_, position) in enumerate(read) if not is_so(ply + 1, position)),
                 len(read))
    look = make_look([fen, *(position for _, position in read[:legal])], len(moves), result)
    return look, [move for move, _ in read[:legal]]


class Record:
    """A game that is being played, which the referee looks at now and then, and whenever it may
    have come to fifty moves without progress: it may go on for some moves behind its end, which is
    found all the same."""

    def __init__(self, fen, moves, every=LOOK_EVERY):
        self.fen = fen
        self.moves = list(moves)
        self.every = every
        self.next_look = 0

    def find_end(self, is_last=False):
        """Half-moves, result and reason, or None if the game goes on as far as is known; an illegal
        move ends it without a result. With is_last it is known for sure."""
        if len(self.moves) < self.next_look and not is_last:
            return None
        look = look_at(self.fen, self.moves)
        self.next_look = len(self.moves) + min(self.every, max(1, FIFTY_MOVES - look.quiet))
        if look.end is None and look.legal < len(self.moves):
            return look.legal, "*", f"illegal move {self.moves[look.legal]}"
        return look.end


def find_fault(game):
    """What is not legal in a game that the referee has not read as it was written."""
    starts = [(game.fen, game.moves), *((game.fen, [*game.moves[:ply], *line])
                                        for ply, line, _ in game.lines)]
    texts = ["the game", *(f"the line {text}" for _, _, text in game.lines)]
    for (fen, moves), legal, text in zip(starts, count_legal(starts), texts):
        if legal < len(moves):
            return f"illegal move {moves[legal]} in {text}\nbehind {fen} {' '.join(moves[:legal])}"
    return "the referee reads the game in another way than it was written"


def find_malformed(game):
    words = [*game.moves, *(word for _, line, _ in game.lines for word in line)]
    wrong = [word for word in words if not is_move(word)]
    return f"{wrong[0]} is no move" if wrong else None


def judge_moves(games, numbers):
    """The numbers of those games whose moves and lines are not all legal. One call reads them."""
    texts = []
    wanted = []     # numbers of the games and what the referee must print
    for number in numbers:
        game = games[number]
        by_ply = collections.defaultdict(list)
        for ply, line, _ in game.lines:
            by_ply[ply].append(tuple(line))
        variations = {ply: longest_lines(lines) for ply, lines in by_ply.items()}
        # What was printed behind the last move stands in the place of none.
        behind = [[*game.moves, *line] for line in variations.pop(len(game.moves), ())]
        for moves, own in ((game.moves, variations), *((moves, {}) for moves in behind)):
            text = movetext(moves, own, "*")
            texts.append(numbered(len(wanted), game.fen, text, "*"))
            wanted.append((number, " ".join(text.split())))
    found = ask_referee("".join(texts))
    return {number for index, (number, text) in enumerate(wanted)
            if found.get(index, ("*", ""))[1] != text}


def judge_claims(games, numbers):
    """Complaints about games that are not what is claimed of them, by the referee's own tests."""
    text = "".join(numbered(number, games[number].fen,
                            movetext(games[number].moves, {}, games[number].result),
                            games[number].result) for number in numbers)
    tests = {"checkmate": "-M", "stalemate": "--stalemate", "repetition": "--repetition",
             "fifty moves": "--fifty"}
    passed = {name: set(ask_referee(text, word)) for name, word in tests.items()}
    # The referee puts in the result of a mate or a stalemate.
    lasts = ask_referee(text, "-F", "--fixresulttags")
    passed["material"] = {number for number, (_, moves) in lasts.items()
                          if is_bare((re.findall(r"\{ (.*) \}", moves) or [games[number].fen])[0])}
    # Of a position without a move before it the referee knows no check: a mate counts as stalemate.
    passed["no move"] = passed["checkmate"] | passed["stalemate"]
    passed["over"] = passed["no move"] | passed["fifty moves"]
    complaints = {}
    for number in numbers:
        game = games[number]
        wanted = {"checkmate": ("1-0", "0-1"), "unfinished": ("*", "1/2-1/2"),
                  **dict.fromkeys(DRAWS, ("1/2-1/2",))}.get(game.claim, (game.result,))
        if game.claim == "unfinished":
            is_true = number not in passed["no move"]
        else:
            is_true = number in passed[game.claim]
        if not is_true:
            complaints[number] = f"the game is not what it is called: {game.claim}"
        elif game.result != "*" and (game.result not in wanted
                                     or lasts[number][0] != game.result):
            complaints[number] = f"{game.result} is not the result of {game.claim}"
    return complaints


def judge(games):
    """Of each game a complaint, or None: all moves and lines must be legal, and what is claimed of
    the game must be true. All games go to the referee in the same few calls."""
    complaints = {number: find_malformed(game) for number, game in enumerate(games)}
    sound = [number for number, complaint in complaints.items() if complaint is None]
    for number in judge_moves(games, sound):
        complaints[number] = find_fault(games[number])
    claimed = [number for number in sound
               if complaints[number] is None and games[number].claim is not None]
    if claimed:
        complaints.update(judge_claims(games, claimed))
    return [complaints[number] for number in range(len(games))]
