#!/usr/bin/env python3
"""The server of the page, spoken to as a page does and as nobody should.

    check_server.py ROOT PROGRAMS

PROGRAMS is the folder of the built programs. Status 77 where the module aiohttp is missing.
"""

import asyncio
import contextlib
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

from interpreter import need

need("aiohttp")

import aiohttp
import yarl

from board_server import BoardServer, wait_until

ROOT, PROGRAMS = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
START = "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1"
DANCE = ["g1f3", "g8f6", "f3g1", "f6g8"]    # leads nowhere, for as long as one likes
LIMIT = 30.0        # seconds that an answer may take on a busy machine


class Page:
    """A page's side of the socket."""

    def __init__(self, socket):
        self.socket = socket

    async def say(self, kind, **members):
        await self.socket.send_json({"type": kind, **members})

    async def hear(self, kind, count=None):
        """The next message of that type. With count, all before it are added to its list."""
        while True:
            message = await asyncio.wait_for(self.socket.receive(), LIMIT)
            if message.type is not aiohttp.WSMsgType.TEXT:
                raise ConnectionError(f"{kind} was awaited, closed with {self.socket.close_code}")
            record = message.json()
            if record["type"] == kind:
                return record
            if count is not None:
                count.append(record)

    async def search(self, number=1, moves=(), **members):
        await self.say("search", id=number, **{"fen": START, "moves": list(moves), **members})

    async def refusal(self, **members):
        await self.socket.send_json(members)
        return (await self.hear("refused"))["text"]


@contextlib.asynccontextmanager
async def open_page(server, key=None, **headers):
    """A page that the server knows as its own."""
    headers.setdefault("Origin", f"http://{server.host}")
    async with aiohttp.ClientSession() as session:
        address = f"http://{server.host}/socket?key={server.key if key is None else key}"
        async with session.ws_connect(address, headers=headers) as socket:
            yield Page(socket)


async def get(server, path="/", method="GET", **headers):
    async with aiohttp.ClientSession(auto_decompress=False) as session:
        # As it is written: a client that means well would tidy it up.
        address = yarl.URL(f"http://{server.host}{path}", encoded=True)
        async with session.request(method, address, headers=headers,
                                   allow_redirects=False) as answer:
            return answer.status, answer.headers, await answer.read()


async def status_of_socket(server, **words):
    try:
        async with open_page(server, **words):
            return 101
    except aiohttp.WSServerHandshakeError as error:
        return error.status


class ServerTest(unittest.IsolatedAsyncioTestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = BoardServer(ROOT, PROGRAMS)
        cls.server.__enter__()

    @classmethod
    def tearDownClass(cls):
        cls.server.__exit__()

    def tearDown(self):
        wait_until(lambda: not self.server.engines(), "no engine is left")


class Guard(ServerTest):
    async def test_files_come_packed_and_with_a_strict_policy(self):
        status, headers, body = await get(self.server, "/", **{"Accept-Encoding": "gzip"})
        self.assertEqual((status, headers["Content-Encoding"], body[:2]), (200, "gzip", b"\x1f\x8b"))
        policy = headers["Content-Security-Policy"]
        self.assertIn("default-src 'none'; script-src 'self'; style-src 'self'", policy)
        self.assertNotIn("unsafe-inline", policy)
        self.assertNotIn("unsafe-eval", policy)
        self.assertIn("frame-ancestors 'none'", policy)
        self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
        tag = headers["ETag"]
        self.assertEqual((await get(self.server, "/", **{"If-None-Match": tag}))[0], 304)

    async def test_nothing_else_is_served(self):
        for path in ("/nothing", "/%2e%2e/key", "/chess/../../key", "/chess/package.json",
                     "//etc/passwd", "/chessboard/src/%2e%2e/%2e%2e/%2e%2e/%2e%2e/key", "/" + 3000 * "a"):
            status, headers, _ = await get(self.server, path)
            self.assertEqual(status, 404, path)
            self.assertIn("default-src 'none'", headers["Content-Security-Policy"])
        for method in ("POST", "PUT", "DELETE", "OPTIONS"):
            self.assertIn((await get(self.server, "/", method))[0], (404, 405))

    async def test_foreign_hosts_are_refused(self):
        port = self.server.port
        for host in ("example.org", f"example.org:{port}", "127.0.0.1", f"127.0.0.1.example.org:{port}",
                     f"0.0.0.0:{port}", f"[::1]:{port}"):
            self.assertEqual((await get(self.server, Host=host))[0], 403, host)
            self.assertEqual(await status_of_socket(self.server, Host=host), 403, host)
        self.assertEqual((await get(self.server, Host=f"localhost:{port}"))[0], 200)

    async def test_foreign_origins_are_refused(self):
        port = self.server.port
        for origin in ("http://example.org", "null", f"https://127.0.0.1:{port}",
                       "http://127.0.0.1", f"http://127.0.0.1:{port + 1}",
                       f"http://localhost:{port}"):
            self.assertEqual((await get(self.server, Origin=origin))[0], 403, origin)
            self.assertEqual(await status_of_socket(self.server, Origin=origin), 403, origin)
        self.assertEqual(await status_of_socket(self.server, Origin=f"http://{self.server.host}"), 101)

    async def test_without_an_origin_or_the_key_no_socket_opens(self):
        async with aiohttp.ClientSession() as session:
            with self.assertRaises(aiohttp.WSServerHandshakeError):
                await session.ws_connect(
                    f"http://{self.server.host}/socket?key={self.server.key}")
        for key in ("", "x", self.server.key[:-1], self.server.key + "x"):
            self.assertEqual(await status_of_socket(self.server, key=key), 403, key)

    async def test_the_key_is_the_users_alone(self):
        self.assertEqual((self.server.folder / "key").stat().st_mode & 0o777, 0o600)

    async def test_other_addresses_of_the_machine_do_not_answer(self):
        listening = subprocess.run(["cat", f"/proc/{self.server.process.pid}/net/tcp"],
                                   stdout=subprocess.PIPE, text=True).stdout
        port = f":{self.server.port:04X} 00000000:0000 0A"
        places = [line.split()[1] for line in listening.splitlines() if port in line]
        self.assertEqual(places, [f"0100007F:{self.server.port:04X}"])


    async def test_what_is_no_http_is_refused_without_a_word_at_the_terminal(self):
        host = f"Host: {self.server.host}".encode()
        for text in (bytes(5000), b"G" * 100000, b"GET / HTTP/1.1\r\nHost: " + b"a" * 10000,
                     b"GET / HTTP/1.1\r\n" + host + b"\r\nHost: example.org\r\n\r\n",
                     b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"):
            with socket.create_connection(("127.0.0.1", self.server.port), LIMIT) as client:
                client.sendall(text)
                self.assertIn(b" 400 ", client.recv(100))
        self.assertEqual(self.server.errors(), "")

    async def test_those_who_say_nothing_keep_nobody_out(self):
        with contextlib.ExitStack() as stack:
            for _ in range(300):
                client = stack.enter_context(
                    socket.create_connection(("127.0.0.1", self.server.port), LIMIT))
                client.sendall(b"GET / HTTP/1.1\r\nHo")
            self.assertEqual((await get(self.server))[0], 200)


class Messages(ServerTest):
    async def test_garbage_is_refused_with_a_word_and_does_no_harm(self):
        rubbish = ["", "x", "[]", "null", "7", '"search"', "{}", '{"type":null}', '{"type":[]}',
                   '{"type":"shout"}', "[" * 20000, '{"type":"search"}',
                   '{"type":"__init__"}', '{"type":"explain","id":1,"fen":"x"}']
        async with open_page(self.server) as page:
            for text in rubbish:
                await page.socket.send_str(text)
                self.assertTrue((await page.hear("refused"))["text"], text)
            await page.socket.send_bytes(b"\x00\xff")
            self.assertIn("text", (await page.hear("refused"))["text"])
            await page.search(limits={"nodes": 100})
            self.assertEqual((await page.hear("bestmove"))["id"], 1)

    async def test_nothing_of_a_page_becomes_a_line_of_the_engine(self):
        fields = [{"fen": START + "\nquit"}, {"fen": "8/8/8/8/8/8/8/8 w - - 0 1\r\nquit"},
                  {"fen": 5}, {"fen": START, "moves": ["e2e4\nquit"]}, {"fen": START, "moves": "e2e4"},
                  {"fen": START, "moves": 4000 * ["e2e4"]}, {"fen": START, "moves": [["e2e4"]]},
                  {"fen": START, "limits": {"infinite": 1}}, {"fen": START, "limits": {"depth": "9"}},
                  {"fen": START, "limits": {"movetime": 1e99}}, {"fen": START, "limits": {"depth": True}},
                  {"fen": START, "limits": []}, {"fen": START, "lines": 256}, {"fen": START, "elo": -1},
                  {"fen": START, "taste": {"Hash": [100, 100]}},
                  {"fen": START, "taste": {"Threats": [100, 1000]}},
                  {"fen": START, "taste": {"Threats": ["100", "1"]}}, {"fen": START, "id": "1"}]
        async with open_page(self.server) as page:
            for members in fields:
                self.assertTrue(await page.refusal(type="search", **{"id": 1, **members}), members)
            for name in ("", "../x", "a/b", "a\n", ".x", 50 * "a", None, "é"):
                await page.say("save_taste", name=name, taste={})
                self.assertIn("name", (await page.hear("tastes"))["text"], name)

    async def test_a_refusal_tells_what_it_refuses(self):
        async with open_page(self.server) as page:
            for number in (7, None):
                await page.say("search", id=number, fen="x")
                self.assertEqual((await page.hear("refused"))["id"], number)

    async def test_random_messages_do_no_harm(self):
        chance = random.Random(1)
        kinds = ["search", "stop", "newgame", "explain", "tastes", "save_taste", "stop_match",
                 "reports", "report"]
        values = [None, True, 0, -1, 1 << 70, 1.5, "", "x", START, [], {}, ["e2e4"],
                  {"Threats": [50, 50]}, {"movetime": 1}]
        names = ["id", "fen", "moves", "limits", "lines", "elo", "taste", "name", "replace"]
        async with open_page(self.server) as page:
            for _ in range(120):
                await page.say(chance.choice(kinds), **{
                    name: chance.choice(values) for name in chance.sample(names, 4)})
            await page.say("stop")
            await page.search(number=77, limits={"nodes": 100})
            while (await page.hear("bestmove"))["id"] != 77:
                pass

    async def test_a_message_that_is_too_long_ends_the_page(self):
        async with open_page(self.server) as page:
            await page.socket.send_str(" " * (1 << 17))
            with self.assertRaises(ConnectionError):
                await page.hear("never")

    async def test_a_flood_ends_the_page(self):
        async with open_page(self.server) as page:
            with contextlib.suppress(ConnectionError):
                for _ in range(2000):
                    await page.say("stop")
            with self.assertRaises(ConnectionError):
                await page.hear("never")
            # The last words of the server may be lost with what it has not read.
            self.assertIn(page.socket.close_code, (aiohttp.WSCloseCode.POLICY_VIOLATION,
                                                   aiohttp.WSCloseCode.ABNORMAL_CLOSURE))

    async def test_only_so_many_pages(self):
        async with contextlib.AsyncExitStack() as stack:
            for _ in range(8):
                await stack.enter_async_context(open_page(self.server))
            self.assertEqual(await status_of_socket(self.server), 503)
        wait_until(lambda: not self.server.engines(), "the engines have ended")


class Searching(ServerTest):
    async def test_a_search_tells_lines_and_a_move(self):
        async with open_page(self.server) as page:
            before = []
            await page.search(limits={"nodes": 60000}, lines=3, moves=["e2e4"])
            move = await page.hear("bestmove", before)
            lines = [line for message in before if message["type"] == "info"
                     for line in message["lines"]]
            self.assertEqual({line["multipv"] for line in lines}, {1, 2, 3})
            self.assertTrue(all({"depth", "nodes", "nps", "pv"} <= set(line) for line in lines))
            self.assertRegex(move["move"], "[a-h][78][a-h][56]")

    async def test_lines_come_at_most_twenty_times_a_second(self):
        async with open_page(self.server) as page:
            await page.hear("ready")
            before = []
            begun = time.monotonic()
            await page.search(limits={"movetime": 1500}, lines=10)
            await page.hear("bestmove", before)
            seconds = time.monotonic() - begun
            updates = sum(message["type"] == "info" for message in before)
            self.assertLessEqual(updates, 20 * seconds + 2)
            self.assertGreater(updates, 3)

    async def test_a_page_that_reads_slowly_gets_fewer_lines(self):
        async with open_page(self.server) as page:
            await page.hear("ready")
            await page.search(limits={}, lines=10)
            await asyncio.sleep(1)
            page.socket._response.connection.transport.pause_reading()
            await asyncio.sleep(2)
            page.socket._response.connection.transport.resume_reading()
            await page.say("stop")
            before = []
            await page.hear("bestmove", before)
            self.assertLessEqual(sum(message["type"] == "info" for message in before), 70)

    async def test_the_next_search_takes_the_place_of_the_last(self):
        async with open_page(self.server) as page:
            for number in range(1, 5):
                await page.search(number=number, limits={} if number < 4 else {"nodes": 100})
            found = {}
            while 4 not in found:
                message = await page.hear("bestmove")
                found[message["id"]] = message["move"]
            self.assertTrue(found[4])
            self.assertEqual(len(found), 4)

    async def test_a_game_of_six_hundred_moves(self):
        async with open_page(self.server) as page:
            await page.search(moves=300 * DANCE, limits={"nodes": 100})
            self.assertTrue((await page.hear("bestmove"))["move"])

    async def test_a_position_that_cannot_be_has_no_move(self):
        async with open_page(self.server) as page:
            await page.search(fen="8/8/8/8/8/8/8/8 w - - 0 1", limits={"nodes": 100})
            self.assertEqual((await page.hear("bestmove"))["move"], "(none)")

    async def test_an_engine_that_is_killed_is_started_again(self):
        async with open_page(self.server) as page:
            await page.hear("ready")
            await page.search(limits={})
            await page.hear("info")
            for process in self.server.engines():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, signal.SIGKILL)
            await page.hear("lost")
            await page.hear("ready")
            await page.search(number=2, limits={"nodes": 100})
            self.assertEqual((await page.hear("bestmove"))["id"], 2)

    async def test_two_pages_search_at_once(self):
        async with open_page(self.server) as one, open_page(self.server) as two:
            await one.search(number=1, limits={"nodes": 3000})
            await two.search(number=2, limits={"nodes": 3000}, moves=["d2d4"])
            self.assertEqual((await one.hear("bestmove"))["id"], 1)
            self.assertEqual((await two.hear("bestmove"))["id"], 2)

    async def test_a_page_that_goes_in_a_search_leaves_no_process(self):
        async with open_page(self.server) as page:
            await page.search(limits={})
            await page.hear("info")
            self.assertTrue(self.server.engines())
        wait_until(lambda: not self.server.engines(), "the page's engine has ended", 3.0)


class Tables(ServerTest):
    async def test_a_table_has_all_terms(self):
        async with open_page(self.server) as page:
            await page.say("explain", id=5, fen=START)
            table = await page.hear("explained")
            self.assertEqual(table["id"], 5)
            self.assertEqual([row["term"] for row in table["rows"]],
                             ["material", "pawns", "knights", "bishops", "rooks", "queens", "king",
                              "ppawns", "other"])
            for row in table["rows"][:8]:
                self.assertEqual(row["white"], row["black"], row)
            total = sum(row["white"] - row["black"] for row in table["rows"])
            self.assertEqual(total, table["score"])
            self.assertIn("stm_bonus", [weight["name"] for weight in table["weights"]])

    async def test_middle_game_and_endgame_add_up(self):
        async with open_page(self.server) as page:
            await page.say("explain", id=1, fen="2r3k1/pp3ppp/8/8/3N4/8/PP3PPP/2R3K1 w - - 0 1")
            table = await page.hear("explained")
            self.assertTrue(0 < table["phase"] < 1)
            for row in table["rows"]:
                for side in ("white", "black"):
                    self.assertAlmostEqual(row[side], sum(row[f"{side}Parts"]), delta=5)

    async def test_hanging_pieces_are_named(self):
        async with open_page(self.server) as page:
            await page.say("explain", id=1, fen="4k3/8/8/3p4/2N5/8/4P3/4K3 w - - 0 1")
            self.assertEqual((await page.hear("explained"))["hung"], ["c4"])

    async def test_a_taste_changes_a_table(self):
        fen = "r1bqkbnr/pppp1ppp/2n5/4p3/2B1P3/5Q2/PPPP1PPP/RNB1K1NR b KQkq - 3 3"
        async with open_page(self.server) as page:
            await page.say("explain", id=1, fen=fen)
            plain = await page.hear("explained")
            await page.say("explain", id=2, fen=fen, taste={"Activity_Bishop": [200, 200]})
            other = await page.hear("explained")
            self.assertNotEqual(plain["rows"][3], other["rows"][3])
            self.assertEqual(plain["rows"][1], other["rows"][1])

    async def test_an_ending_that_a_rule_judges_has_no_rows(self):
        async with open_page(self.server) as page:
            await page.say("explain", id=1, fen="4k3/8/8/8/8/8/8/4K3 w - - 0 1")
            table = await page.hear("explained")
            self.assertEqual((table["rows"], table["rule"]), ([], "drawn material"))

    async def test_a_position_that_cannot_be_has_a_reason(self):
        async with open_page(self.server) as page:
            await page.say("explain", id=1, fen="8/8/8/8/8/8/8/8 w - - 0 1")
            table = await page.hear("explained")
            self.assertEqual((table["rows"], table["text"]),
                             ([], "each side needs exactly one king"))


class Tastes(ServerTest):
    async def test_a_taste_is_saved_as_a_file_that_the_engine_reads(self):
        taste = {"Threats": [150, 60], "Mtl_Pawn": [90, 100]}
        async with open_page(self.server) as page:
            await page.say("save_taste", name="My taste", taste=taste)
            saved = await page.hear("tastes")
            self.assertEqual(saved["tastes"]["My taste"], taste)
            await page.say("save_taste", name="My taste", taste={})
            self.assertEqual((await page.hear("tastes"))["text"], "exists")
            answer = subprocess.run(
                [self.server.engine], stdout=subprocess.PIPE, text=True, timeout=LIMIT,
                input=f"setoption name ConfigFilePath value {saved['path']}\nuci\nisready\n").stdout
            self.assertIn("Threats set to 150,60", answer)
            self.assertIn("Mtl_Pawn set to 90,100", answer)
            self.assertIn("King_Safety set to 100,100", answer)
            await page.say("save_taste", name="My taste", taste={}, replace=True)
            self.assertEqual((await page.hear("tastes"))["tastes"]["My taste"], {})

    async def test_a_match_of_two_tastes(self):
        if not shutil.which("pgn-extract", path=os.environ.get("PATH", "") + ":/usr/games"):
            self.skipTest("pgn-extract is not installed")
        async with open_page(self.server) as page:
            words = {"name": "bold", "taste": {"Threats": [200, 200]}, "other_name": "plain"}
            self.assertIn("same", await page.refusal(type="match", **{**words, "taste": {}}))
            await page.say("match", **words)
            state = {"state": "playing"}
            while state["state"] in ("idle", "playing"):
                state = await page.hear("match")
            self.assertEqual((state["state"], state["played"]), ("over", 2), state)
            self.assertEqual(state["won"] + state["drawn"] + state["lost"], 2)
            games = (self.server.folder / state["path"]).read_text()
            self.assertEqual(games.count("[Event "), 2)
            await page.say("match", **words)
            await page.say("stop_match")
            while state["state"] != "stopped":
                state = await page.hear("match")

    async def test_reports_and_the_engines_own_weights(self):
        async with open_page(self.server) as page:
            await page.say("reports")
            names = (await page.hear("reports"))["names"]
            self.assertEqual(len(names), 1)
            await page.say("report", name=names[0])
            report = await page.hear("report")
            self.assertEqual(report["files"]["params.txt"].count("fset("), 913)
            own = [line.split(",")[0] for line in report["own"].splitlines()]
            theirs = [line.split(",")[0] for line in report["files"]["params.txt"].splitlines()]
            self.assertEqual(own, theirs)
            self.assertIn('fset("mtl_knight",361,413);', report["own"])
            self.assertTrue(await page.refusal(type="report", name="/etc"))


class Life(unittest.IsolatedAsyncioTestCase):
    async def test_whatever_ends_the_server_no_process_is_left(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGKILL):
            with BoardServer(ROOT, PROGRAMS) as server:
                async with open_page(server) as page:
                    await page.search(limits={})
                    await page.hear("info")
                    await asyncio.get_running_loop().run_in_executor(None, server.stop, number)
                    wait_until(lambda: not server.engines(), f"no engine after {number}", 4.0)

    async def test_an_engine_that_does_not_stop_is_started_again(self):
        with BoardServer(ROOT, PROGRAMS) as server:
            async with open_page(server) as page:
                await page.search(limits={})
                await page.hear("info")
                first = set(server.engines())
                for process in first:
                    os.kill(process, signal.SIGSTOP)
                await page.say("stop")
                await page.hear("lost")
                await page.hear("ready")
                self.assertFalse(first & set(server.engines()))
                await page.search(number=2, limits={"nodes": 100})
                self.assertEqual((await page.hear("bestmove"))["id"], 2)
            self.assertEqual(server.errors(), "")

    async def test_an_engine_that_stands_still_does_not_outlive_the_server(self):
        with BoardServer(ROOT, PROGRAMS) as server:
            async with open_page(server) as page:
                await page.search(limits={})
                await page.hear("info")
                for process in server.engines():
                    os.kill(process, signal.SIGSTOP)
                server.stop(signal.SIGKILL)
                wait_until(lambda: not server.engines(), "no engine is left", 4.0)

    async def test_files_that_cannot_be_read_do_not_end_the_page(self):
        with BoardServer(ROOT, PROGRAMS, words=("--reports", 300 * "a")) as server:
            async with open_page(server) as page:
                self.assertIn("too long", await page.refusal(type="reports"))
                await page.search(limits={"nodes": 100})
                await page.hear("bestmove")

    async def test_another_start_has_the_same_address(self):
        with BoardServer(ROOT, PROGRAMS) as server:
            first = server.address
            server.stop()
            self.assertEqual(server.start(), first)

    async def test_nothing_is_written_outside_the_folder(self):
        with BoardServer(ROOT, PROGRAMS) as server:
            async with open_page(server) as page:
                await page.search(limits={"nodes": 100})
                await page.hear("bestmove")
                await page.say("explain", id=1, fen=START)
                await page.hear("explained")
            server.stop()
            self.assertEqual(list((server.home / "elsewhere").iterdir()), [])
            self.assertEqual({path.name for path in server.folder.iterdir()},
                             {"packages", "engine", "key", "port"})
            self.assertEqual(list((server.folder / "engine").iterdir()), [])

    def test_without_packages_or_programs_it_says_what_is_missing(self):
        server = BoardServer(ROOT, PROGRAMS)
        try:
            server.engine.rename(server.home / "gone")
            for missing in ("vesk-uci", "cm-chessboard"):
                answer = subprocess.run(server.words, stderr=subprocess.PIPE, text=True,
                                        stdout=subprocess.DEVNULL, timeout=LIMIT)
                self.assertEqual(answer.returncode, 1)
                self.assertIn(missing, answer.stderr)
                (server.home / "gone").exists() and (server.home / "gone").rename(server.engine)
                shutil.rmtree(server.folder / "packages", ignore_errors=True)
        finally:
            server.__exit__()


class Packages(unittest.TestCase):
    """scripts/copy_packages, with a program in the place of npm."""

    def setUp(self):
        home = tempfile.TemporaryDirectory(prefix="vesk packages ü ")
        self.addCleanup(home.cleanup)
        self.home = pathlib.Path(home.name)
        for name in ("scripts", "board", "bin", "files"):
            (self.home / name).mkdir()
        shutil.copy2(ROOT / "scripts" / "copy_packages", self.home / "scripts")
        for name in ("package.json", "package-lock.json", ".npmrc"):
            shutil.copy2(ROOT / "board" / name, self.home / "board")
        self.write("scripts/install_missing", "exit 0")

    def write(self, name, text):
        (self.home / name).write_text(f"#!/bin/sh\n{text}\n")
        (self.home / name).chmod(0o755)

    def start(self):
        path = f"{self.home / 'bin'}:{os.environ['PATH']}"
        return subprocess.Popen([self.home / "scripts" / "copy_packages", self.home / "files" / "p"],
                                stderr=subprocess.PIPE, text=True, env={**os.environ, "PATH": path})

    def finish(self, process):
        _, errors = process.communicate(timeout=LIMIT)
        return process.returncode, errors

    def left(self):
        return [path.name for path in (self.home / "files").iterdir()]

    def test_without_the_packages_it_says_why_and_leaves_nothing(self):
        self.write("bin/npm", "echo no network; exit 7")
        status, errors = self.finish(self.start())
        self.assertEqual((status, self.left()), (1, []))
        self.assertIn("no network\nnpm could not copy", errors)

    def test_ended_in_the_middle_it_leaves_nothing(self):
        self.write("bin/npm", f'echo >"{self.home}/begun"; exec sleep 0.5')
        process = self.start()
        wait_until((self.home / "begun").exists, "npm has begun")
        process.send_signal(signal.SIGTERM)
        self.assertEqual((self.finish(process)[0], self.left()), (143, []))

    def test_two_at_once_and_what_is_incomplete_is_copied_again(self):
        modules = self.home / "files" / "p" / "node_modules"
        self.write("bin/npm", f'echo >>"{self.home}/begun"; sleep 0.2; '
                              "mkdir -p node_modules/chess.js node_modules/cm-chessboard")
        for count in (2, 4, 4):
            starts = [self.start(), self.start()]
            self.assertEqual([self.finish(process)[0] for process in starts], [0, 0])
            self.assertEqual(self.left(), ["p"])
            self.assertEqual({path.name for path in modules.iterdir()}, {"chess.js", "cm-chessboard"})
            self.assertEqual(len((self.home / "begun").read_text()), count)
            if count == 2:
                (modules / "chess.js").rmdir()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
