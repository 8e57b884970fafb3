#!/usr/bin/env python3
"""Lets two UCI engines play a match and tells who is the stronger one.

    match.py [OPTIONS] FIRST SECOND

An engine is PROGRAM or PROGRAM@FOLDER. It runs in FOLDER, where Vesk looks for params.txt: so one
program can play against itself with two sets of weights. A PROGRAM without a slash is looked for
here and then among the installed ones. Each opening (a FEN or EPD a line) is played twice, with the
colours exchanged; without --games that is done once for each. A game ends by mate or stalemate, the
third repetition, fifty moves, bare material, or as a draw after 400 half-moves, as the package
pgn-extract finds it to be. An engine that plays an illegal move, ends, oversteps its clock, or says
nothing for five minutes loses the game.

With --sprt the match ends as soon as it is proved whether the first engine is stronger by more than
ELO0 or by ELO1: 5 % of such proofs are wrong.

With --pgn the games are written to FILE, and beside it to FILE.state what --resume needs to go on
where a match was broken off: by Ctrl-C, by a full disk, or by the loss of power. Nothing but
--games, --sprt, --concurrency, --plot and --report may differ then.

Status 0 if the match is over, 1 if it was broken off or something is wrong with a file, an engine
or a game, 2 if it cannot be begun as told.
"""

import argparse
import contextlib
import datetime
import hashlib
import pathlib
import random
import re
import signal
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "scripts"))

import match_stats as stats
import svg_plot
import uci_games
from match_board import find_fault
from match_play import Arena, Job, Limit, Rules, SetupFault, Side
from match_record import Record, RecordFault, write_whole

PLOT_EVERY = 20.0       # seconds
JUDGED_AT_ONCE = 200    # games
FIRST_SHOWN = 0.05      # of the games: the Elo of fewer is not drawn, it jumps about


class InputFault(Exception):
    """A file that cannot be used."""


# ---- What the user says.

def parse_clock(text):
    match = re.fullmatch(r"(?:(\d+)/)?(?:(\d+):)?(\d+(?:\.\d*)?|\.\d+)(?:\+(\d+(?:\.\d*)?|\.\d+))?",
                         text)
    if match is None:
        raise argparse.ArgumentTypeError(f"'{text}' is not like 2+0.03, 40/60 or 1:30+1")
    moves, minutes, seconds, increment = match.groups()
    base = 60 * int(minutes or 0) + float(seconds)
    if base <= 0:
        raise argparse.ArgumentTypeError(f"'{text}' leaves no time")
    return Limit(base=base, increment=float(increment or 0), moves=int(moves or 0))


def parse_option(text):
    name, sign, value = text.partition("=")
    if not name or not sign:
        raise argparse.ArgumentTypeError(f"'{text}' is not like Hash=16")
    return name, value


def parse_numbers(names):
    """A reader of words like movenumber=40,movecount=8,score=10."""
    def parse(text):
        found = dict(part.partition("=")[::2] for part in text.split(","))
        if set(found) != set(names) or not all(value.isdigit() for value in found.values()):
            raise argparse.ArgumentTypeError(
                f"'{text}' is not like {','.join(f'{name}=N' for name in names)}")
        return tuple(int(found[name]) for name in names)
    return parse


def positive(text):
    if not text.isdigit() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"'{text}' is no number above 0")
    return int(text)


def arguments():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    add = parser.add_argument
    add("--games", type=positive, help="games to play; two for each opening if it is left out")
    add("--sprt", type=float, nargs=2, metavar=("ELO0", "ELO1"),
        help="end the match once one of the two is proved")
    add("--openings", type=pathlib.Path, metavar="FILE", help="positions, a FEN or EPD a line")
    add("--seed", type=int, help="shuffle the openings by this number")
    limits = parser.add_mutually_exclusive_group()
    limits.add_argument("--nodes", type=positive, help="for each move; 10000 if nothing is said")
    limits.add_argument("--movetime", type=positive, metavar="MS", help="for each move")
    limits.add_argument("--tc", type=parse_clock, metavar="[MOVES/]SECONDS[+INCREMENT]",
                        help="a clock for each engine")
    add("--margin", type=int, default=0, metavar="MS",
        help="how late a move may come under --tc before the game is lost")
    add("--option", type=parse_option, action="append", default=[], metavar="NAME=VALUE",
        help="a UCI option of both engines; may be repeated")
    for number, name in ((1, "first"), (2, "second")):
        add(f"--option{number}", type=parse_option, action="append", default=[],
            metavar="NAME=VALUE", help=f"of the {name} engine alone")
        add(f"--name{number}", metavar="NAME", help=f"the {name} engine's name in the games")
    add("--draw", type=parse_numbers(("movenumber", "movecount", "score")),
        metavar="movenumber=N,movecount=N,score=CP",
        help="end as a draw once both engines have called it one for so many moves")
    add("--resign", type=parse_numbers(("movecount", "score")), metavar="movecount=N,score=CP",
        help="end as won once both engines have said so for so many moves")
    add("--concurrency", type=positive, default=1, metavar="N", help="games at a time")
    add("--pgn", type=pathlib.Path, metavar="FILE", help="write the games")
    add("--resume", action="store_true", help="go on with the match in the file of --pgn")
    add("--plot", type=pathlib.Path, metavar="FILE.svg", help="draw Elo over the games")
    add("--report", type=positive, metavar="N", help="print the summary after every N games")
    add("first")
    add("second")
    options = parser.parse_args()
    if options.resume and not options.pgn:
        parser.error("--resume goes on with the match in the file of --pgn")
    if options.sprt and options.sprt[0] >= options.sprt[1]:
        parser.error("--sprt: ELO0 must be below ELO1")
    return options


def make_limit(options):
    if options.tc:
        options.tc.margin = options.margin / 1000
        return options.tc
    if options.movetime:
        return Limit(movetime=options.movetime)
    return Limit(nodes=options.nodes or 10000)


def make_sides(options):
    sides = []
    for text, name, own in ((options.first, options.name1, options.option1),
                            (options.second, options.name2, options.option2)):
        program, _, folder = text.partition("@")
        if not name:
            name = pathlib.Path(program).name + (f"@{pathlib.Path(folder).name}" if folder else "")
        sides.append(Side(name, program, folder or None, [*options.option, *own]))
    if sides[0].name == sides[1].name:
        for number, side in enumerate(sides, 1):
            side.name += f" ({number})"
    return sides


def read_openings(path):
    """The positions of a file, each sound and with a move to be played."""
    if path is None:
        return [uci_games.START]
    try:
        lines = path.read_text(encoding="utf-8-sig", errors="replace").splitlines()
    except OSError as error:
        raise InputFault(f"{path}: {error.strerror}") from None
    found = [(number, " ".join(line.split()[:4])) for number, line in enumerate(lines, 1)
             if line.strip() and line.strip()[0] not in "#;"]
    if not found:
        raise InputFault(f"{path}: there are no positions in it")
    for number, fen in found:
        fault = find_fault(fen)
        if fault is not None:
            raise InputFault(f"{path}:{number}: {fault}")
    text = "".join(uci_games.numbered(number, f"{fen} 0 1", "*", "*") for number, fen in found)
    for number in sorted(uci_games.run_referee(text, "--stalemate")):
        raise InputFault(f"{path}:{number}: no move can be played here")
    return [f"{fen} 0 1" for _, fen in found]


def describe(options, sides, rules, openings):
    """What must not change while a match is interrupted."""
    digest = hashlib.sha256("\n".join(openings).encode()).hexdigest()
    found = {f"the {name} engine": {"name": side.name, "program": side.program,
                                    "folder": side.folder, "options": side.options}
             for name, side in zip(("first", "second"), sides)}
    found |= {"the limit": str(rules.limit), "the margin": rules.limit.margin,
              "the draw rule": rules.draw, "the resign rule": rules.resign,
              "the digest of the openings in their order": digest}
    # As they come back from the file.
    return {name: tuples_as_lists(value) for name, value in found.items()}


def tuples_as_lists(value):
    if isinstance(value, dict):
        return {name: tuples_as_lists(part) for name, part in value.items()}
    return [tuples_as_lists(part) for part in value] if isinstance(value, (list, tuple)) else value


# ---- The match.

class Match:
    """The games that are over, and what they say."""

    def __init__(self, options, sides, rules, openings):
        self.options, self.sides, self.rules, self.openings = options, sides, rules, openings
        self.count = options.games or 2 * len(openings)
        self.points = []        # of each game, for the first engine
        self.by_pair = {}       # of a pair's turns
        self.pairs = []         # points of those that are complete, in the order in which they were
        self.verdict = None
        self.forfeits = 0
        self.unjudged, self.complaints = [], []
        self.record = None

    def take(self, pair, turn, points):
        self.points.append(points)
        turns = self.by_pair.setdefault(pair, {})
        turns[turn] = points
        if len(turns) == 2:
            self.pairs.append(sum(turns.values()))
            self.verdict = stats.verdict(self.ratio(), stats.sprt_bounds()) \
                if self.options.sprt else None

    def ratio(self):
        return stats.log_likelihood_ratio(stats.count_pairs(self.pairs), *self.options.sprt)

    def jobs(self):
        """What is left to be played."""
        done = {pair: set(turns) for pair, turns in self.by_pair.items()}
        for pair in range((self.count + 1) // 2):
            turns = range(min(2, self.count - 2 * pair))
            left = tuple(turn for turn in turns if turn not in done.get(pair, ()))
            if left:
                yield Job(pair, self.openings[pair % len(self.openings)], left)

    def tags(self):
        limit = self.rules.limit
        return {"Event": f"{self.sides[0].name} against {self.sides[1].name}, {limit}",
                "Date": datetime.date.today().strftime("%Y.%m.%d"),
                **({"TimeControl": str(limit)[3:]} if limit.base else {})}

    def add(self, job, turn, game):
        white = {"1-0": 1, "0-1": 0, "1/2-1/2": 0.5}[game.result]
        points = white if turn == 0 else 1 - white
        if self.record:
            self.record.add(job.number, turn, points, game, self.tags())
        self.take(job.number, turn, points)
        if game.why.startswith("forfeit"):
            self.forfeits += 1
            clear_line()
            print(f"game {job.number + 1}.{turn + 1}: {game.why}, "
                  f"{game.result} of {game.white} and {game.black}", file=sys.stderr)
        self.unjudged.append(uci_games.Game(game.moves, game.fen, result=game.result,
                                            claim=game.claim))
        if len(self.unjudged) >= JUDGED_AT_ONCE:
            self.judge()

    def judge(self):
        """Lets the referee try each game by its own tests."""
        complaints = [text for text in uci_games.judge(self.unjudged) if text is not None]
        self.unjudged = []
        for text in complaints:
            print(text, file=sys.stderr)
        self.complaints += complaints

    def words(self):
        rows = [stats.summary(self.points, self.pairs)]
        if self.options.sprt:
            counts = stats.count_pairs(self.pairs)
            rows += [f"pairs with 0, 0.5, 1, 1.5 and 2 points: {', '.join(map(str, counts))}",
                     stats.sprt_words(self.ratio(), self.options.sprt, stats.sprt_bounds())]
        return "\n".join(rows)

    def picture(self):
        """Elo with its range over the games, and the way of the test."""
        elo, band, ratios = [], [], []
        counts = [0] * 5
        step = max(1, len(self.pairs) // svg_plot.MOST_POINTS)
        for number, points in enumerate(self.pairs, 1):
            counts[round(2 * points)] += 1
            if number % step and number != len(self.pairs):
                continue
            found = stats.elo_range(counts)
            if found and number >= FIRST_SHOWN * len(self.pairs):
                elo.append((2 * number, found[0]))
                band.append((2 * number, *(max(-2000.0, min(2000.0, end)) for end in found[1:])))
            if self.options.sprt:
                ratios.append((2 * number, stats.log_likelihood_ratio(counts, *self.options.sprt)))
        ends = [end for _, *ends in band[len(band) // 10:] for end in ends] + [0]
        panel = svg_plot.Panel(f"{self.sides[0].name} against {self.sides[1].name}, "
                               f"{self.rules.limit}: Elo with its 95 % range", "games", "Elo",
                               min(ends), max(ends))
        panel.lines, panel.band, panel.levels = [("Elo", elo)], band, [(0, "")]
        panels = [panel]
        if self.options.sprt:
            bounds = stats.sprt_bounds()
            panel = svg_plot.Panel("sequential test: log-likelihood ratio", "games", "ratio")
            panel.lines = [("ratio", [(0, 0.0), *ratios])]
            panel.levels = [(bound, f"{elo:g} Elo") for bound, elo in zip(bounds,
                                                                         self.options.sprt)]
            panels.append(panel)
        return svg_plot.picture(panels)


def clear_line():
    if sys.stderr.isatty():
        print("\r\x1b[K", end="", file=sys.stderr)


def show_progress(match, begun, games_before):
    if not sys.stderr.isatty():
        return
    played = len(match.points) - games_before
    rate = played / max(1e-9, time.monotonic() - begun)
    left = ""
    if played:
        seconds = round((match.count - len(match.points)) / rate)
        left = f", {rate:.2f} games/s, at most {datetime.timedelta(seconds=seconds)} left"
    test = f"; SPRT {match.ratio():+.2f}" if match.options.sprt else ""
    text = stats.summary(match.points, match.pairs).partition(":")[2]
    clear_line()
    print(f"game {len(match.points)} of {match.count}{left}{test};{text}"[:150], end="",
          file=sys.stderr, flush=True)


def play_all(match, arena):
    """Plays what is left. True if nobody has broken it off."""
    interrupted = []
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: interrupted.append(True))
    begun = drawn = time.monotonic()
    before = len(match.points)
    with contextlib.closing(arena.play(match.jobs())) as games:
        for found in games:
            if found is not None:
                match.add(*found)
                if match.options.report and len(match.points) % match.options.report == 0:
                    clear_line()
                    print(match.words(), flush=True)
            if interrupted or match.verdict is not None:
                arena.stop()
            show_progress(match, begun, before)
            if match.options.plot and time.monotonic() - drawn > PLOT_EVERY:
                drawn = time.monotonic()
                write_whole(match.options.plot, match.picture())
    clear_line()
    return not interrupted


def run(options):
    openings = read_openings(options.openings)
    if options.seed is not None:
        random.Random(options.seed).shuffle(openings)
    sides = make_sides(options)
    rules = Rules(make_limit(options), draw=options.draw, resign=options.resign)
    match = Match(options, sides, rules, openings)
    if options.pgn:
        match.record = Record(options.pgn, describe(options, sides, rules, openings),
                              options.resume)
        for line in match.record.done:
            match.take(line["pair"], line["turn"], line["points"])
    if match.count > 2 * len(openings):
        print("there are fewer openings than pairs: they are played again, and games may repeat",
              file=sys.stderr)
    arena = Arena(sides, rules, options.concurrency)
    fault, is_whole = None, True
    try:
        if match.verdict is None:
            is_whole = play_all(match, arena)
    except (SetupFault, RecordFault) as found:
        clear_line()
        fault = found
    match.judge()
    print(match.words())
    if options.plot:
        write_whole(options.plot, match.picture())
    if fault is not None:
        raise fault
    if not is_whole:
        print("broken off" + ("; --resume goes on" if match.record else ""), file=sys.stderr)
    return 1 if match.complaints or not is_whole else 0


def main():
    options = arguments()
    if uci_games.find_referee() is None:
        print("The games are judged by pgn-extract, which is not installed: "
              "apt-get install pgn-extract", file=sys.stderr)
        return 2
    try:
        return run(options)
    except (InputFault, SetupFault, RecordFault, uci_games.RefereeFault) as fault:
        print(fault, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
