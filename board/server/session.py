"""One page: its socket, its engine, and what the two say to each other."""

import asyncio
import collections
import contextlib
import json
import time

from aiohttp import WSCloseCode, WSMsgType, web

from . import words
from .engine import Engine

FRAME = 0.05            # seconds between two updates of what changes all the time
MESSAGE_RATE = 40.0     # messages of a page in a second, over a longer time
MESSAGE_BURST = 200
MOST_ANSWERS = 400      # that wait for a page which does not read
HEARTBEAT = 20.0        # seconds; a page that does not answer is gone


class Session:
    """The page's side and the engine's side. Answers wait in a queue; of what changes all the time
    (info lines, the state of a match) only the newest is kept, so that a page which reads slowly
    gets fewer updates and nothing piles up."""

    def __init__(self, server):
        self.server = server
        self.socket = None
        self.engine = Engine(server.programs.engine, server.folder / "engine", self.take_event)
        self.answers = collections.deque()
        self.latest = {}            # messages by type
        self.lines = {}             # of the search that runs: the newest info by number of the line
        self.is_dirty = asyncio.Event()
        self.current = None         # the search that runs, as the page asked for it
        self.waiting = None         # the one that shall run next
        self.is_ready = False
        self.asked = None           # the number of the message that is read, for a refusal
        self.tasks = set()
        self.allowance = MESSAGE_BURST
        self.counted = time.monotonic()

    # ---- To the page.

    def answer(self, kind, **members):
        """Queues a message. A page that reads none is given up."""
        if len(self.answers) >= MOST_ANSWERS:
            self.spawn(self.socket.close(code=WSCloseCode.TRY_AGAIN_LATER))
            return
        self.answers.append({"type": kind, **members})
        self.is_dirty.set()

    def update(self, kind, **members):
        """Puts a message in the place of an older one of its type that is not sent yet."""
        self.latest[kind] = {"type": kind, **members}
        self.is_dirty.set()

    def take_lines(self):
        """The newest lines of the search, once."""
        lines, self.lines = self.lines, {}
        if lines and self.current:
            self.answer("info", id=self.current["id"], lines=[lines[key] for key in sorted(lines)])

    async def send_all(self):
        """Sends what there is, at most twenty times a second. Waits where the page reads slowly."""
        while not self.socket.closed:
            await self.is_dirty.wait()
            self.is_dirty.clear()
            self.take_lines()
            batch = [*self.answers, *self.latest.values()]
            self.answers.clear()
            self.latest.clear()
            for message in batch:
                await self.socket.send_str(json.dumps(message, separators=(",", ":")))
            self.is_dirty.clear() if not (self.answers or self.latest or self.lines) else None
            await asyncio.sleep(FRAME)

    # ---- From the engine.

    def take_event(self, kind, record):
        """What the engine's reader tells; must not wait."""
        if kind == "info":
            if self.current is not None and "bound" not in record:
                self.lines[record.get("multipv", 1)] = record
                self.is_dirty.set()
        elif kind == "bestmove":
            self.take_lines()
            if self.current is not None:
                self.answer("bestmove", id=self.current["id"], **record)
            self.current = None
            self.start_waiting()
        elif kind == "ready" and not self.is_ready:
            self.is_ready = True
            self.answer("ready", engine=getattr(self.engine, "name", ""),
                        elo=self.engine.known.get("UCI_Elo", (3000, 1500, 3000))[1:])
            self.start_waiting()
        elif kind == "gone":
            self.spawn(self.restart())

    async def restart(self):
        """Starts an engine that has ended anew. The page asks again for what it was waiting for."""
        self.current = self.waiting = None
        self.lines = {}
        self.is_ready = False
        self.answer("lost")
        try:
            await self.engine.start()
        except OSError as error:
            self.answer("failed", text=str(error))

    def start_waiting(self):
        request, self.waiting = self.waiting, None
        if request is not None:
            self.current = request
            self.engine.search(request["position"], request["limits"], request["options"])

    # ---- From the page.

    def take_search(self, message):
        taste = words.read_taste(message.get("taste"))
        options = {name: f"{pair[0]},{pair[1]}" for name, pair in
                   {**dict.fromkeys(words.TASTE_NAMES, (100, 100)), **taste}.items()
                   if name in taste or name in self.engine.set}
        elo = message.get("elo")
        options["UCI_LimitStrength"] = "false" if elo is None else "true"
        if elo is not None:
            options["UCI_Elo"] = words.read_number(elo, "elo", 1500, 3300)
        options["MultiPV"] = words.read_number(message.get("lines", 1), "lines", 1,
                                               words.MOST_LINES)
        options["UCI_AnalyseMode"] = "true" if message.get("analyse") is True else "false"
        request = {"id": words.read_number(message.get("id"), "id", 0, 1 << 50),
                   "position": words.read_position(message),
                   "limits": words.read_limits(message.get("limits", {})), "options": options}
        if self.waiting is not None:
            self.answer("bestmove", id=self.waiting["id"], move=None, ponder=None)
        self.waiting = request
        if self.current is not None:
            self.engine.stop()
        elif self.is_ready:
            self.start_waiting()

    def take_stop(self, _):
        if self.waiting is not None:
            self.answer("bestmove", id=self.waiting["id"], move=None, ponder=None)
            self.waiting = None
        self.engine.stop()

    def take_newgame(self, _):
        if self.current is None:
            self.engine.send("ucinewgame")

    def take_explain(self, message):
        number = words.read_number(message.get("id"), "id", 0, 1 << 50)
        fen = words.read_fen(message.get("fen"))
        taste = words.read_taste(message.get("taste"))

        async def explain():
            table = await self.server.tables.explain(fen, taste)
            self.answer("explained", id=number, **table)

        self.spawn(explain())

    TAKERS = {"search": take_search, "stop": take_stop, "newgame": take_newgame,
              "explain": take_explain}

    def take_message(self, text):
        """Does what a message says. Raises Refusal, or OSError where files cannot be read."""
        self.asked = None
        try:
            message = json.loads(text)
        except (ValueError, RecursionError):
            raise words.Refusal("that is no JSON") from None
        if not isinstance(message, dict):
            raise words.Refusal("that is no message")
        if isinstance(message.get("id"), int):
            self.asked = message["id"]
        kind = message.get("type")
        taker = self.TAKERS.get(kind) if isinstance(kind, str) else None
        if taker is not None:
            taker(self, message)
        elif not self.server.take_message(self, message):
            raise words.Refusal("there is no such type of message")

    def is_too_fast(self):
        now = time.monotonic()
        self.allowance = min(MESSAGE_BURST,
                             self.allowance + MESSAGE_RATE * (now - self.counted)) - 1
        self.counted = now
        return self.allowance < 0

    async def read_page(self):
        async for message in self.socket:
            if self.is_too_fast():
                await self.socket.close(code=WSCloseCode.POLICY_VIOLATION, message=b"too fast")
                return
            if message.type != WSMsgType.TEXT:
                self.answer("refused", text="only text is understood")
                continue
            try:
                self.take_message(message.data)
            except (words.Refusal, OSError) as refusal:
                self.answer("refused", text=str(refusal), id=self.asked)

    # ---- Its life.

    def spawn(self, work):
        """Runs beside; ended with the page."""
        task = asyncio.create_task(work)
        self.tasks.add(task)
        task.add_done_callback(self.tasks.discard)

    async def run(self, request):
        """Serves a page until it goes. Its engine goes with it."""
        self.socket = web.WebSocketResponse(max_msg_size=words.LONGEST_MESSAGE, heartbeat=HEARTBEAT,
                                            compress=False, timeout=2.0)
        await self.socket.prepare(request)
        try:
            try:
                await self.engine.start()
            except OSError as error:
                self.answer("failed", text=str(error))
            self.spawn(self.send_all())
            self.server.greet(self)
            await self.read_page()
        finally:
            await self.close()
        return self.socket

    async def close(self):
        for task in list(self.tasks):
            task.cancel()
        await self.engine.close()
        with contextlib.suppress(Exception):
            await self.socket.close()
