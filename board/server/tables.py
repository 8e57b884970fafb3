"""Score tables: what each term of the evaluation says about a position, for both sides."""

import asyncio
import collections
import re

from .processes import end_process, start_process
from .words import Refusal

LIMIT = 20.0        # seconds that a table may take
MOST_KEPT = 500     # tables; a game is gone through back and forth
AT_ONCE = 2         # processes
ROW = re.compile(r"(\w+): +(-?\d+) +(-?\d+) +(-?\d+) +(-?\d+)")
HUNG = re.compile(r"hung pieces on: +(.*)")
LAST = re.compile(r"eval= (-?\d+), +phase= (-?[\d.]+), +sf= (-?[\d.]+)")
TERMS = {"pawns", "knights", "bishops", "rooks", "queens", "king", "ppawns", "other"}


def read_table(text):
    """The printed table as a record: rows with white's and black's centipawns and what their
    material differs by; the squares of hanging pieces; the score for the side to move. Without rows
    where the engine judges by a rule instead."""
    rows = [{"term": name, "white": int(white), "black": int(black), "material": int(material)}
            for name, white, black, _, material in ROW.findall(text) if name in TERMS]
    hung, last = HUNG.search(text), LAST.search(text)
    table = {"rows": rows, "hung": hung[1].split() if hung else []}
    if last:
        table |= {"score": int(last[1]), "phase": float(last[2]), "scale": float(last[3])}
    return table


class Tables:
    """Asks for tables and keeps the last ones."""

    def __init__(self, programs, folder):
        self.programs = programs
        self.folder = folder
        self.kept = collections.OrderedDict()
        self.turn = asyncio.Semaphore(AT_ONCE)

    async def explain(self, fen, taste):
        """The table of a position with a taste; without rows and with a text if there is none."""
        key = fen, tuple(taste.items())
        if key in self.kept:
            self.kept.move_to_end(key)
            return self.kept[key]
        async with self.turn:
            try:
                table = await asyncio.wait_for(self.ask(fen, taste), LIMIT)
            except (asyncio.TimeoutError, OSError, Refusal) as fault:
                return {"rows": [], "hung": [], "text": str(fault) or "no answer in time"}
        self.kept[key] = table
        if len(self.kept) > MOST_KEPT:
            self.kept.popitem(last=False)
        return table

    async def ask(self, fen, taste):
        """Has the engine print the table."""
        lines = [f"setoption name {name} value {pair[0]},{pair[1]}" for name, pair in taste.items()]
        lines += [f"position fen {fen}", "eval"]
        pipe = asyncio.subprocess.PIPE
        process = await start_process([self.programs.engine], self.folder, stdin=pipe, stdout=pipe,
                                      stderr=asyncio.subprocess.DEVNULL)
        try:
            process.stdin.write(("\n".join(lines) + "\n").encode())
            text = ""
            while line := (await process.stdout.readline()).decode(errors="replace"):
                if line.startswith("info string position:"):
                    raise Refusal(line[len("info string "):].strip())
                text += line
                if line.startswith("eval="):
                    break
        finally:
            await end_process(process)
        return read_table(text)
