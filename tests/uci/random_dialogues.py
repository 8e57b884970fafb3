#!/usr/bin/env python3
"""Random dialogues over UCI: searches of every kind, disturbed at any moment by options, new
positions, words of the console and other commands in any order.

    random_dialogues.py [--host] [--dialogues N] [--seed N] [--jobs N] ENGINE DATA_FOLDER

A "go" must be answered once when "stop" comes, by a move that pgn-extract, an independent reader of
the rules, knows as legal in the position that was searched, and by "null" only where there is none
or the fifty moves are over; only another "go" or "quit" takes the answer away. "isready" must
always be answered, and the process must end with "quit", status 0 and a silent standard error.
With --host the program is vesk-uci: every "go" is answered, by "(none)" where there is no move, and
its engine is killed now and then.

DATA_FOLDER holds a book and endgame tables. Status 1 if anything was wrong, with the dialogue up to
there. Where pgn-extract is not installed the moves alone are not judged.
"""

import argparse
import concurrent.futures
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import uci_games
from uci_games import EngineFault, Game

REPLY_LIMIT = 30.0 * float(os.environ.get("VESK_TIMEOUT_FACTOR", "1"))

# What the release of each table file says.
UNMAPPED = "munmap: Success\n"

# Too many moves without progress: no search runs.
SHUFFLE = "a2b2 h8g8 b2a2 g8h8 "
FIFTY_MOVES = ("7k/8/8/8/8/8/R7/K7 w - - 0 1", (SHUFFLE * 26).strip())
# Position and moves. The last ones: one legal move, stalemate, mate, and more than fifty moves
# without progress, where only "stop" is answered.
POSITIONS = (
    (uci_games.START, ""),
    (uci_games.START, "e2e4 e7e5 g1f3 b8c6 f1b5 a7a6"),
    (uci_games.START, "d2d4 d7d5 c2c4 e7e6 b1c3 g8f6"),
    ("r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1", ""),
    ("8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1", "e2e4"),
    ("rnbq1k1r/pp1Pbppp/2p5/8/2B5/8/PPP1NnPP/RNBQK2R w KQ - 1 8", ""),
    ("8/8/1p1k2p1/p1p2p1p/P1P2P1P/1P1K2P1/8/8 w - - 0 1", ""),
    ("4k3/8/8/8/8/8/4P3/4K3 w - - 0 1", ""),
    ("7k/8/8/8/8/8/R7/K7 w - - 0 1", ""),
    ("R6k/5K2/8/8/8/8/8/8 b - - 0 1", ""),
    ("7k/5K2/6Q1/8/8/8/8/8 b - - 0 1", ""),
    ("7k/6Q1/6K1/8/8/8/8/8 b - - 0 1", ""),
    FIFTY_MOVES,
)
LIMITS = ("depth 1", "depth 4", "depth 9", "movetime 1", "movetime 20", "nodes 1", "nodes 3000",
          "wtime 100 btime 100", "wtime 300 btime 200 winc 10 binc 10",
          "wtime 200 btime 200 movestogo 3", "nodes 99999999999",
          "wtime 60000 btime 60000 nodes 90000000", "", "depth 40", "infinite", "infinite")
# Words that the console knows; over UCI they are none, or parts of lines that mean nothing.
CONSOLE_WORDS = ("bd", "mv", "new", "undo", "[", "]", ".", "ev", "e2e4", "self", "perft 2",
                 "set level 1 1 0", "set hash 0", "fen 8/8/8/8/8/8/8/K1k5 w -", "pv", "edit",
                 "swap", "save", "", " ", "@", "nonsense", "bestmove e2e4")
# What a dialogue that begins at the console may say there: "self" would go on playing, and "edit"
# takes the lines that follow for its own.
CONSOLE_STARTS = tuple(word for word in CONSOLE_WORDS if word not in ("self", "edit"))
CONFIGS = {
    "hash.cfg": "Hash = 8\n",
    "threads.cfg": "Contempt = 5\nThreads = 2\n",
    "again.cfg": "Hash = 4\nConfigFilePath = again.cfg\n",
}
PAUSES = (0.0, 0.0, 0.0, 0.0005, 0.001, 0.002, 0.005, 0.02)


def option_lines(data):
    """Lines that set an option, as any moment must bear them."""
    return [f"setoption name {line}" for line in (
        "Hash value 1", "Hash value 2", "Hash value 16", "Threads value 1", "Threads value 2",
        "Threads value 4", "Threads value 3", f"SyzygyPath value {data / 'syzygy'}",
        "SyzygyPath value <empty>", "SyzygyPath value /nowhere",
        "ConfigFilePath value missing.cfg", "Clear_Hash value x", "Clear_Hash", "MultiPV value 1",
        "MultiPV value 4", "Contempt value 20", "Contempt value -150", "Selectivity value 0",
        "Selectivity value 200", "Selectivity value 100", "Ponder value false",
        "OwnBook value true", "OwnBook value false", f"OwnBook_File value {data / 'small.bin'}",
        "MoveOverhead value 0", "MoveOverhead value 200", "Log value true", "Log value false",
        "Activity_Knight value 29,57", "UCI_LimitStrength value true",
        "UCI_LimitStrength value false", "UCI_Elo value 2000", "Unknown value 3",
    )] + [f"setoption name ConfigFilePath value {name}" for name in CONFIGS]


class Dialogue:
    """One dialogue: what was said, and which searches may still be answered."""

    def __init__(self, engine, options, dice, is_host):
        self.engine = engine
        self.is_host = is_host
        self.options = options
        self.dice = dice
        self.said = []
        self.position = POSITIONS[0]
        self.searches = []      # asked for since all were answered or replaced, the latest last
        self.replies = []       # what came for them
        self.records = []       # for the judge

    def send(self, line):
        self.said.append("< " + line)
        self.engine.send(line)

    def take(self, line):
        self.said.append("> " + line)
        if not line.startswith("bestmove"):
            return
        words = line.split()
        if len(words) not in (2, 4) or (len(words) == 4 and words[2] != "ponder"):
            raise EngineFault("a bestmove of another form")
        self.replies.append([word for word in words[1::2] if word not in ("null", "(none)")])
        if len(self.replies) > len(self.searches):
            raise EngineFault("a bestmove that nobody had asked for")

    def read_until(self, start):
        self.engine.wait_for(start, REPLY_LIMIT, self.take)

    def settle(self):
        """All that was said has been heard, and what it printed has been read."""
        self.send("isready")
        self.read_until("readyok")
        if len(self.replies) == len(self.searches):
            self.close()

    def close(self):
        """The latest search has been answered, and none of the others will be any more."""
        for number, reply in enumerate(self.replies):
            if self.is_host:
                self.records.append({"positions": [self.searches[number]], "reply": reply})
                continue
            is_last = number == len(self.replies) - 1
            # Of several searches it is not known which ones were answered before a "go" replaced
            # them; the last answer is the last one's.
            searched = self.searches[-1:] if is_last else self.searches[:-1]
            self.records.append({"positions": searched, "reply": reply})
        self.searches.clear()
        self.replies.clear()

    def choose_position(self):
        self.position = self.dice.choice(POSITIONS)
        fen, moves = self.position
        behind = f" moves {moves}" if moves else ""
        start = "startpos" if fen == uci_games.START else f"fen {fen}"
        self.send(f"position {start}{behind}")

    def go(self):
        # Half of the searches are replaced when it is known whether they have been answered.
        if self.searches and self.dice.random() < 0.5:
            self.settle()
        ponder = "ponder " if self.dice.random() < 0.2 else ""
        self.send(f"go {ponder}{self.dice.choice(LIMITS)}".rstrip())
        fen, moves = self.position
        # However soon the "stop" comes, there is a move if a search runs at all.
        self.searches.append(
            {"fen": fen, "moves": moves.split(),
             "mustMove": self.is_host or self.position != FIFTY_MOVES})

    def stop(self):
        self.send("stop")
        self.settle()
        if self.searches:
            if not self.replies:
                raise EngineFault("no bestmove after stop")
            if self.is_host and len(self.replies) != len(self.searches):
                raise EngineFault("a search without a bestmove")
            self.close()

    def kill_engine(self):
        pid = self.engine.process.pid
        path = pathlib.Path(f"/proc/{pid}/task/{pid}/children")
        children = path.read_text(encoding="ascii").split()
        self.said.append(f"(kills {' '.join(children)})")
        for child in children:
            try:
                os.kill(int(child), signal.SIGKILL)
            except ProcessLookupError:
                pass

    def disturb(self):
        kind = self.dice.random()
        if self.is_host and self.dice.random() < 0.04:
            self.kill_engine()
            return
        if kind < 0.4:
            self.send(self.dice.choice(self.options))
        elif kind < 0.6:
            self.send(self.dice.choice(CONSOLE_WORDS))
        elif kind < 0.75:
            self.settle()
        elif kind < 0.85:
            self.send("ponderhit")
        elif kind < 0.95:
            self.choose_position()
        else:
            self.send(self.dice.choice(("ucinewgame", "uci", "debug on", "_show")))

    def begin(self, at_console):
        """What stands before the first search; a search of the console is none of ours."""
        if at_console:
            for _ in range(self.dice.randrange(6)):
                self.send(self.dice.choice(CONSOLE_STARTS))
                time.sleep(self.dice.choice(PAUSES))
            self.send(".")
            self.send("uci")
            self.searches.append(None)
            self.send("stop")
            self.send("isready")
            self.read_until("readyok")
            self.searches.clear()
            self.replies.clear()
        else:
            self.send("uci")
            self.read_until("uciok")
        self.send(f"setoption name Threads value {self.dice.randint(1, 4)}")
        self.send("setoption name Hash value 2")

    def run(self, actions, at_console):
        self.begin(at_console)
        self.choose_position()
        for _ in range(actions):
            time.sleep(self.dice.choice(PAUSES))
            kind = self.dice.random()
            if kind < 0.3:
                self.go()
            elif kind < 0.5:
                self.stop()
            else:
                self.disturb()
        if self.dice.random() < 0.7:
            self.stop()
        self.send("quit")
        self.engine.wait_for_end(REPLY_LIMIT, self.take)


def run_dialogue(arguments, seed):
    """The records for the judge and the complaint, if there is one, of the dialogue of a seed."""
    dice = random.Random(seed)
    at_console = dice.random() < 0.2 and not arguments.host
    with tempfile.TemporaryDirectory() as folder:
        for name, content in CONFIGS.items():
            (pathlib.Path(folder) / name).write_text(content, encoding="ascii")
        engine = uci_games.Engine(arguments.engine, folder, ["-c"] if at_console else [])
        dialogue = Dialogue(engine, option_lines(arguments.data_folder.resolve()), dice,
                            arguments.host)
        fault = None
        try:
            dialogue.run(arguments.actions, at_console)
            status = engine.process.wait(timeout=REPLY_LIMIT)
            engine.readers[1].join()
            errors = [line for line in engine.errors if line != UNMAPPED]
            if status != 0 or errors:
                fault = f"ended with status {status}\n" + "".join(errors)
        except (EngineFault, subprocess.TimeoutExpired) as error:
            fault = str(error) + "\n" + "".join(engine.errors)
        finally:
            engine.close()
    if fault is not None:
        fault = f"dialogue {seed}: {fault}\n  " + "\n  ".join(dialogue.said[-60:])
    return [dict(record, seed=seed) for record in dialogue.records], fault


def candidates(record):
    """The games of which one must be right for the reply to be right."""
    reply = record["reply"]
    for position in record["positions"]:
        claim = "no move" if not reply and position["mustMove"] else None
        yield Game([*position["moves"], *reply], position["fen"], claim=claim)


def judge_replies(records):
    """Prints the records whose reply fits none of the positions. How many they are."""
    ours = [Game(moves.split(), fen) for fen, moves in POSITIONS]
    groups = [list(candidates(record)) for record in records]
    complaints = uci_games.judge([*ours, *(game for group in groups for game in group)])
    for game in ours:
        if complaints.pop(0) is not None:
            raise SystemExit(f"this test plays an illegal move: {game}")
    wrong = 0
    for record, group in zip(records, groups):
        found = [complaints.pop(0) for _ in group]
        if None not in found:
            wrong += 1
            print(f"dialogue {record['seed']}: {record}: {'; '.join(found)}")
    print(f"{len(records)} replies, {wrong} wrong")
    return wrong


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", action="store_true")
    parser.add_argument("--dialogues", type=int, default=60)
    parser.add_argument("--actions", type=int, default=30)
    parser.add_argument("--seed", type=int, default=1, help="of the first dialogue")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("engine")
    parser.add_argument("data_folder", type=pathlib.Path)
    arguments = parser.parse_args()
    arguments.engine = os.path.abspath(arguments.engine)
    seeds = range(arguments.seed, arguments.seed + arguments.dialogues)
    records = []
    faults = 0
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for found, fault in pool.map(lambda seed: run_dialogue(arguments, seed), seeds):
            records += found
            if fault is not None:
                faults += 1
                print(fault)
    wrong = 0
    if uci_games.find_referee() is None:
        print("pgn-extract is not installed: the moves are not judged")
    else:
        wrong = judge_replies(records)
    print(f"{arguments.dialogues} dialogues, {faults} at fault")
    return 1 if faults or wrong or not records else 0


if __name__ == "__main__":
    sys.exit(main())
