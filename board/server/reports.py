"""What vesk-tune has left in a folder, and the weights that come with Vesk."""

import asyncio
import re

from .processes import end_process, start_process
from .words import Refusal

LARGEST = 1 << 20       # bytes of a file; a report of all weights has some 60,000
LIMIT = 10.0            # seconds that the engine may take to print its weights
SINGLE = re.compile(r"(\w+) +(-?\d+) , +(-?\d+)")
RANK = re.compile(r"(?: +-?\d+){16}")
# In the order in which the console prints the tables, which is that of the file.
TABLES = ("PST_P1", "PST_CP", "PST_DP", "PST_N1", "PST_B1", "PST_R1", "PST_Q1", "PST_K",
          "PST_P2", "PST_N2", "PST_B2", "PST_R2", "PST_Q2")
NAMES = ("tune_errors.csv", "tune_report.csv", "params.txt")


def read_file(path):
    """The text of a file, or None where there is none that could be a report."""
    if not path.is_file() or path.stat().st_size > LARGEST:
        return None
    return path.read_text(errors="replace")


class Reports:
    """Reports of the folder that the user has named, and of the sources' own weights."""

    def __init__(self, folder, weights):
        self.folders = {str(folder): folder, "the tuned weights that come with Vesk": weights}

    def find(self):
        """The names of folders with something to show."""
        return [name for name, folder in self.folders.items()
                if any((folder / file).is_file() for file in NAMES)]

    def read(self, name):
        """The files of one of them. Raises Refusal."""
        if not isinstance(name, str) or name not in self.folders:
            raise Refusal("there is no such report")
        found = {file: read_file(self.folders[name] / file) for file in NAMES}
        return {file: text for file, text in found.items() if text is not None}


def weights_text(printed):
    """What the console's word `sp` prints, in the form of a file of weights. Tables are printed
    with rank 8 first, and the middle game left of the endgame."""
    lines = [f'fset("{name}",{middle},{end});' for name, middle, end in SINGLE.findall(printed)]
    ranks = [list(map(int, row.split())) for row in printed.splitlines() if RANK.fullmatch(row)]
    for number, name in enumerate(TABLES):
        for row in reversed(ranks[8 * number:8 * number + 8]):
            lines += [f'fset("{name}",{row[file]},{row[8 + file]});' for file in range(8)]
    return "\n".join(lines)


async def own_weights(console, folder):
    """The engine's built-in weights in the form of a file, or nothing where it does not tell."""
    pipe = asyncio.subprocess.PIPE
    process = None
    try:
        process = await start_process([console, "-c"], folder, stdin=pipe, stdout=pipe,
                                      stderr=asyncio.subprocess.DEVNULL)
        printed, _ = await asyncio.wait_for(process.communicate(b"ev\nsp\nquit\n"), LIMIT)
        return weights_text(printed.decode(errors="replace"))
    except (OSError, asyncio.TimeoutError):
        return ""
    finally:
        await end_process(process)
