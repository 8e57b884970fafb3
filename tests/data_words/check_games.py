#!/usr/bin/env python3
"""Drives `vesk-data games` as a user does.

    check_games.py VESK_DATA VESK ROOT [--update]

Compares what it makes of the games in tests/data/games with the files beside them, has the tools of
VESK take all of it, runs Vesk's own games through it, compares moves with pgn-extract where that is
installed (77 where it is not and all else is well), and sees that bad files and full disks do no
harm. --update writes the files beside the games anew; read the difference.
"""

import gzip
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

# The games and the options; with other options than none the number of the case is in its name.
CASES = (
    ("lichess", ()),
    ("lichess", ("--min-rating", "1800", "--class", "blitz,rapid", "--from", "2024.05.01", "--to",
                 "2024.05")),
    ("lichess", ("--keep-fen", "--tags", "roster", "--broken-off", "keep")),
    ("chesscom", ()),
    ("chesscom", ("--broken-off", "drop", "--result", "1-0,1/2-1/2", "--max-base", "180",
                  "--min-increment", "2")),
    ("chessbase", ()),
    ("cutechess", ()),
    ("fastchess", ()),
    ("tcec", ()),
    ("guis", ()),
    ("guis", ("--view", "white")),
    ("forms", ()),
    ("forms", ("--unique", "--max-length", "20")),
    ("broken", ()),
    ("scores", ()),
    ("mover-eval", ()),
    ("mover-eval", ("--view", "mover")),
    ("no-view", ()),
    ("no-view", ("--view", "mover")),
    ("vesk", ()),
)
# Of these games the tools make the same, before and behind the word: the scanner, and the builder.
# How many moves the builder counts hangs on where a line ends behind the 36th of a game, so that of
# games in other lines the books are compared alone.
SCANNED_ALIKE = ("data/games/vesk.pgn", "data/scan/book.pgn", "data/scan/slash.pgn",
                 "data/scan/eval.pgn", "data/scan/blunder.pgn", "data/scan/games-eval.pgn",
                 "data/scan/rook-ending.pgn", "data/scan/termination.pgn")
BOOKED_ALIKE = ("data/games/vesk.pgn", "data/pgn/games.pgn", "data/pgn/book-basic.pgn",
                "data/pgn/book-castling.pgn", "data/pgn/book-ep-promotion.pgn",
                "data/pgn/book-thresholds.pgn", "data/pgn/book-transpose.pgn")
FORMS = ("-scan_pgn1", "-scan_pgn2", "-scan_pgn3", "-scan_pgn4", "-mkbook")
NO_DATE = b'[Date "????.??.??"]\n'  # a tag that every game has, here by the word
SCANNED = ("tmp.pgn", "tmp.epd", "tmpX.epd", "tmp_book.bin")
MOST_MEMORY = 64 << 10  # KB
LONG = 100 << 20  # bytes of a line
LONG_SANITIZED = 10 << 20  # where memory is not that of the program anyway


class Failure(Exception):
    pass


def fail_unless(holds, text):
    if not holds:
        raise Failure(text)


class Driver:
    def __init__(self, data, vesk, root, folder):
        self.data = data
        self.vesk = vesk
        self.tests = root / "tests"
        self.folder = folder

    def run(self, *words, stdin=b"", **options):
        result = subprocess.run([self.data, "games", *words], input=stdin, capture_output=True,
                                cwd=self.folder, timeout=200, check=False, **options)
        fail_unless(result.returncode in (0, 1), f"{words}: status {result.returncode}\n"
                    f"{result.stderr.decode(errors='replace')}")
        return result

    def scan(self, word, games):
        """What a tool makes of games: its status, what it says, and its files."""
        work = self.folder / "scan"
        shutil.rmtree(work, ignore_errors=True)
        work.mkdir()
        (work / "games.pgn").write_bytes(games)
        result = subprocess.run([self.vesk, word, "games.pgn"], capture_output=True, cwd=work,
                                stdin=subprocess.DEVNULL, timeout=200, check=False)
        files = {name: (work / name).read_bytes() for name in SCANNED if (work / name).exists()}
        return result.returncode, result.stdout, result.stderr, files


def case_name(name, options):
    number = [case for case in CASES if case[0] == name].index((name, options))
    return name if not options else f"{name}-{number}"


def check_cases(driver, update):
    """What is made of the games of each source, and what is said of them."""
    folder = driver.tests / "data" / "games"
    outputs = {}
    for name, options in CASES:
        shutil.copy(folder / f"{name}.pgn", driver.folder / f"{name}.pgn")
        result = driver.run(f"{name}.pgn", "--max-messages", "100", *options)
        outputs[name, options] = result.stdout
        case = case_name(name, options)
        for path, text in ((folder / f"{case}.out", result.stdout),
                           (folder / f"{case}.err", result.stderr)):
            if update:
                path.write_bytes(text)
            fail_unless(path.read_bytes() == text,
                        f"{case}: not {path.name}:\n{text.decode(errors='replace')}")
        refused = b"\nrefused\n" in result.stderr
        fail_unless(result.returncode == refused, f"{case}: status {result.returncode}")
        for words in (("--jobs", "3"), ("--json",)):
            again = driver.run(f"{name}.pgn", "--max-messages", "100", *options, *words)
            fail_unless(again.stdout == result.stdout, f"{case}: other games with {words}")
            fail_unless(words[0] == "--json" or again.stderr == result.stderr,
                        f"{case}: other messages with {words}")
    return outputs


def half_moves(games):
    """The half-moves of games without variations and nested comments."""
    text = re.sub(r"\{[^}]*\}", " ", re.sub(r"^\[.*$", "", games.decode("latin-1"), flags=re.M))
    return len(re.findall(r"(?<![\w/-])[A-Za-z]\S*", text))


def check_taken_whole(driver, outputs):
    """The scanner and the book builder take all of what is written."""
    for (name, options), games in outputs.items():
        if "--keep-fen" in options:
            continue
        for word in FORMS:
            status, out, err, files = driver.scan(word, games)
            fail_unless(status == 0 and not err, f"{name} {options} {word}: {status} {err}")
            if word == "-scan_pgn1" and not re.search(rb'Termination ".*(time forfeit|abandoned)',
                                                      games):
                lines = sum(1 for line in files["tmp.pgn"].decode("latin-1").splitlines()
                            if re.match(r" |\d+\. ", line))
                fail_unless(lines == half_moves(games),
                            f"{name}: {lines} half-moves are scanned of {half_moves(games)}")
                scores = len(re.findall(rb"^.*\{ *-?\d", files["tmp.pgn"], flags=re.M))
                fail_unless(scores == games.count(b"{"),
                            f"{name}: {scores} scores are scanned of {games.count(b'{')}")
            if word == "-mkbook":
                count = games.count(b"\n[Event ") + games.startswith(b"[Event ")
                fail_unless(b"ngames= %d," % count in out, f"{name}: {out} of {count} games")


def check_unchanged(driver):
    """Games that the tools take as they are give the same behind the word."""
    for name in (*SCANNED_ALIKE, *BOOKED_ALIKE[1:]):
        games = (driver.tests / name).read_bytes()
        result = driver.run("-", stdin=games)
        fail_unless(result.returncode == 0, f"{name}: {result.stderr.decode()}")
        own = name == "data/games/vesk.pgn"
        fail_unless(not own or result.stdout == games, f"{name} has changed")
        for word in FORMS[:4] if name in SCANNED_ALIKE else ():
            before, behind = driver.scan(word, games), driver.scan(word, result.stdout)
            if b"[Date " not in games and "tmp.pgn" in behind[3]:
                behind[3]["tmp.pgn"] = behind[3]["tmp.pgn"].replace(NO_DATE, b"")
            fail_unless(before[0] == 0 and before == behind, f"{name} {word}:\n{before}\n{behind}")
        if name in BOOKED_ALIKE:
            before, behind = driver.scan(FORMS[4], games), driver.scan(FORMS[4], result.stdout)
            fail_unless(before[3] == behind[3], f"{name}: another book")
            fail_unless(not own or before == behind, f"{name}: {before[1]} {behind[1]}")


def long_moves(text):
    """The moves of pgn-extract's long algebraic output, game by game."""
    games = re.split(r"\n\n(?=\[)", re.sub(r"^\[.*$", "[", text, flags=re.M))
    moves = [re.findall(r"[a-h][1-8][a-h][1-8][qrbn]?", game) for game in games]
    return [game for game in moves if game]


def check_against_peer(driver, outputs):
    """pgn-extract reads the same moves from the games and from what is made of them."""
    peer = shutil.which("pgn-extract", path=os.environ.get("PATH", "") + ":/usr/games")
    if peer is None:
        return False
    for (name, options), games in outputs.items():
        if options or name in ("broken", "forms", "lichess"):  # it reads fewer of these
            continue
        texts = []
        for text in ((driver.folder / f"{name}.pgn").read_bytes(), games):
            result = subprocess.run([peer, "-s", "-Wuci", "-C", "-N", "-V", "-w9999"], input=text,
                                    capture_output=True, timeout=60, check=False)
            texts.append(long_moves(result.stdout.decode("latin-1")))
        fail_unless(texts[0] == texts[1] and sum(map(len, texts[0])) > 20,
                    f"{name}: pgn-extract reads other moves\n{texts[0]}\n{texts[1]}")
    games = (driver.tests / "data" / "pgn" / "games.pgn").read_bytes()
    result = driver.run("-", stdin=games)
    written = subprocess.run([peer, "-s", "-Wsan", "-w80"], input=result.stdout,
                             capture_output=True, timeout=60, check=False).stdout

    def words(text):
        text = re.sub(r"^\[.*$", "", text.decode(), flags=re.M)
        return [re.sub(r"[+#]+$", "", word) for word in text.split()]

    fail_unless(words(written) == words(result.stdout), "pgn-extract writes other moves")
    return True


def check_files(driver):
    """Packed files, several files, and files that are none."""
    folder = driver.folder
    games = (folder / "lichess.pgn").read_bytes()
    plain = driver.run("lichess.pgn")
    (folder / "packed.pgn.gz").write_bytes(gzip.compress(games))
    if b".gz" in subprocess.run([driver.data, "--version"], capture_output=True,
                                check=True).stdout:
        fail_unless(driver.run("packed.pgn.gz").stdout == plain.stdout, "packed games differ")
    twice = driver.run("lichess.pgn", "missing.pgn", "lichess.pgn", "--jobs", "2")
    fail_unless(twice.stdout == 2 * plain.stdout and twice.returncode == 1, "two files differ")
    fail_unless(b"missing.pgn: " in twice.stderr, "a missing file is not named")
    once = driver.run("lichess.pgn", "lichess.pgn", "--unique")
    fail_unless(once.stdout == plain.stdout, "duplicates are not dropped")
    for text, says in ((games.decode().encode("utf-16"), b"UTF-16"),
                       (b"\x00\x01\xff" * 9999, b"refused"),
                       (b"", b"read"), (b"no games here", b"standard input:1: ")):
        result = driver.run("-", stdin=text)
        fail_unless(says in result.stderr and not result.stdout, f"{text[:9]}: {result.stderr}")
    marked = b"\xef\xbb\xbf" + games.replace(b"\n", b"\r\n")
    fail_unless(driver.run("-", stdin=marked).stdout == plain.stdout, "line ends matter")


def check_harm(driver):
    """Full disks, inputs as outputs, and an end in the middle lose nothing."""
    folder = driver.folder
    result = driver.run("vesk.pgn", "--output", "/dev/full")
    fail_unless(result.returncode == 1 and b"No space left" in result.stderr, "a full disk")
    before = (folder / "vesk.pgn").read_bytes()
    result = driver.run("vesk.pgn", "--output", "vesk.pgn")
    fail_unless(result.returncode == 1 and (folder / "vesk.pgn").read_bytes() == before,
                "the input was replaced")
    (folder / "old.pgn").write_bytes(b"old\n")
    for words in (("missing.pgn",), ("vesk.pgn", "--min-rating", "9000")):
        result = driver.run(*words, "--output", "old.pgn")
        fail_unless(result.returncode == 1 and b"no game for it" in result.stderr
                    and (folder / "old.pgn").read_bytes() == b"old\n"
                    and not (folder / "old.pgn.part").exists(),
                    f"{words}: a file without a game replaced another: {result.stderr}")
    process = subprocess.Popen([driver.data, "games", "-", "--output", "old.pgn"], cwd=folder,
                               stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
    process.stdin.write(before * 20)
    process.stdin.flush()
    time.sleep(0.2)
    process.send_signal(signal.SIGKILL)
    process.communicate()
    fail_unless((folder / "old.pgn").read_bytes() == b"old\n", "an unfinished run replaced a file")


def check_long_lines(driver):
    """A line as long as a file is refused, the game behind it is used, and memory stays bounded."""
    good = b'\n[Event "good"]\n[Result "1-0"]\n\n1. e4 e5 1-0\n'
    sanitized = re.search(rb"__[at]san_init", pathlib.Path(driver.data).read_bytes())
    length = LONG_SANITIZED if sanitized else LONG
    for start in (b"", b'[Event "long"]\n[Result "1-0"]\n\n1. e4 {', b"1. e4 ("):
        process = subprocess.Popen([driver.data, "games", "-", "--jobs", "2"], cwd=driver.folder,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)

        def feed():
            process.stdin.write(start)
            block = b"Nf3 " * (1 << 18)
            for _ in range(length // len(block)):
                process.stdin.write(block)
            process.stdin.write(good)
            process.stdin.close()

        feeder = threading.Thread(target=feed)
        feeder.start()
        out, err = process.stdout.read(), process.stderr.read()
        feeder.join()
        _, status, usage = os.wait4(process.pid, 0)
        fail_unless(os.waitstatus_to_exitcode(status) == 1 and b"more than a megabyte" in err,
                    f"a long line: {err}")
        fail_unless(out.count(b"[Event ") == 1 and b'"good"' in out, "the game behind a long line")
        fail_unless(sanitized or usage.ru_maxrss < MOST_MEMORY,
                    f"a long line takes {usage.ru_maxrss} KB")


def main():
    update = "--update" in sys.argv
    data, vesk, root = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    with tempfile.TemporaryDirectory() as folder:
        driver = Driver(data, vesk, root, pathlib.Path(folder))
        try:
            outputs = check_cases(driver, update)
            check_taken_whole(driver, outputs)
            check_unchanged(driver)
            check_files(driver)
            check_harm(driver)
            check_long_lines(driver)
            has_peer = check_against_peer(driver, outputs)
        except Failure as failure:
            raise SystemExit(str(failure)) from None
    if not has_peer:
        print("pgn-extract is not installed: moves were not compared with its own")
        sys.exit(77)


if __name__ == "__main__":
    main()
