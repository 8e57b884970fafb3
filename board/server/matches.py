"""A match of two tastes in the background, played and judged by bench/match.py."""

import asyncio
import datetime
import re
import signal
import sys

from .processes import end_process, send_signal, start_process
from .words import Refusal

NODES = 5000        # for each move: a game takes one or two seconds
LONGEST_TEXT = 400  # characters of what went wrong
SUMMARY = re.compile(r"games (\d+): won (\d+), drawn (\d+), lost (\d+);(.*)")
# Positions behind well-known beginnings, each played with both colours.
OPENINGS = (
    "r1bqkb1r/1ppp1ppp/p1n2n2/4p3/B3P3/5N2/PPPP1PPP/RNBQK2R w KQkq - 2 5",
    "r1bqk2r/pppp1ppp/2n2n2/2b1p3/2B1P3/2P2N2/PP1P1PPP/RNBQK2R w KQkq - 1 5",
    "rnbqkb1r/1p2pppp/p2p1n2/8/3NP3/2N5/PPP2PPP/R1BQKB1R w KQkq - 0 6",
    "rnbqkb1r/pp2pp1p/3p1np1/8/3NP3/2N5/PPP2PPP/R1BQKB1R w KQkq - 0 6",
    "rnbqkb1r/ppp2ppp/4pn2/3p4/3PP3/2N5/PPP2PPP/R1BQKBNR w KQkq - 2 4",
    "rn1qkbnr/pp2pppp/2p5/5b2/3PN3/8/PPP2PPP/R1BQKBNR w KQkq - 1 5",
    "rnbqkb1r/ppp2ppp/4pn2/3p4/2PP4/2N5/PP2PPPP/R1BQKBNR w KQkq - 2 4",
    "rnbqkb1r/pp2pppp/2p2n2/3p4/2PP4/2N2N2/PP2PPPP/R1BQKB1R b KQkq - 3 4",
    "rnbqk2r/pppp1ppp/4pn2/8/1bPP4/2N5/PP2PPPP/R1BQKBNR w KQkq - 2 4",
    "rnbqk2r/ppppppbp/5np1/8/2PPP3/2N5/PP3PPP/R1BQKBNR b KQkq - 0 4",
)
IDLE = {"state": "idle", "played": 0, "won": 0, "drawn": 0, "lost": 0}


class Matches:
    """One match at a time for all pages. `tell` is called with the state whenever it changes."""

    def __init__(self, programs, folder, games, tell):
        self.programs = programs
        self.folder = folder
        self.tell = tell
        self.idle = {**IDLE, "games": games}
        self.state = self.idle
        self.process = None
        self.task = None

    def change(self, **members):
        self.state = {**self.state, **members}
        self.tell(self.state)

    def start(self, name, taste, other_name, other):
        """Starts a match of two tastes. Raises Refusal."""
        if self.state["state"] == "playing":
            raise Refusal("a match is being played already")
        if taste == other:
            raise Refusal("the two tastes are the same")
        self.state = self.idle
        self.change(state="playing", name=name, other_name=other_name)
        self.task = asyncio.create_task(self.play(taste, other))

    def words(self, taste, other, games):
        """The command of the match."""
        openings = self.folder / "openings.epd"
        openings.write_text("".join(f"{fen}\n" for fen in OPENINGS))
        words = [sys.executable, "-B", self.programs.match, "--games", self.idle["games"], "--nodes", NODES,
                 "--openings", openings, "--report", 1, "--pgn", games, "--option", "Hash=16",
                 "--name1", self.state["name"], "--name2", self.state["other_name"]]
        for number, own in ((1, taste), (2, other)):
            for option, pair in own.items():
                words += [f"--option{number}", f"{option}={pair[0]},{pair[1]}"]
        return [*words, self.programs.engine, self.programs.engine]

    async def play(self, taste, other):
        errors = []
        try:
            self.folder.mkdir(parents=True, exist_ok=True)
            now = datetime.datetime.now().strftime("%Y-%m-%d-%H%M%S")
            games = self.folder / f"match-{now}.pgn"
            pipe = asyncio.subprocess.PIPE
            self.process = await start_process(self.words(taste, other, games), self.folder,
                                               stdin=asyncio.subprocess.DEVNULL, stdout=pipe,
                                               stderr=pipe)
            reader = asyncio.create_task(self.read_errors(errors))
            while line := (await self.process.stdout.readline()).decode(errors="replace"):
                if (found := SUMMARY.match(line)) is not None:
                    played, won, drawn, lost = map(int, found.groups()[:4])
                    self.change(played=played, won=won, drawn=drawn, lost=lost,
                                text=found[5].strip(),
                                path=f"{self.folder.name}/{games.name}")
            await reader
            status = await self.process.wait()
            (self.folder / f"{games.name}.state").unlink(missing_ok=True)
        except OSError as error:
            self.change(state="failed", text=str(error))
            return
        if self.state["played"] >= self.idle["games"]:
            self.change(state="over")
        elif self.state["state"] == "playing":
            text = " ".join("".join(errors).split())[-LONGEST_TEXT:]
            self.change(state="failed", text=text or f"the match ended with status {status}")

    async def read_errors(self, errors):
        while line := (await self.process.stderr.readline()).decode(errors="replace"):
            errors.append(line[:LONGEST_TEXT])
            del errors[:-10]

    def stop(self):
        """Ends the match; the games that were played stay."""
        if self.state["state"] == "playing":
            self.change(state="stopped")
            if self.process is not None:
                send_signal(self.process, signal.SIGTERM)

    async def close(self):
        self.stop()
        await end_process(self.process)
        if self.task is not None:
            await asyncio.wait([self.task], timeout=2.0)
