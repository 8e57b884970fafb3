#!/usr/bin/env python3
"""Plays whole games of the engine against itself over UCI, refereed by pgn-extract: every move
played, pondered on or printed in a line must be legal, no clock may run out, and the games end
where the referee says so.

    play_games.py ENGINE [--rounds N] [--parallel N] [--schedule FILE] [--pgn FILE]

Status 1 after any violation, 77 (skipped) where pgn-extract is not installed. With --pgn the games
are kept, as far as the engines played on.

FILE of --schedule holds a JSON array of games in place of those below, each played once a round and
told as a line of JSON. Besides the fields of those below a game may have "options" (names and
values), "fen" (white to move) and "opening" (moves, none where it is ""), and "peer", the path of
another engine that plays itself: of that one only the moves played and the clock are judged.
"""

import argparse
import concurrent.futures
import dataclasses
import json
import math
import pathlib
import re
import sys
import time
import traceback

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import uci_games
from uci_games import EngineFault, Game, Record

MAX_PLIES = 240         # a longer game is broken off
QUIT_LIMIT = 3.0
MOVETIME_SLACK = 250    # ms that a fixed-time move may take longer than told

# One row per game of a round. Times are milliseconds; moves is the length of a control.
# Every move costs some milliseconds even on an empty clock, so games without an increment are
# broken off earlier than the others.
SCHEDULE = (
    {"name": "sudden death", "base": 5000, "maxPlies": 140},
    {"name": "sudden death, ponder", "base": 5000, "maxPlies": 140, "ponder": True},
    {"name": "sudden death, 2 threads", "base": 5000, "maxPlies": 140, "threads": 2},
    {"name": "sudden death, very short", "base": 2000, "maxPlies": 100},
    {"name": "increment", "base": 800, "increment": 40},
    {"name": "increment, ponder", "base": 800, "increment": 40, "ponder": True},
    {"name": "increment, 2 threads, ponder", "base": 1000, "increment": 30, "threads": 2,
     "ponder": True},
    {"name": "movestogo", "base": 1200, "moves": 20},
    {"name": "movestogo, ponder", "base": 1200, "moves": 15, "ponder": True},
    {"name": "movestogo, 2 threads", "base": 1500, "moves": 30, "threads": 2},
    {"name": "movetime", "movetime": 25},
    {"name": "movetime, 2 threads, ponder", "movetime": 30, "threads": 2, "ponder": True},
)
OPENINGS = (
    "e2e4 e7e5 g1f3 b8c6 f1b5 a7a6",
    "d2d4 d7d5 c2c4 e7e6 b1c3 g8f6",
    "e2e4 c7c5 g1f3 d7d6 d2d4 c5d4",
    "c2c4 e7e5 b1c3 g8f6 g2g3 d7d5",
    "d2d4 g8f6 c2c4 g7g6 b1c3 f8g7",
    "e2e4 e7e6 d2d4 d7d5 b1c3 f8b4",
    "e2e4 c7c6 d2d4 d7d5 e4e5 c8f5",
    "g1f3 d7d5 g2g3 g8f6 f1g2 e7e6",
    "e2e4 e7e5 f2f4 e5f4 g1f3 g7g5",
    "d2d4 f7f5 g2g3 g8f6 f1g2 e7e6",
    "e2e4 g7g6 d2d4 f8g7 b1c3 d7d6",
    "b2b3 e7e5 c1b2 b8c6 e2e3 g8f6",
)
REPLY = re.compile(r"bestmove (\S+)(?: ponder (\S+))?")


class Violation(Exception):
    pass


class TimeLoss(Violation):
    """Told apart, since the load of the machine has a part in it."""


class Player:
    """One engine process, what was said last, and the lines of the search that runs."""

    def __init__(self, path, label, is_peer, limit):
        self.label = label
        self.is_peer = is_peer
        self.limit = limit      # seconds for a reply
        self.unanswered = 0
        self.log = []
        self.lines = []
        self.ready = False      # set up: from here on only replies are expected
        self.problem = None
        self.pondering = None   # the moves with the one that it ponders on
        self.engine = uci_games.Engine(path, errors=None)

    def send(self, line):
        self.log.append(f"> {line}")
        self.unanswered += line.startswith("go ")
        try:
            self.engine.send(line)
        except EngineFault as fault:
            self.fail(str(fault))

    def take(self, line):
        self.log.append(f"< {line}")
        if re.match(r"info .* pv ", line):
            self.lines.append(line)
        if self.ready and not re.match(r"(readyok|info|bestmove)\b", line):
            self.problem = self.problem or f"unexpected line: {line}"
        if line.startswith("bestmove"):
            self.unanswered -= 1
            if self.unanswered < 0:
                self.problem = self.problem or f"a reply that nobody had asked for: {line}"

    def expect(self, start):
        """The line that begins so, and the time of its arrival."""
        try:
            line, when = self.engine.wait_for(start, self.limit, self.take)
        except EngineFault as fault:
            self.fail(str(fault))
        if self.problem and not self.is_peer:
            self.fail(self.problem)
        return line, when

    def fail(self, text, kind=Violation):
        raise kind("\n".join([f"{self.label}: {text}", *self.log[-12:]]))

    def quit(self):
        self.send("quit")
        try:
            status = self.engine.wait_for_end(QUIT_LIMIT, self.take)
        except EngineFault as fault:
            self.fail(str(fault))
        if status != 0:
            self.fail(f"did not end well after quit: status {status}")
        if self.problem and not self.is_peer:
            self.fail(self.problem)


@dataclasses.dataclass
class Played:
    """A game on its way: its rows of the schedule, the moves so far with what is to be judged of
    them, and counts."""
    number: int
    row: dict
    record: Record
    lines: list = dataclasses.field(default_factory=list)   # as a Game has them
    claims: list = dataclasses.field(default_factory=list)  # further Games to be judged
    counts: dict = None
    end: tuple = None
    failure: str = None
    on_time: bool = False

    @property
    def label(self):
        return f"game {self.number} ({self.row['name']})"


def position_words(game, moves):
    start = f"fen {game.row['fen']}" if "fen" in game.row else "startpos"
    return f"position {start}" + (f" moves {' '.join(moves)}" if moves else "")


def clock_words(row, clocks, plies):
    if "movetime" in row:
        return f"movetime {row['movetime']}"
    words = f"wtime {math.floor(clocks[0])} btime {math.floor(clocks[1])}"
    if row.get("increment"):
        words += f" winc {row['increment']} binc {row['increment']}"
    if row.get("moves"):
        words += f" movestogo {row['moves'] - plies // 2 % row['moves']}"
    return words


def start_player(path, label, row, limit):
    player = Player(path, label, bool(row.get("peer")), limit)
    player.send("uci")
    player.expect("uciok")
    options = {"Hash": 16, "Threads": row.get("threads", 1),
               "Ponder": "true" if row.get("ponder") else "false", **row.get("options", {})}
    for name, value in options.items():
        player.send(f"setoption name {name} value {value}")
    player.send("ucinewgame")
    player.send("isready")
    player.expect("readyok")
    player.ready = True
    return player


def take_reply(game, player, moves, reply):
    """Puts down for the referee all that an engine printed for its search of the position behind
    these moves. Gives its move, None where it says that there is none, and what it ponders on."""
    match = REPLY.fullmatch(reply.strip() if player.is_peer else reply)
    if not match:
        player.fail(f"malformed reply: {reply}")
    best, ponder = match.groups()
    printed, player.lines = ([] if player.is_peer else player.lines), []
    # The search of a position that the game does not come to hangs on the last move that it does.
    played = game.record.moves
    common = len(moves) if moves == played[:len(moves)] else len(moves) - 1
    rest = moves[common:]
    for line in printed:
        words = re.sub(r"^.* pv ", "", line).split()
        game.lines.append((common, [*rest, *words], f"of {player.label}: {line}"))
        game.counts["lines"] += 1
    if best == "null" and not player.is_peer:
        # The record may have come to fifty moves; then there is no answer but to "stop".
        game.claims.append(Game(list(moves), game.record.fen, claim="over"))
        return None, None
    answer = [best, ponder] if ponder and not player.is_peer else [best]
    game.lines.append((common, [*rest, *answer], f"of {player.label}: {reply}"))
    if printed and " score mate 1 " in printed[-1]:
        game.claims.append(Game([*moves, best], game.record.fen, claim="checkmate"))
    return best, ponder


def end_pondering(game, player):
    """Ends a search of a position that the game has not come to."""
    moves, player.pondering = player.pondering, None
    player.send("stop")
    take_reply(game, player, moves, player.expect("bestmove ")[0])


def think(game, player, clocks):
    """Lets a player search the game's position. Its move, what it ponders on, and the time that it
    took in milliseconds."""
    moves = list(game.record.moves)
    if player.pondering and player.pondering != moves:
        end_pondering(game, player)
        game.counts["misses"] += 1
    started = time.monotonic()
    if player.pondering:
        player.pondering = None
        player.send("ponderhit")
        game.counts["hits"] += 1
    else:
        player.send(position_words(game, moves))
        player.send(f"go {clock_words(game.row, clocks, len(moves))}")
    line, when = player.expect("bestmove ")
    best, ponder = take_reply(game, player, moves, line)
    return best, ponder, max(0.0, when - started) * 1000


def charge_clock(game, player, clocks, side, took):
    """Charges a move to the clock of a side and sees that the engine kept to its time."""
    row = game.row
    if "movetime" in row:
        if took > row["movetime"] + MOVETIME_SLACK:
            player.fail(f"took {took:.0f} ms of {row['movetime']}", TimeLoss)
        return
    clocks[side] -= took
    game.counts["lowest"] = min(game.counts["lowest"], clocks[side])
    if clocks[side] < 0:
        player.fail(f"lost on time by {-clocks[side]:.1f} ms", TimeLoss)
    clocks[side] += row.get("increment", 0)


def play_moves(game, players):
    """Plays from the opening to the end of the game."""
    row, moves = game.row, game.record.moves
    clocks = [row.get("base", 0), row.get("base", 0)]
    while len(moves) < row.get("maxPlies", MAX_PLIES):
        side = len(moves) % 2
        player = players[side]
        best, ponder, took = think(game, player, clocks)
        charge_clock(game, player, clocks, side, took)
        if best is None:
            break
        moves.append(best)
        if row.get("moves") and (len(moves) + 1) // 2 % row["moves"] == 0:
            clocks[side] += row["base"]
        game.end = game.record.find_end()
        if game.end is not None:
            break
        if row.get("ponder") and ponder:
            player.pondering = [*moves, ponder]
            player.send(position_words(game, player.pondering))
            player.send(f"go ponder {clock_words(row, clocks, len(moves) + 1)}")
    game.end = game.record.find_end(is_last=True)


def play(engine, game, limit):
    """Plays a game and ends both engines."""
    row = game.row
    if row.get("fen", uci_games.START).split()[1] != "w":
        raise Violation(f"{row['fen']}: clocks are kept for games that White begins")
    players = []
    try:
        for colour in ("white", "black"):
            path = row.get("peer") or engine
            players.append(start_player(path, f"{game.label} {colour}", row, limit))
        play_moves(game, players)
        for player in players:
            if player.pondering:
                end_pondering(game, player)
            player.quit()
        if game.end is not None and game.end[1] == "*":
            raise Violation(game.end[2])
    except TimeLoss as loss:
        game.failure, game.on_time = str(loss), True
    except Violation as violation:
        game.failure = str(violation)
    except Exception:
        game.failure = traceback.format_exc()
    finally:
        # After quit this does nothing.
        for player in players:
            player.engine.close()


def pieces_of(game):
    """What the referee is to judge: the game as far as it was played, its end, and the rest."""
    moves, fen = game.record.moves, game.record.fen
    found = [Game(list(moves), fen, lines=game.lines), *game.claims]
    if game.failure is None:
        plies, result, why = game.end or (len(moves), "*", "unfinished")
        found.append(Game(moves[:plies], fen, result=result, claim=why))
    return found


def judge_all(games):
    """One judgement of all that was played."""
    pieces = [(game, piece) for game in games for piece in pieces_of(game)]
    complaints = uci_games.judge([piece for _, piece in pieces])
    for (game, _), complaint in zip(pieces, complaints):
        if complaint is not None:
            # What went wrong behind an illegal move may well come of it.
            behind = f"\nand then {game.failure}" if game.failure else ""
            game.failure, game.on_time = f"{complaint}{behind}", False


def result_words(game):
    if game.end is None:
        return f"* broken off, {len(game.record.moves)} plies"
    plies, result, why = game.end
    return f"{result} {why}, {plies} plies"


def describe(game):
    """A game for a person."""
    if game.failure is not None:
        return f"{game.label}: FAILED: {game.failure}"
    counts = game.counts
    asked = counts["hits"] + counts["misses"]
    ponder = f", ponder hits {counts['hits']} of {asked}" if game.row.get("ponder") else ""
    clock = f", lowest clock {counts['lowest']:.0f} ms" if "base" in game.row else ""
    return f"{game.label}: {result_words(game)}, {counts['lines']} lines{ponder}{clock}"


def as_json(game):
    fields = {"number": game.number, "name": game.row["name"], "peer": game.row.get("peer"),
              "counts": game.counts}
    if game.failure is not None:
        return json.dumps({**fields, "failure": game.failure, "onTime": game.on_time})
    return json.dumps({**fields, "result": result_words(game)})


def new_game(number, row, opening):
    fen = row.get("fen", uci_games.START)
    # An engine of others may do anything once the game is over.
    every = 1 if row.get("peer") else uci_games.LOOK_EVERY
    counts = {"lines": 0, "hits": 0, "misses": 0, "lowest": row.get("base", 0)}
    return Played(number, row, Record(fen, opening.split(), every), counts=counts)


def read_arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--parallel", type=int, default=2)
    parser.add_argument("--schedule", type=pathlib.Path)
    parser.add_argument("--pgn", type=pathlib.Path)
    parser.add_argument("--reply-limit", type=float, default=20.0,
                        help="seconds without a reply after which an engine counts as hanging")
    parser.add_argument("engine", type=pathlib.Path)
    return parser.parse_args()


def main():
    arguments = read_arguments()
    if uci_games.find_referee() is None:
        print("pgn-extract is not installed: no games are played")
        return uci_games.SKIPPED
    rows = SCHEDULE
    if arguments.schedule:
        rows = json.loads(arguments.schedule.read_text(encoding="utf-8"))
    games = []
    for number in range((arguments.rounds or (1 if arguments.schedule else 2)) * len(rows)):
        round_, index = divmod(number, len(rows))
        opening = rows[index].get("opening", OPENINGS[(number + 5 * round_) % len(OPENINGS)])
        games.append(new_game(number + 1, rows[index], opening))
    engine = arguments.engine.resolve()
    with concurrent.futures.ThreadPoolExecutor(arguments.parallel) as pool:
        list(pool.map(lambda game: play(engine, game, arguments.reply_limit), games))
    judge_all(games)
    for game in games:
        print(as_json(game) if arguments.schedule else describe(game))
    if arguments.pgn:
        arguments.pgn.write_text("".join(
            uci_games.to_pgn(Game(game.record.moves, game.record.fen), {"Round": game.number})
            for game in games), encoding="ascii")
    failed = sum(game.failure is not None for game in games)
    print(f"{failed} games failed" if failed else f"{len(games)} games played")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
