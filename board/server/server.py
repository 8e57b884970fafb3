"""What all pages share: how many there may be, score tables, tastes, matches, reports."""

import asyncio
import dataclasses
import pathlib

from aiohttp import web

from . import tastes, words
from .guard import is_right_key
from .matches import Matches
from .pages import SetupFault
from .reports import Reports, own_weights
from .session import Session
from .tables import Tables

MOST_PAGES = 8      # at a time; each has an engine


@dataclasses.dataclass
class Programs:
    """Where the programs lie that the server starts."""
    engine: pathlib.Path
    console: pathlib.Path
    data: pathlib.Path
    match: pathlib.Path
    weights: pathlib.Path       # the folder of the tuned weights

    @staticmethod
    def find(folder, top):
        """Those of a folder that programs were built in. Raises SetupFault."""
        found = [folder / name for name in ("vesk-uci", "vesk", "vesk-data")]
        for path in found:
            if not path.is_file():
                raise SetupFault(f"{path} is not there: make builds it")
        return Programs(*found, top / "bench" / "match.py", top / "weights")


class Server:
    def __init__(self, programs, folder, reports, key, games):
        self.programs = programs
        self.folder = folder
        self.key = key
        self.own = None     # the engine's own weights as a text, once somebody has asked
        self.sessions = set()
        self.tables = Tables(programs, folder / "engine")
        self.matches = Matches(programs, folder / "matches", games, self.tell_match)
        self.reports = Reports(reports, programs.weights)

    async def serve_socket(self, request):
        """The socket of a page, to whoever knows the key."""
        if not is_right_key(request, self.key):
            raise web.HTTPForbidden()
        if len(self.sessions) >= MOST_PAGES:
            raise web.HTTPServiceUnavailable()
        session = Session(self)
        self.sessions.add(session)
        try:
            return await session.run(request)
        finally:
            self.sessions.discard(session)

    def greet(self, session):
        """What a new page is told."""
        session.answer("hello", folder=str(self.folder))
        session.update("match", **self.matches.state)

    def tell_match(self, state):
        for session in self.sessions:
            session.update("match", **state)

    # ---- Messages that are not about a page's own engine.

    def take_tastes(self, session, _):
        session.answer("tastes", tastes=tastes.list_tastes(self.folder / "tastes"))

    def take_save(self, session, message):
        folder = self.folder / "tastes"
        taste = words.read_taste(message.get("taste"))
        found = {}
        try:
            found["path"] = str(tastes.save_taste(folder, words.read_name(message.get("name")), taste,
                                                  message.get("replace") is True))
        except (words.Refusal, OSError) as fault:
            found["text"] = str(fault)
        session.answer("tastes", tastes=tastes.list_tastes(folder), **found)

    def take_match(self, _, message):
        self.matches.start(words.read_name(message.get("name")),
                           words.read_taste(message.get("taste")),
                           words.read_name(message.get("other_name")),
                           words.read_taste(message.get("other")))

    def stop_match(self, *_):
        self.matches.stop()

    def take_reports(self, session, _):
        session.answer("reports", names=self.reports.find())

    def take_report(self, session, message):
        name = message.get("name", "")
        files = self.reports.read(name) if name != "" else {}

        async def answer():
            if self.own is None:
                self.own = await own_weights(self.programs.console, self.folder / "engine")
            session.answer("report", name=name, files=files, own=self.own)

        session.spawn(answer())

    TAKERS = {"tastes": take_tastes, "save_taste": take_save, "match": take_match,
              "stop_match": stop_match, "reports": take_reports, "report": take_report}

    def take_message(self, session, message):
        """Does what a message says that is not about the page's own engine. False if it is none
        such. Raises Refusal."""
        taker = self.TAKERS.get(message["type"]) if isinstance(message.get("type"), str) else None
        if taker is None:
            return False
        taker(self, session, message)
        return True

    async def close(self):
        """Ends all pages and what runs for them."""
        await self.matches.close()
        await asyncio.gather(*(session.close() for session in list(self.sessions)),
                             return_exceptions=True)
