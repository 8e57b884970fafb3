"""One engine's process, and what it says while it searches.

The owner is told of events by a function that must not wait: `info` lines pile up nowhere, the
last one of each line of an analysis is kept until somebody asks for it.
"""

import asyncio
import contextlib
import re
import signal
import time

from .processes import end_process, send_signal, start_process

LONGEST_LINE = 1 << 16      # bytes; the longest real ones have some 1,500
MOST_STARTS = 5             # within START_SPAN; an engine that dies more often is given up
START_SPAN = 60.0           # seconds
STOP_PATIENCE = 5.0         # seconds between `stop` and the end of a search; usual are hundredths
HASH = 64                   # megabytes of each page's engine
OPTION = re.compile(r"option name (\S+) type spin default (-?\d+) min (-?\d+) max (-?\d+)")
NUMBERS = ("depth", "seldepth", "multipv", "time", "nodes", "nps", "hashfull", "tbhits")


def read_info(line):
    """An `info` line with a score as a record, or None."""
    words = line.split()
    found = {}
    place = 1
    while place < len(words):
        word = words[place]
        if word == "pv":
            found["pv"] = words[place + 1:]
            break
        if word == "string":
            return None
        if word == "score" and place + 2 < len(words):
            with contextlib.suppress(ValueError):
                found[words[place + 1]] = int(words[place + 2])
            place += 2
        elif word in ("lowerbound", "upperbound"):
            found["bound"] = word
        elif word in NUMBERS and place + 1 < len(words):
            with contextlib.suppress(ValueError):
                found[word] = int(words[place + 1])
            place += 1
        place += 1
    return found if "cp" in found or "mate" in found else None


class Engine:
    """vesk-uci for one page. `tell` is called with the name of what happened and a record:
    ready, info, remark, bestmove, gone."""

    def __init__(self, program, folder, tell):
        self.program = program
        self.folder = folder
        self.tell = tell
        self.process = None
        self.reader = None
        self.starts = []
        self.known = {}         # name of a spin option: default, least and greatest value
        self.set = {}           # options as they were last set
        self.is_searching = False
        self.is_closed = False
        self.alarm = None       # rings where the engine does not stop

    async def start(self):
        """Starts the process, unless it has died too often. Raises OSError."""
        now = time.monotonic()
        self.starts = [when for when in self.starts if now - when < START_SPAN]
        if len(self.starts) >= MOST_STARTS:
            raise OSError(f"the engine has ended {MOST_STARTS} times within a minute")
        self.starts.append(now)
        self.set, self.is_searching = {}, False
        pipe = asyncio.subprocess.PIPE
        self.process = await start_process([self.program], self.folder, stdin=pipe, stdout=pipe,
                                           stderr=asyncio.subprocess.DEVNULL, limit=LONGEST_LINE)
        if self.is_closed:      # the page went meanwhile
            await end_process(self.process)
            return
        self.reader = asyncio.create_task(self.read_output(self.process))
        self.send("uci")
        self.set_option("Hash", HASH)
        self.send("isready")

    def send(self, line):
        """Says a line, if there is somebody to hear it: an engine that has ended is noticed by its
        output."""
        if self.process is not None and self.process.returncode is None:
            with contextlib.suppress(ConnectionError, RuntimeError):
                self.process.stdin.write(line.encode() + b"\n")

    def set_option(self, name, value):
        """Sets an option that is not at that value yet."""
        if self.set.get(name) != value:
            self.set[name] = value
            self.send(f"setoption name {name} value {value}")

    def search(self, position, limits, options):
        """Starts a search; it answers with one bestmove."""
        for name, value in options.items():
            self.set_option(name, value)
        self.send(position)
        self.send(f"go {limits}")
        self.is_searching = True

    def stop(self):
        """Has the search end. An engine that does not is killed, and so started again."""
        if self.is_searching:
            self.send("stop")
            if self.alarm is None:
                self.alarm = asyncio.get_running_loop().call_later(
                    STOP_PATIENCE, send_signal, self.process, signal.SIGKILL)

    def note_end(self):
        """The search has ended, one way or the other."""
        self.is_searching = False
        if self.alarm is not None:
            self.alarm.cancel()
            self.alarm = None

    async def read_output(self, process):
        with contextlib.suppress(ValueError, ConnectionError):   # ValueError: a line without end
            while line := await process.stdout.readline():
                self.take_line(line.decode(errors="replace").rstrip("\n"))
        self.note_end()
        if not self.is_closed:
            await end_process(process)
            self.tell("gone", {})

    def take_line(self, line):
        word, _, rest = line.partition(" ")
        if word == "info":
            if rest.startswith("string "):
                self.tell("remark", {"text": rest[7:][:300]})
            elif (found := read_info(line)) is not None:
                self.tell("info", found)
        elif word == "bestmove":
            self.note_end()
            words = rest.split()
            self.tell("bestmove", {"move": words[0] if words else "(none)",
                                   "ponder": words[2] if len(words) > 2 else None})
        elif word == "option" and (found := OPTION.match(line)):
            self.known[found[1]] = tuple(map(int, found.groups()[1:]))
        elif word == "id" and rest.startswith("name "):
            self.name = rest[5:]
        elif word == "readyok":
            self.tell("ready", {})

    async def close(self):
        self.is_closed = True
        self.note_end()
        await end_process(self.process)
        if self.reader is not None:
            self.reader.cancel()
            with contextlib.suppress(asyncio.CancelledError):
                await self.reader
