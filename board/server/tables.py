"""Score tables: what each term of the evaluation says about a position, for both sides, as
`vesk-data explain` tells it."""

import asyncio
import collections
import json

from .processes import end_process, start_process

LIMIT = 20.0        # seconds that a table may take; a few hundredths are usual
LONGEST = 1 << 18   # bytes of a table; the longest real ones have some 20,000
MOST_KEPT = 500     # tables; a game is gone through back and forth
AT_ONCE = 2         # processes
MOST_WEIGHTS = 60   # of a table that are shown


def parts_of(pair, phase):
    """What middle game and endgame add, in centipawns, by how far the game is."""
    return [round(pair["mg"] * (1 - phase)), round(pair["eg"] * phase)]


def read_row(row, phase):
    """A term: the centipawns of both sides without material, and their parts."""
    found = {"term": row["name"]}
    for side in ("white", "black"):
        found[side] = row[side]["value"]
        found[f"{side}Parts"] = parts_of(row[side], phase)
    return found


def read_material(rows, phase):
    """All material, as a row."""
    found = {"term": "material"}
    for side in ("white", "black"):
        pairs = [row["material"][side] for row in rows if "material" in row]
        found[side] = sum(pair["value"] for pair in pairs)
        parts = [parts_of(pair, phase) for pair in pairs]
        found[f"{side}Parts"] = [sum(part[half] for part in parts) for half in (0, 1)]
    return found


def read_weight(weight, phase):
    """A weight that acts: its name, the term that it belongs to, what it adds for each side."""
    sums = {side: sum(parts_of(weight[side], phase)) for side in ("white", "black")}
    squares = [weight[side]["square"] for side in ("white", "black") if "square" in weight[side]]
    return {"name": weight["name"], "term": weight["term"], **sums, "squares": squares,
            "times": [weight[side]["times"] for side in ("white", "black")]}


def read_table(answer):
    """A line of JSON as the page gets it: rows, the squares of hanging pieces, the weights that
    act, the score for White. Without rows where the engine judges by a rule instead."""
    if "error" in answer:
        return {"rows": [], "hung": [], "text": answer["error"]}
    table = {"rows": [], "hung": answer.get("hung", []), "score": answer["score"]["white"]}
    rows = answer.get("terms")
    if not rows:
        return {**table, "rule": answer["judged_by"]}
    phase = answer["phase"]
    weights = [read_weight(weight, phase) for weight in answer["weights"]
               if not weight["name"].startswith("mtl_")]
    weights.sort(key=lambda weight: -abs(weight["white"]) - abs(weight["black"]))
    return {**table, "rows": [read_material(rows, phase), *(read_row(row, phase) for row in rows)],
            "weights": weights[:MOST_WEIGHTS], "phase": phase, "scale": answer["scale"],
            "check": answer["check"]}


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
                answer = await asyncio.wait_for(self.ask(fen, taste), LIMIT)
                table = read_table(json.loads(answer))
            except (asyncio.TimeoutError, OSError) as fault:
                return {"rows": [], "hung": [], "text": str(fault) or "no answer in time"}
            except (ValueError, KeyError):
                return {"rows": [], "hung": [], "text": "vesk-data tells something else"}
        self.kept[key] = table
        if len(self.kept) > MOST_KEPT:
            self.kept.popitem(last=False)
        return table

    async def ask(self, fen, taste):
        """What vesk-data answers, a line."""
        words = [word for name, pair in taste.items()
                 for word in ("--set", f"{name}={pair[0]},{pair[1]}")]
        process = await start_process(
            [self.programs.data, "explain", "--form", "json", *words, fen], self.folder,
            stdin=asyncio.subprocess.DEVNULL, stdout=asyncio.subprocess.PIPE,
            stderr=asyncio.subprocess.DEVNULL, limit=LONGEST)
        try:
            return await process.stdout.readline()
        finally:
            await end_process(process)
