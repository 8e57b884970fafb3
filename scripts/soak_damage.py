"""Files damaged by chance, and what the program is made to do with them: part of scripts/soak.

Everything follows from a seed: the file that is taken, the damage, and the words said to the
program. A run is good if the program ends by itself, with status 0 or 1, tells of no defect on
standard error, and leaves its input files as they were.
"""

import dataclasses
import json
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import threading
import time

PATIENCE = 30.0         # seconds for one reply, or for a whole run that nobody talks to
PAGE = 4096
TOLD = re.compile(r"(ERROR|WARNING|FATAL): \w*Sanitizer|runtime error:|LeakSanitizer|Assertion")


# ---- Damage: bytes and a source of chance in, other bytes out.

def flip_bits(data, dice):
    """One to eight bits turned over; the length stays."""
    out = bytearray(data)
    for bit in dice.sample(range(8 * len(out)), min(8 * len(out), dice.randint(1, 8))):
        out[bit // 8] ^= 1 << bit % 8
    return bytes(out)


def cut(data, dice):
    """The front alone."""
    return data[:dice.randrange(len(data))] if data else data


def insert(data, dice):
    """Some bytes more in one place."""
    at = dice.randint(0, len(data))
    count = dice.choice((1, 2, 7, 64, 300, 5000))
    filling = dice.choice((dice.randbytes(count), bytes(count), b"9" * count, b"(" * count))
    return data[:at] + filling + data[at:]


def zero_page(data, dice):
    """A page of zeros, as a disk leaves it; of a short file a sixteenth."""
    page = PAGE if len(data) >= 4 * PAGE else max(1, len(data) // 16)
    at = dice.randrange((len(data) + page - 1) // page) * page if data else 0
    end = min(len(data), at + page)
    return data[:at] + bytes(end - at) + data[end:]


def take_out(data, dice):
    """Some bytes less in one place."""
    if not data:
        return data
    at = dice.randrange(len(data))
    return data[:at] + data[at + dice.choice((1, 3, 16, 512)):]


def repeat(data, dice):
    """A piece twice, one behind the other."""
    if not data:
        return data
    at = dice.randrange(len(data))
    end = min(len(data), at + dice.choice((1, 10, 100, 4096)))
    return data[:end] + data[at:end] + data[end:]


def overwrite(data, dice):
    """Random bytes over those in one place; the length stays."""
    if not data:
        return data
    at = dice.randrange(len(data))
    end = min(len(data), at + dice.choice((1, 2, 4, 32, 200)))
    return data[:at] + dice.randbytes(end - at) + data[end:]


def write_extreme(data, dice):
    """A number of the text, if there is one, becomes another that is hard to hold."""
    numbers = list(re.finditer(rb"[0-9]+", data))
    if not numbers:
        return data
    place = dice.choice(numbers)
    value = dice.choice((b"0", b"-1", b"2147483647", b"-2147483648", b"32768", b"9" * 40, b"1e9",
                         b"nan", b"0x7f", b""))
    return data[:place.start()] + value + data[place.end():]


DAMAGES = (flip_bits, cut, insert, zero_page, take_out, repeat, overwrite, write_extreme)


def damage(data, dice):
    """Data damaged in one to three ways, and the names of these."""
    ways = dice.choices(DAMAGES, k=dice.choice((1, 1, 2, 3)))
    for way in ways:
        data = way(data, dice)
    return data, [way.__name__ for way in ways]


# ---- Cases: what lies in a folder, and what is said there.

@dataclasses.dataclass
class Case:
    """The program's words, and lines said to it, each with the start of the reply awaited (or
    None). Without lines its standard input is empty."""
    kind: str
    source: str
    ways: list
    words: list
    steps: list


def pick(dice, data, *patterns):
    return dice.choice(sorted(path for pattern in patterns for path in data.glob(pattern)))


def spoil(dice, source, target):
    """Writes source to target, damaged, and gives the names of the damage."""
    changed, ways = damage(source.read_bytes(), dice)
    target.write_bytes(changed)
    return ways


def search_steps(positions, limit):
    steps = []
    for position in positions:
        steps += [(f"position {position}", None), (f"go {limit}", "bestmove")]
    return steps


def end_steps(steps):
    return [("uci", "uciok"), *steps, ("isready", "readyok"), ("quit", None)]


def random_position(dice, material):
    """A position of this material, often legal. Kings that stand in their corners have gone to and
    fro for more than ten half-moves, where the other half of a table is asked."""
    white, _, black = material.partition("v")
    # Kings first: their squares may be fixed, and nobody else must stand there.
    pieces = sorted(white + black.lower(), key=lambda piece: piece not in "Kk")
    at_home = dice.random() < 0.5
    squares = {"K": (0, 0), "k": (7, 7)} if at_home else {}
    board = [[None] * 8 for _ in range(8)]
    for piece in pieces:
        while True:
            ranks = range(1, 7) if piece in "Pp" else range(8)
            rank, file = squares.get(piece) or (dice.choice(ranks), dice.randrange(8))
            if board[rank][file] is None:
                board[rank][file] = piece
                break
    rows = []
    for row in reversed(board):
        text = "".join(piece or "1" for piece in row)
        rows.append(re.sub("1+", lambda run: str(len(run.group())), text))
    moves = " moves" + 3 * " a1b1 h8g8 b1a1 g8h8" if at_home else ""
    turn = "w" if at_home else dice.choice("wb")
    return f"fen {'/'.join(rows)} {turn} - - 0 1{moves}"


def make_table(dice, data, folder):
    victim = pick(dice, data, "syzygy/*.rtb[wz]")
    for path in sorted((data / "syzygy").iterdir()):
        shutil.copyfile(path, folder / path.name)
    ways = spoil(dice, victim, folder / victim.name)
    positions = [random_position(dice, victim.stem) for _ in range(12)]
    steps = [("setoption name SyzygyPath value .", None), *search_steps(positions, "depth 4")]
    return Case("table", victim.name, ways, ["-hash", "2"], end_steps(steps))


def make_book(dice, data, folder):
    source = pick(dice, data, "small.bin", "pgn/*.bin")
    ways = spoil(dice, source, folder / "input.bin")
    lines = ("", " moves e2e4", " moves d2d4", " moves d2d4 d7d5", " moves e2e4 c7c5",
             " moves e2e4 e7e5 g1f3 b8c6")
    if dice.random() < 0.3:
        steps = [("book", None), ("e4", None), ("book", None), ("perft 1", "visited"),
                 ("quit", None)]
        return Case("book", source.name, ways, ["-c", "-hash", "2", "-book", "input.bin"], steps)
    options = ["OwnBook value true", "OwnBook_File value input.bin", "OwnBook_Depth value 60",
               f"OwnBook_Variety value {dice.choice((0, 25, 100))}"]
    if dice.random() < 0.5:
        options += ["OwnBook2_File value input.bin", "OwnBook2_Depth value 60"]
    steps = [(f"setoption name {option}", None) for option in options]
    steps += search_steps([f"startpos{line}" for line in lines], "depth 3")
    return Case("book", source.name, ways, ["-hash", "2"], end_steps(steps))


# What a number of this option becomes must not be more than the machine has.
LARGE_HASH = re.compile(rb"(?i)(hash[^\n0-9]{0,40}[0-9]{1,2})[0-9]+")


def make_config(dice, data, folder):
    source = pick(dice, data.parents[1], "fuzz/corpus/config/*")
    changed, ways = damage(source.read_bytes() + b"\nThreads = 2\nMultiPV = 2\nContempt = 7\n"
                           b"Activity_Knight = 90,110\nUCI_Elo = 2200\nOwnBook = true\n", dice)
    (folder / "input.cfg").write_bytes(LARGE_HASH.sub(rb"\1", changed))
    # A file may set Threads to 0, where nothing but "stop" answers a search.
    searches = []
    for limit in ("depth 3", "movetime 50"):
        searches += [("position startpos", None), (f"go {limit}", None), ("isready", "readyok"),
                     ("stop", None), ("isready", "readyok")]
    if dice.random() < 0.5:
        return Case("config", source.name, ways, ["-cfg", "input.cfg"], end_steps(searches))
    steps = [("setoption name ConfigFilePath value input.cfg", None), *searches]
    return Case("config", source.name, ways, ["-hash", "2"], end_steps(steps))


def make_weights(dice, data, folder):
    source = data / "default-weights.tsv"
    rows = [line.split("\t") for line in source.read_text(encoding="ascii").splitlines()
            if not line.startswith("#")]
    text = "".join(f'fset("{row[1]}",{row[2]},{row[3]});\n' for row in rows)
    changed, ways = damage(text.encode("ascii"), dice)
    (folder / "params.txt").write_bytes(changed)
    steps = search_steps(["startpos", "startpos moves e2e4 e7e5 g1f3 b8c6 f1b5"], "depth 5")
    return Case("weights", source.name, ways, ["-hash", "2"], end_steps(steps))


def make_tool(word, *patterns, extra=()):
    """A maker of runs of a tool that reads one file and ends."""
    def make(dice, data, folder):
        source = pick(dice, data, *patterns)
        name = f"input{source.suffix}"
        ways = spoil(dice, source, folder / name)
        return Case(word.strip("-"), source.name, ways, [*extra, "-hash", "2", word, name], [])
    return make


def make_load(dice, data, folder):
    source = pick(dice, data, "pgn/*.pgn", "scan/*.pgn")
    ways = spoil(dice, source, folder / "input.pgn")
    which = dice.choice(("", " 2", " 3", " White", " 999"))
    steps = [(f"load input.pgn{which}", None), ("jump 3", None), ("]", None), ("jump 999", None),
             ("ev", None), ("go 2", None), (".", None), ("perft 1", "visited"), ("quit", None)]
    return Case("load", source.name, ways, ["-c", "-hash", "2"], steps)


def make_suite(dice, data, folder):
    """The two files that the console looks for by name: positions to set up, and to tune by."""
    source = pick(dice, data, "bk.epd", "mates.epd", "scan/*.form2.epd", "scan/blunder.form3.epd")
    name, steps = dice.choice((
        ("test.epd", [("get BK.01", None), ("get 1", None), ("get", None), ("bd", None)]),
        ("tune.epd", [("tune mtl_rook", None), (".", None), ("tune", None), (".", None)])))
    ways = spoil(dice, source, folder / name)
    return Case(name.split(".")[0], source.name, ways, ["-c", "-hash", "2"],
                steps + [("new", None), ("perft 1", "visited"), ("quit", None)])


MAKERS = (
    make_table, make_book, make_config, make_weights, make_load, make_suite,
    make_tool("-mkbook", "pgn/*.pgn", "scan/*.pgn"),
    make_tool("-scan_pgn1", "scan/*.pgn", "pgn/*.pgn"),
    make_tool("-scan_pgn2", "scan/*.pgn", "pgn/*.pgn"),
    make_tool("-scan_pgn3", "scan/*.pgn", "pgn/*.pgn"),
    make_tool("-scan_pgn4", "scan/*.pgn", "pgn/*.pgn"),
    make_tool("-anepd", "bk.epd", "mates.epd", extra=("-quiet", "-d", "3")),
    make_tool("-mktune", "scan/*.form2.epd", "scan/blunder.form3.epd"),
)


def make_case(seed, data, folder):
    """Lays the files of a seed into an empty folder. All kinds have their turn."""
    dice = random.Random(f"damage {seed}")
    return MAKERS[seed % len(MAKERS)](dice, data, folder)


# ---- Running a case.

class Talk:
    """A running program: lines in, lines out. Whatever bytes it prints are read."""

    def __init__(self, words, folder, has_steps):
        self.process = subprocess.Popen(
            words, cwd=folder, stdin=subprocess.PIPE if has_steps else subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True)
        self.lines = queue.Queue()
        self.errors = []
        self.ended = False      # its output has been read to the end
        self.readers = [threading.Thread(target=self.read_output, daemon=True),
                        threading.Thread(target=self.read_errors, daemon=True)]
        for reader in self.readers:
            reader.start()

    def read_output(self):
        for line in self.process.stdout:
            self.lines.put(line.decode("utf-8", "replace"))
        self.lines.put(None)

    def read_errors(self):
        for line in self.process.stderr:
            self.errors.append(line.decode("utf-8", "replace"))

    def send(self, line):
        try:
            self.process.stdin.write(line.encode() + b"\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            pass                # its status tells more

    def wait_for(self, start, limit):
        """Reads up to a line that begins with start, or to the end where start is None. False if
        that took too long, or if the end came instead."""
        end = time.monotonic() + limit
        while not self.ended:
            try:
                line = self.lines.get(timeout=max(0.0, end - time.monotonic()))
            except queue.Empty:
                return False
            if line is None:
                self.ended = True
            elif start is not None and line.startswith(start):
                return True
        return start is None


def snapshot(folder):
    return {path.name: path.read_bytes() for path in folder.iterdir() if path.is_file()}


def complaint_of(talk, case, limit):
    """Runs the dialogue to its end and says what was wrong with it, or None."""
    for line, start in case.steps:
        talk.send(line)
        if start is not None and not talk.wait_for(start, limit):
            if not talk.ended:
                return f"no '{start}' within {limit:.0f} s of '{line}'"
            break
    is_early = talk.ended
    if not talk.wait_for(None, limit):
        return f"no end within {limit:.0f} s"
    try:
        status = talk.process.wait(timeout=limit)
    except subprocess.TimeoutExpired:
        return f"closed its output and did not end within {limit:.0f} s"
    if status not in (0, 1):
        return f"ended with status {status}"
    if is_early and status == 0:
        return "ended in the middle of the dialogue"
    return None


def run_case(engine, case, folder, environment=None, limit=PATIENCE):
    """Runs a case in its folder. What was wrong, with the end of standard error, or None."""
    before = snapshot(folder)
    words = [str(engine), *case.words]
    if environment:
        words = ["env", *(f"{name}={value}" for name, value in environment.items()), *words]
    talk = Talk(words, folder, bool(case.steps))
    try:
        complaint = complaint_of(talk, case, limit)
    finally:
        talk.process.kill()
        talk.process.wait()
    for reader in talk.readers:
        reader.join(timeout=limit)
    if complaint is None and TOLD.search("".join(talk.errors)):
        complaint = "told of a defect"
    after = snapshot(folder)
    changed = [name for name, content in before.items() if after.get(name) != content]
    if complaint is None and changed:
        complaint = f"changed its input: {', '.join(changed)}"
    return None if complaint is None else complaint + "\n" + "".join(talk.errors[-60:])


# ---- Keeping a case, so that it can be run again without its seed.

def keep_case(seed, data, target):
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    case = make_case(seed, data, target)
    (target / "case.json").write_text(json.dumps(dataclasses.asdict(case), indent=1) + "\n")


def are_texts(values):
    return isinstance(values, list) and all(isinstance(value, str) for value in values)


def is_step(step):
    line, start = step
    return isinstance(line, str) and (start is None or isinstance(start, str))


def read_case(folder):
    """An OSError or a ValueError if that is no kept case."""
    record = json.loads((folder / "case.json").read_text(encoding="utf-8"))
    try:
        record["steps"] = [tuple(step) for step in record["steps"]]
        case = Case(**record)
        is_good = are_texts([case.kind, case.source]) and are_texts(case.ways) \
            and are_texts(case.words) and all(is_step(step) for step in case.steps)
    except (KeyError, TypeError, ValueError):
        is_good = False
    if not is_good:
        raise ValueError("case.json is none that a soak has written")
    return case


def copy_case(kept, folder):
    """Lays the files of a kept case into folder. Raises what read_case does."""
    case = read_case(pathlib.Path(kept))
    for path in pathlib.Path(kept).iterdir():
        if path.name != "case.json":
            shutil.copyfile(path, folder / path.name)
    return case


def patience_of(environment):
    return PATIENCE * float((environment or os.environ).get("VESK_TIMEOUT_FACTOR", "1"))
