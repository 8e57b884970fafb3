"""A server of the page for tests: in a folder of its own, with a copy of the engine, whose
processes can be told from others by their file."""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PATIENCE = 10.0     # seconds until the server must listen, and until processes must have ended
SMALL_FILES = ("cm-chessboard/src/small.js", "cm-chessboard/assets/small.css",
               "chess.js/dist/esm/chess.js")


def wait_until(true, text, seconds=PATIENCE):
    """Waits until a function says something true, and gives it."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        found = true()
        if found:
            return found
        time.sleep(0.02)
    raise AssertionError(f"not within {seconds:g} s: {text}")


def processes_of(program):
    """The processes that run this file."""
    found = []
    for path in pathlib.Path("/proc").glob("[0-9]*/exe"):
        with contextlib.suppress(OSError):
            if os.readlink(path).removesuffix(" (deleted)") == str(program):
                found.append(int(path.parent.name))
    return found


class BoardServer:
    """Starts the server; ended with `with`."""

    def __init__(self, root, programs, packages=None, games=2, words=()):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="vesk-board-")).resolve()
        self.folder = self.home / "files"
        self.programs = self.home / "programs"
        self.programs.mkdir()
        for name in ("vesk-uci", "vesk", "vesk-data"):
            if (programs / name).is_file():
                shutil.copy2(programs / name, self.programs / name)
        self.engine = self.programs / "vesk-uci"
        if packages is None:
            for name in SMALL_FILES:
                path = self.folder / "packages" / "node_modules" / name
                path.parent.mkdir(parents=True)
                path.write_text("/* small */\n")
        else:
            self.folder.mkdir()
            (self.folder / "packages").symlink_to(packages)
        (self.home / "elsewhere").mkdir()
        self.words = [sys.executable, "-B", str(root / "board"), "--programs", str(self.programs),
                      "--folder", str(self.folder), "--games", str(games), *words]
        self.process = None

    def start(self):
        """Starts it, again if need be; gives the address."""
        surroundings = {**os.environ, "HOME": str(self.home / "elsewhere"),
                        "TMPDIR": str(self.home / "elsewhere")}
        with (self.home / "errors").open("a") as errors:
            self.process = subprocess.Popen(self.words, stdout=subprocess.PIPE, stderr=errors,
                                            text=True, cwd=self.home / "elsewhere",
                                            env=surroundings)
        line = self.process.stdout.readline()
        found = re.search(r"http://(127\.0\.0\.1:(\d+))/#([\w-]+)", line)
        if found is None:
            raise AssertionError(f"the server does not tell its address: {line!r}")
        self.address, self.host, self.port, self.key = found[0], found[1], int(found[2]), found[3]
        return self.address

    def errors(self):
        """What the server has complained of at its terminal."""
        return (self.home / "errors").read_text()

    def engines(self):
        return processes_of(self.engine)

    def stop(self, number=signal.SIGTERM):
        if self.process is not None and self.process.poll() is None:
            self.process.send_signal(number)
            self.process.wait(PATIENCE)
        if self.process is not None:
            self.process.stdout.close()

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.stop()
        with contextlib.suppress(OSError):
            sys.stderr.write(self.errors())
        shutil.rmtree(self.home, ignore_errors=True)
