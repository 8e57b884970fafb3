#!/usr/bin/env python3
"""Drives the engine through pipes by a transcript.

usage: run_transcript.py [--write] ENGINE TRANSCRIPT...

With --write, transcripts that the engine no longer follows are written anew; mend_transcript.py
tells how. Those that it follows stay as they are.

Each transcript runs in an empty directory of its own. One step a line; '#' starts a comment line.

  args WORDS             command line of the engine (first step only)
  pty                    runs it on a terminal of its own (first steps only): its input comes line
                         by line, as typed, and "eof" is the key that ends input
  file NAME              makes a file; its lines follow, each behind '| '
  data NAME              copies a file of tests/data
  hex NAME DIGITS        appends bytes to a file, two digits each
  directory NAME         makes a directory
  pipe NAME              makes a named pipe
  link NAME TARGET       makes a symbolic link
  twin NAME TARGET       makes a second name of a file (a hard link)
  filesize BYTES         limits the length of the files that the engine writes (first steps only)
  crowd NAME COUNT       makes a directory with so many empty files in it
  full                   what the engine prints finds no space (first steps only)
  send TEXT              a line of input
  raw TEXT               bytes of input as they stand, with Python's escapes, no line feed added
  repeat N TEXT          the same N times
  expect SECONDS REGEX   reads on until a line matches as a whole
  remember NAME SECONDS REGEX
                         the same, and keeps the first group: %NAME% in a later pattern
  next SECONDS REGEX     the very next line must match
  silence MS [REGEX]     no line (that matches) for so long
  never REGEX            from here on, no line may match
  total N REGEX          so many of all lines up to now match
  sleep MS
  pause MS               reads nothing for so long
  hush                   drops the lines that have come so far
  signal NAME            sends the engine a signal
  kill                   ends the engine and the transcript, whatever it was doing
  eof                    closes the engine's input
  close                  closes the engine's output
  busy SECONDS           waits until the engine's processor time grows, as in a search
  idle MS CPU_MS         for so long, at most so much processor time
  has NAME REGEX         a line of the file matches
  lacks NAME REGEX       none does
  absent NAME            there is no such file
  errors REGEX           the error stream, after the exit, holds a match
  exit STATUS SECONDS    the engine ends by itself; a signal counts negative
  end                    shorthand: send quit, exit 0

A transcript that does not end the engine ends with 'end' of itself, so a crash never goes
unseen. VESK_TIMEOUT_FACTOR stretches all waiting limits, for slow builds.
"""
import os
import re
import resource
import select
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import threading
import time
from collections import deque

FACTOR = float(os.environ.get("VESK_TIMEOUT_FACTOR", "1"))


class Failure(Exception):
    pass


class Forbidden(Failure):
    """A line that a transcript says must not come."""


def unescape(text):
    return text.encode("latin-1").decode("unicode_escape").encode("latin-1")


def terminal(engine):
    """Makes the two ends of a terminal that passes lines on as they are, without an echo. The
    outer one becomes the engine's input and output; returns the inner one."""
    outer, inner = os.openpty()
    flags = termios.tcgetattr(inner)
    flags[1] &= ~termios.OPOST
    flags[3] &= ~termios.ECHO
    termios.tcsetattr(inner, termios.TCSANOW, flags)
    engine.input = engine.output = os.fdopen(outer, "r+b", buffering=0)
    return inner


class Engine:
    """The process, with a thread that turns its output into lines."""

    def __init__(self, path, words, folder, on_terminal, file_size, full):
        self.folder = folder
        self.on_terminal = on_terminal
        self.errors = open(os.path.join(folder, ".stderr"), "w+b")
        inner = terminal(self) if on_terminal else None

        def limit_files():
            resource.setrlimit(resource.RLIMIT_FSIZE, (file_size, file_size))

        self.process = subprocess.Popen(
            [path] + words, cwd=folder, stdin=inner or subprocess.PIPE,
            stdout=open("/dev/full", "wb") if full else inner or subprocess.PIPE,
            stderr=self.errors, bufsize=0,
            preexec_fn=file_size and limit_files)
        if on_terminal:
            os.close(inner)
        else:
            self.input = self.process.stdin
            self.output = self.process.stdout or open(os.devnull, "rb")
        self.lines = deque()
        self.history = []
        self.never = []
        self.closed = False
        self.hang_up = False
        self.reading = threading.Event()
        self.reading.set()
        self.arrived = threading.Condition()
        self.thread = threading.Thread(target=self.read, daemon=True)
        self.thread.start()

    def read(self):
        rest = b""
        descriptor = self.output.fileno()
        while not self.hang_up:
            self.reading.wait()
            if not select.select([descriptor], [], [], 0.02)[0] or not self.reading.is_set():
                continue
            try:
                data = os.read(descriptor, 65536)
            except OSError:  # a terminal that nobody holds any more
                break
            if not data:
                break
            pieces = (rest + data).split(b"\n")
            rest = pieces.pop()
            with self.arrived:
                self.lines.extend(piece.decode("latin-1") for piece in pieces)
                self.arrived.notify_all()
        if not self.on_terminal:
            self.output.close()
        with self.arrived:
            if rest:
                self.lines.append(rest.decode("latin-1") + " <no line feed>")
            self.closed = True
            self.arrived.notify_all()

    def next_line(self, deadline):
        """The next line, or None at the deadline or the end of output."""
        with self.arrived:
            while not self.lines:
                left = deadline - time.monotonic()
                if left <= 0 or self.closed:
                    return None
                self.arrived.wait(left)
            line = self.lines.popleft()
        self.history.append(line)
        for pattern in self.never:
            if re.fullmatch(pattern, line):
                raise Forbidden(f"line that must not come: {line!r}")
        return line

    def drain(self):
        while self.next_line(0) is not None:
            pass

    def write(self, data):
        try:
            self.input.write(data)
        except OSError:
            pass

    def end_input(self):
        if self.on_terminal:
            self.write(b"\x04")
        else:
            self.input.close()

    def processor_seconds(self):
        with open(f"/proc/{self.process.pid}/stat", encoding="latin-1") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def finish(self, status, seconds):
        try:
            found = self.process.wait(seconds * FACTOR)
        except subprocess.TimeoutExpired:
            raise Failure("the engine does not end") from None
        if found != status:
            self.errors.seek(0)
            raise Failure(f"exit status {found}, wanted {status}; "
                          f"errors: {self.errors.read(4000).decode('latin-1')}")
        self.thread.join(5)
        self.drain()

    def kill(self):
        self.reading.set()
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()


class Run:
    """One transcript being played."""

    def __init__(self, path, script):
        self.path = os.path.abspath(path)
        with open(script, encoding="latin-1") as file:
            self.steps = [line.rstrip("\n") for line in file]
        self.engine = None
        self.words = []
        self.on_terminal = False
        self.file_size = None
        self.full = False
        self.ended = False
        self.open_file = None
        self.remembered = {}
        self.folder = None
        self.name = script
        self.number = 0     # of steps begun

    def started(self):
        if self.engine is None:
            self.engine = Engine(
                self.path, self.words, self.folder, self.on_terminal, self.file_size, self.full)
        return self.engine

    def play(self):
        with tempfile.TemporaryDirectory() as self.folder:
            try:
                while self.number < len(self.steps):
                    step = self.steps[self.number]
                    self.number += 1
                    try:
                        self.step(step)
                    except Failure as failure:
                        raise Failure(f"{self.name}:{self.number}: {step}\n  {failure}") from None
                if not self.ended:
                    self.do_end("")
            except Failure as failure:
                return f"{failure}\n{self.tail()}"
            finally:
                if self.engine is not None:
                    self.engine.kill()
        return None

    def tail(self):
        if self.engine is None:
            return ""
        try:
            self.engine.never = []
            self.engine.drain()
        except Failure:
            pass
        return "".join(f"    {line}\n" for line in self.engine.history[-30:])

    def step(self, text):
        if self.open_file and text.startswith("| "):
            with open(self.open_file, "a", encoding="latin-1") as file:
                file.write(text[2:] + "\n")
            return
        if not text.strip() or text.startswith("#"):
            return
        word, _, rest = text.partition(" ")
        action = getattr(self, "do_" + word, None)
        if action is None:
            raise Failure(f"unknown step {word!r}")
        action(self.filled(rest))

    def filled(self, rest):
        """The words of a step with what was remembered in its places."""
        for name, value in self.remembered.items():
            rest = rest.replace(f"%{name}%", re.escape(value))
        return rest

    # ---- the steps

    def do_args(self, rest):
        self.words = shlex.split(rest)

    def do_pty(self, _):
        self.on_terminal = True

    def do_file(self, rest):
        self.open_file = os.path.join(self.folder, rest)
        open(self.open_file, "w", encoding="latin-1").close()

    def do_data(self, rest):
        here = os.path.dirname(os.path.abspath(__file__))
        shutil.copy(os.path.join(here, "..", "data", rest), self.folder)

    def do_hex(self, rest):
        name, _, digits = rest.partition(" ")
        with open(os.path.join(self.folder, name), "ab") as file:
            file.write(bytes.fromhex(digits))

    def do_directory(self, rest):
        os.mkdir(os.path.join(self.folder, rest))

    def do_pipe(self, rest):
        os.mkfifo(os.path.join(self.folder, rest))

    def do_link(self, rest):
        name, target = rest.split()
        os.symlink(target, os.path.join(self.folder, name))

    def do_twin(self, rest):
        name, target = rest.split()
        os.link(os.path.join(self.folder, target), os.path.join(self.folder, name))

    def do_full(self, _):
        self.full = True

    def do_filesize(self, rest):
        self.file_size = int(rest)

    def do_crowd(self, rest):
        name, count = rest.split()
        self.do_directory(name)
        for number in range(int(count)):
            open(os.path.join(self.folder, name, f"file{number}"), "wb").close()

    def do_send(self, rest):
        self.started().write(rest.encode("latin-1") + b"\n")

    def do_raw(self, rest):
        self.started().write(unescape(rest))

    def do_repeat(self, rest):
        count, _, text = rest.partition(" ")
        data = unescape(text) * int(count)
        engine = self.started()
        for start in range(0, len(data), 60000):
            engine.write(data[start:start + 60000])

    def do_remember(self, rest):
        name, _, rest = rest.partition(" ")
        self.remembered[name] = self.do_expect(rest).group(1)

    def do_expect(self, rest):
        seconds, _, pattern = rest.partition(" ")
        deadline = time.monotonic() + float(seconds) * FACTOR
        engine = self.started()
        while True:
            line = engine.next_line(deadline)
            if line is None:
                raise Failure("no such line")
            match = re.fullmatch(pattern, line)
            if match:
                return match

    def do_next(self, rest):
        seconds, _, pattern = rest.partition(" ")
        line = self.started().next_line(time.monotonic() + float(seconds) * FACTOR)
        if line is None or not re.fullmatch(pattern, line):
            raise Failure(f"got {line!r}")

    def do_silence(self, rest):
        duration, _, pattern = rest.partition(" ")
        deadline = time.monotonic() + float(duration) / 1000
        engine = self.started()
        while time.monotonic() < deadline:
            line = engine.next_line(deadline)
            if line is not None and re.fullmatch(pattern or ".*", line):
                raise Failure(f"not silent: {line!r}")
            if engine.closed and line is None:
                raise Failure("the engine has ended")

    def do_never(self, rest):
        self.started().never.append(rest)

    def do_total(self, rest):
        wanted, _, pattern = rest.partition(" ")
        engine = self.started()
        engine.drain()
        found = sum(1 for line in engine.history if re.fullmatch(pattern, line))
        if found != int(wanted):
            raise Failure(f"{found} such lines")

    def do_sleep(self, rest):
        self.started()
        time.sleep(float(rest) / 1000)

    def do_signal(self, rest):
        self.started().process.send_signal(getattr(signal, "SIG" + rest))

    def do_kill(self, _):
        self.started().kill()
        self.ended = True

    def do_pause(self, rest):
        engine = self.started()
        engine.reading.clear()
        time.sleep(float(rest) / 1000)
        engine.reading.set()

    def do_hush(self, _):
        self.started().drain()

    def do_eof(self, _):
        self.started().end_input()

    def do_close(self, _):
        self.started().hang_up = True
        self.engine.thread.join()

    def do_busy(self, rest):
        engine = self.started()
        deadline = time.monotonic() + float(rest) * FACTOR
        start = engine.processor_seconds()
        while engine.processor_seconds() - start < 0.05:
            if time.monotonic() > deadline:
                raise Failure("no search runs")
            time.sleep(0.01)

    def do_idle(self, rest):
        duration, limit = (float(word) / 1000 for word in rest.split())
        engine = self.started()
        start = engine.processor_seconds()
        time.sleep(duration)
        used = engine.processor_seconds() - start
        if used > limit * FACTOR:
            raise Failure(f"{used:.3f} s of processor time")

    def lines_of(self, rest):
        name, _, pattern = rest.partition(" ")
        try:
            with open(os.path.join(self.folder, name), encoding="latin-1") as file:
                lines = file.read().split("\n")
        except FileNotFoundError:
            raise Failure("no such file") from None
        return [line for line in lines if re.fullmatch(pattern, line)]

    def do_has(self, rest):
        if not self.lines_of(rest):
            raise Failure("no such line")

    def do_lacks(self, rest):
        found = self.lines_of(rest)
        if found:
            raise Failure(f"found {found[0]!r}")

    def do_absent(self, rest):
        if os.path.lexists(os.path.join(self.folder, rest)):
            raise Failure("there is such a file")

    def do_errors(self, rest):
        self.engine.errors.seek(0)
        text = self.engine.errors.read().decode("latin-1")
        if not re.search(rest, text):
            raise Failure(f"got {text!r}")

    def do_exit(self, rest):
        status, seconds = rest.split()
        self.started().finish(int(status), float(seconds))
        self.ended = True

    def do_end(self, _):
        self.do_send("quit")
        self.do_exit("0 5")


def main():
    words = sys.argv[1:]
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
    if words[:1] == ["--write"]:
        from mend_transcript import mend as play
        words.pop(0)
    else:
        def play(engine, script):
            return Run(engine, script).play()
    if len(words) < 2:
        sys.exit(__doc__)
    failed = 0
    for script in words[1:]:
        start = time.monotonic()
        failure = play(words[0], script)
        seconds = time.monotonic() - start
        print(f"{'FAILED' if failure else 'passed'}  {seconds:5.2f} s  {os.path.basename(script)}")
        if failure:
            print(failure)
            failed += 1
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
