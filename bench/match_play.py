"""Engines that play games against each other: their processes, clocks, and games by several pairs
of engines at a time.

Most of a match is spent in the engines: an engine's lines are looked at only once its move is
there, and the referee is asked once for a game, or where the board tells that it may be over.
"""

import dataclasses
import math
import os
import pathlib
import queue
import re
import select
import shutil
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "scripts"))

import uci_games
from match_board import Board, squares_of
from uci_games import EngineFault

REPLY_LIMIT = 300.0     # seconds
NO_MOVE = ("null", "(none)", "0000")
MATE_SCORE = 30000      # centipawns
LONGEST_OUTPUT = 1 << 24    # bytes that an engine may print for one move
SCORE = re.compile(rb" score (cp|mate) (-?\d+)")
DEPTH = re.compile(rb" depth (\d+)")
OPTION = re.compile(r"option name (.+?) type (\w+)(.*)")


# ---- Engines.

@dataclasses.dataclass
class Side:
    """An engine as the user names it."""
    name: str
    program: str
    folder: str | None
    options: list       # names and values


class SetupFault(Exception):
    """An engine that cannot be started, or has no such option."""


def find_program(text):
    path = pathlib.Path(text)
    if "/" not in text and not path.exists():
        found = shutil.which(text, path=os.environ.get("PATH", "") + os.pathsep + "/usr/games")
        return found or text
    return str(path.resolve())


class Engine:
    """An engine's process. Whoever waits for its reply reads its output."""

    def __init__(self, side):
        self.side = side
        self.rest = b""
        try:
            # In a session of its own, so that Ctrl-C reaches the match alone.
            self.process = subprocess.Popen(
                [find_program(side.program)], cwd=side.folder, bufsize=0, stdin=subprocess.PIPE,
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, start_new_session=True)
        except OSError as error:
            raise SetupFault(f"{side.name}: {error.strerror}: {error.filename}") from None
        self.output = self.process.stdout.fileno()
        self.poll = select.poll()
        self.poll.register(self.output, select.POLLIN | select.POLLHUP)

    def send(self, text):
        try:
            self.process.stdin.write(text.encode() + b"\n")
        except OSError:
            raise EngineFault("the engine has ended") from None

    def wait_for(self, start, limit):
        """What the engine prints up to the line that begins with start, that line, and the time
        when it came."""
        end = time.monotonic() + limit
        mark = b"\n" + start.encode()
        data, self.rest = b"\n" + self.rest, b""
        when = time.monotonic()
        searched = 0
        while True:
            place = data.find(mark, searched)
            stop = data.find(b"\n", place + 1) if place >= 0 else -1
            if stop >= 0:
                self.rest = data[stop + 1:]
                return data[:place], data[place:stop].decode(errors="replace").strip(), when
            searched = place if place >= 0 else max(0, len(data) - len(mark))
            # What came while this thread had to wait for the processor is still read.
            left = max(0, math.ceil(1000 * (end - time.monotonic())))
            if not self.poll.poll(left) or len(data) > LONGEST_OUTPUT:
                raise EngineFault(f"no '{start}' within {limit:g} s")
            chunk = os.read(self.output, 1 << 16)
            when = time.monotonic()
            if not chunk:
                raise EngineFault(f"the engine ended while '{start}' was awaited")
            data += chunk

    def close(self):
        """An engine may outlive its standard input."""
        self.process.kill()
        self.process.wait()
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass
        self.process.stdout.close()


def check_option(side, name, value, known):
    """An engine passes over what it does not know: a match with a misspelt option would measure
    something else."""
    row = known.get(name.lower())
    if row is None:
        raise SetupFault(f"{side.name} has no option '{name}'")
    kind, rest = row
    if kind == "spin":
        low, high = (int(re.search(rf"{word} (-?\d+)", rest).group(1)) for word in ("min", "max"))
        if re.fullmatch(r"-?\d+", value) is None or not low <= int(value) <= high:
            raise SetupFault(f"{side.name}: {name} takes {low} to {high}, not '{value}'")
    if kind == "check" and value not in ("true", "false"):
        raise SetupFault(f"{side.name}: {name} takes true or false, not '{value}'")


def set_options(engine, options):
    for name, value in options:
        engine.send(f"setoption name {name} value {value}" if value else f"setoption name {name}")


def start_engine(side, limit=REPLY_LIMIT):
    engine = Engine(side)
    try:
        engine.send("uci")
        printed, _, _ = engine.wait_for("uciok", limit)
        found = OPTION.findall(printed.decode(errors="replace"))
        engine.known = {name.lower(): (kind, rest) for name, kind, rest in found}
        for name, value in side.options:
            check_option(side, name, value, engine.known)
        set_options(engine, side.options)
        engine.send("isready")
        engine.wait_for("readyok", limit)
    except EngineFault as fault:
        engine.close()
        raise SetupFault(f"{side.name}: {fault}") from None
    except SetupFault:
        engine.close()
        raise
    return engine


def read_score(printed):
    """The score of the last line that has one, in centipawns and as people write it with its depth,
    and whether it says that the move mates."""
    for line in reversed(printed.split(b"\n")):
        found = SCORE.search(line)
        if found is None or b"bound" in line or \
                (b" multipv " in line and b" multipv 1 " not in line):
            continue
        depth = DEPTH.search(line)
        value = int(found.group(2))
        sign = "-" if value < 0 else "+"
        behind = f"/{int(depth.group(1)) if depth else 0}"
        if found.group(1) == b"cp":
            return value, f"{sign}{abs(value) / 100:.2f}{behind}", False
        score = MATE_SCORE - value if value > 0 else -MATE_SCORE - value
        return score, f"{sign}M{abs(value)}{behind}", value == 1
    return None, "", False


# ---- Rules of a match.

@dataclasses.dataclass
class Limit:
    """What an engine may spend. Nodes or milliseconds for each move, or a clock in seconds: so much
    for so many moves (0: for the game), and so much more for each."""
    nodes: int = 0
    movetime: int = 0
    base: float = 0.0
    increment: float = 0.0
    moves: int = 0
    margin: float = 0.0     # seconds behind the clock's end that are forgiven

    def __str__(self):
        if self.nodes:
            return f"nodes {self.nodes}"
        if self.movetime:
            return f"movetime {self.movetime}"
        return f"tc {f'{self.moves}/' if self.moves else ''}{self.base:g}+{self.increment:g}"


@dataclasses.dataclass
class Rules:
    limit: Limit
    # A draw from this full move on, once both engines' last so many scores are this near to 0; a
    # win once the last so many scores of both agree on so much. None: such games are played on.
    draw: tuple | None = None
    resign: tuple | None = None
    longest: int = 400      # half-moves


@dataclasses.dataclass
class Played:
    """A game that is over."""
    fen: str
    white: str
    black: str
    moves: list             # as UCI writes them
    sans: list              # as people do
    comments: list          # score, depth and seconds of each
    result: str
    why: str
    claim: str | None       # what the referee is to find true, as in uci_games.Game


class Clocks:
    def __init__(self, limit):
        self.limit = limit
        self.left = [limit.base, limit.base]    # seconds of White and Black
        self.moves = [0, 0]

    def words(self, side):
        if self.limit.nodes:
            return f"go nodes {self.limit.nodes}"
        if self.limit.movetime:
            return f"go movetime {self.limit.movetime}"
        white, black = (max(1, round(1000 * left)) for left in self.left)
        step = round(1000 * self.limit.increment)
        words = f"go wtime {white} btime {black} winc {step} binc {step}"
        if self.limit.moves:
            words += f" movestogo {self.limit.moves - self.moves[side] % self.limit.moves}"
        return words

    def patience(self, side):
        """Seconds that the mover may take before the game is lost."""
        return self.left[side] + self.limit.margin if self.limit.base else REPLY_LIMIT

    def charge(self, side, took):
        """False if the time is over."""
        if not self.limit.base:
            return True
        self.left[side] -= took
        if self.left[side] < -self.limit.margin:
            return False
        self.left[side] = max(0.0, self.left[side]) + self.limit.increment
        self.moves[side] += 1
        if self.limit.moves and self.moves[side] % self.limit.moves == 0:
            self.left[side] += self.limit.base
        return True


def adjudicate(rules, scores, plies, white_begins):
    """Result and reason of a game that both engines judge in the same way, or None. A score is the
    mover's view."""
    if rules.draw:
        number, count, score = rules.draw
        last = scores[-2 * count:]
        if (plies + (not white_begins)) // 2 >= number and len(last) == 2 * count \
                and all(value is not None and abs(value) <= score for value in last):
            return "1/2-1/2", "draw adjudication"
    if rules.resign:
        count, score = rules.resign
        last = scores[-2 * count:]
        if len(last) == 2 * count and None not in last:
            # From the view of who moved last.
            signed = [value if (len(last) - 1 - place) % 2 == 0 else -value
                      for place, value in enumerate(last)]
            for sign in (1, -1):
                if all(sign * value >= score for value in signed):
                    is_white = (plies % 2 == 1) == white_begins
                    return ("1-0" if is_white == (sign > 0) else "0-1"), "resign adjudication"
    return None


class Play:
    """A game on its way."""

    def __init__(self, engines, fen, rules):
        self.engines = engines          # White's and Black's
        self.fen = fen
        self.rules = rules
        self.board = Board(fen)
        self.white_begins = self.board.whites_turn
        self.moves, self.scores, self.comments = [], [], []
        self.clocks = Clocks(rules.limit)

    def look(self):
        """What the referee says of the game: half-moves, result and reason of its end or of its
        first illegal move, or None; and the moves as people write them."""
        look, sans = uci_games.retell(
            self.fen, self.moves,
            lambda ply, fen: ply < len(self.board.positions)
            and squares_of(fen) == self.board.positions[ply])
        if look.end is None and look.legal < len(self.moves):
            return (look.legal, *self.forfeit(look.legal, f"illegal move {self.moves[look.legal]}"),
                    sans)
        return (*look.end, sans) if look.end else (None, None, None, sans)

    def forfeit(self, plies, reason):
        """Result and reason of a game that the mover behind so many half-moves has lost."""
        is_white = (plies % 2 == 0) == self.white_begins
        return ("0-1" if is_white else "1-0"), f"forfeit: {reason}"

    def move(self):
        """Lets the mover play. Result and reason where that ends the game, or None."""
        side = 0 if self.board.whites_turn else 1
        engine = self.engines[side]
        played = f" moves {' '.join(self.moves)}" if self.moves else ""
        patience = self.clocks.patience(side)
        started = time.monotonic()
        try:
            engine.send(f"position fen {self.fen}{played}\n{self.clocks.words(side)}")
            printed, line, when = engine.wait_for("bestmove", min(patience, REPLY_LIMIT))
        except EngineFault as fault:
            is_late = patience < REPLY_LIMIT and time.monotonic() - started >= patience
            return self.forfeit(len(self.moves), "time" if is_late else fault)
        took = when - started
        if not self.clocks.charge(side, took):
            return self.forfeit(len(self.moves), "time")
        words = line.split()
        move = words[1] if len(words) > 1 else ""
        if not uci_games.is_move(move):
            reason = "no move" if move in NO_MOVE else f"illegal move {move}"
            return self.forfeit(len(self.moves), reason)
        is_sound = self.board.play(move)
        self.moves.append(move)
        score, text, is_mate = read_score(printed)
        self.scores.append(score)
        self.comments.append(f"{text} {took:.3f}s" if text else "")
        if not is_sound:
            return self.forfeit(len(self.moves) - 1, f"illegal move {move}")
        self.may_be_over = is_mate or self.board.may_be_over
        return adjudicate(self.rules, self.scores, len(self.moves), self.white_begins)

    def finish(self, plies, result, why, sans):
        names = [engine.side.name for engine in self.engines]
        claim = None if why.startswith("forfeit") or why.endswith("adjudication") else why
        return Played(self.fen, *names, self.moves[:plies], sans[:plies], self.comments[:plies],
                      result, why, "unfinished" if why == "length" else claim)

    def play(self):
        for engine, result in zip(self.engines, ("0-1", "1-0")):
            try:
                engine.send("ucinewgame\nisready")
                engine.wait_for("readyok", REPLY_LIMIT)
            except EngineFault as fault:
                return self.finish(0, result, f"forfeit: {fault}", [])
        while True:
            end = self.move()
            if end is None and len(self.moves) >= self.rules.longest:
                end = "1/2-1/2", "length"
            if end is None and not self.may_be_over:
                continue
            # Whatever ended it, what stands on the board counts first: a mate, an illegal move.
            plies, result, why, sans = self.look()
            if plies is None and end is not None:
                (result, why), plies = end, len(sans)
            if plies is not None:
                return self.finish(plies, result, why, sans)


# ---- Many games at a time.

@dataclasses.dataclass
class Job:
    """An opening to be played with both colours, or with those turns that are left: in turn 0 the
    first engine is White. Options are set for these games."""
    number: int
    fen: str
    turns: tuple = (0, 1)
    options: tuple = ((), ())


class Arena:
    """Pairs of engines, each playing one job after the other."""

    def __init__(self, sides, rules, concurrency):
        self.sides, self.rules, self.concurrency = sides, rules, concurrency
        self.results = queue.Queue()
        self.stopped = threading.Event()
        self.lock = threading.Lock()
        self.running = set()

    def start(self, side):
        engine = start_engine(side)
        with self.lock:
            self.running.add(engine)
        return engine

    def close(self, engines):
        for engine in engines:
            with self.lock:
                self.running.discard(engine)
            engine.close()

    def play_job(self, job, engines):
        """Plays a job's games. The engines for the next job: none if these have forfeited."""
        for turn in job.turns:
            if self.stopped.is_set():
                break
            if not engines:
                engines = [self.start(side) for side in self.sides]
            for engine, options in zip(engines, job.options):
                set_options(engine, options)
            order = engines if turn == 0 else engines[::-1]
            game = Play(order, job.fen, self.rules).play()
            if self.stopped.is_set() and game.why.startswith("forfeit"):
                break
            self.results.put((job, turn, game))
            if game.why.startswith("forfeit"):
                self.close(engines)
                engines = []
        return engines

    def work(self, jobs):
        engines = []
        try:
            while not self.stopped.is_set():
                with self.lock:
                    job = next(jobs, None)
                if job is None:
                    break
                engines = self.play_job(job, engines)
        except Exception as fault:      # told by the main thread
            if not self.stopped.is_set():
                self.results.put(fault)
        finally:
            self.close(engines)
            self.results.put(None)

    def play(self, jobs, every=0.5):
        """Gives each game as (job, turn, game) when it is over, and None every so often, until the
        jobs are done or somebody stops the arena. Jobs are drawn one at a time. Who may leave it
        earlier closes it, which ends the engines."""
        threads = [threading.Thread(target=self.work, args=(jobs,))
                   for _ in range(self.concurrency)]
        for thread in threads:
            thread.start()
        left = len(threads)
        try:
            while left:
                try:
                    found = self.results.get(timeout=every)
                except queue.Empty:
                    yield None
                    continue
                if found is None:
                    left -= 1
                elif isinstance(found, Exception):
                    raise found
                else:
                    yield found
        finally:
            self.stop()
            for thread in threads:
                thread.join()

    def stop(self):
        """Breaks off what is being played. What is over will still be given."""
        self.stopped.set()
        with self.lock:
            for engine in self.running:
                engine.process.kill()
