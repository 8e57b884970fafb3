"""A screen that nobody sees, a home that nobody lives in, and the hands of a player: what a chess
program needs in order to be run by a test.

All that is started for one run carries a mark in its environment, so that nothing of it is left
behind whatever happens to the programs between.
"""
import os
import shutil
import signal
import subprocess
import time
from pathlib import Path

SCREEN_SIZE = "1200x800x24"
POLL_SECONDS = 0.1
OPENINGS = 3           # times that a window is asked for
OPENING_SECONDS = 20
SETTLING_SECONDS = 1.5 # from a window on the screen to one that listens
MARK = "VESK_PROGRAMS_RUN"
CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


class Failure(Exception):
    pass


class Late(Failure):
    """Something has not come in time."""


def wait_for(what, seconds, look):
    """The first true value that looking gives."""
    end = time.monotonic() + seconds
    while True:
        found = look()
        if found:
            return found
        if time.monotonic() > end:
            raise Late(f"no {what} within {seconds} s")
        time.sleep(POLL_SECONDS)


# ---- Processes

def process_ids():
    return [int(name) for name in os.listdir("/proc") if name.isdigit()]


def runs_program(process, program):
    """Whether a process runs that very file. One that has ended and waits to be buried does not."""
    try:
        return os.readlink(f"/proc/{process}/exe") == str(program)
    except OSError:
        return False


def processes_of(program):
    return [process for process in process_ids() if runs_program(process, program)]


def is_marked(process, mark):
    try:
        variables = Path(f"/proc/{process}/environ").read_bytes().split(b"\0")
        return f"{MARK}={mark}".encode() in variables
    except OSError:
        return False


def seconds_used(processes):
    """Processor seconds that these processes have used so far."""
    ticks = 0
    for process in processes:
        try:
            # Behind the name, which may hold anything: user and system time are words 12 and 13.
            words = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
            ticks += int(words[11]) + int(words[12])
        except OSError:
            pass
    return ticks / CLOCK_TICKS


def kill_marked(mark):
    """Ends all that was started under a mark, however it came to be."""
    for process in process_ids():
        if process != os.getpid() and is_marked(process, mark):
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass


# ---- The screen

class Desktop:
    """A screen with a window manager, and a home folder. The environment holds nothing of the
    user's who runs the test: a program that found his desktop would talk to that."""

    def __init__(self, home, path):
        self.home = home
        self.mark = f"{os.getpid()}-{home.name}"
        self.environment = {"HOME": str(home), "PATH": path, "LC_ALL": "C.UTF-8",
                            "XDG_RUNTIME_DIR": str(home), "NO_AT_BRIDGE": "1", MARK: self.mark}
        self.started = []

    def __enter__(self):
        try:
            reader, writer = os.pipe()
            self.start("Xvfb", "-displayfd", str(writer), "-screen", "0", SCREEN_SIZE,
                       "-nolisten", "tcp", pass_fds=[writer])
            os.close(writer)
            with os.fdopen(reader) as numbers:
                number = numbers.readline().strip()
            if not number:
                raise Failure("Xvfb does not start")
            self.environment["DISPLAY"] = f":{number}"
            self.start("openbox")
            return self
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        kill_marked(self.mark)
        for process in self.started:
            process.wait()

    def start(self, *words, pass_fds=(), **more_environment):
        """Starts a program whose output goes into a file of its name in the home."""
        with open(self.home / f"{Path(words[0]).name}.out", "wb") as output:
            process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT, cwd=self.home, pass_fds=pass_fds,
                                       env=self.environment | more_environment)
        self.started.append(process)
        return process

    def tool(self, *words):
        """Runs a small tool to its end; what it prints, or nothing if it fails."""
        done = subprocess.run(words, env=self.environment, cwd=self.home, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
        return done.stdout.strip() if done.returncode == 0 else ""

    # -- A player's hands

    def window(self, title, seconds=60):
        """The window whose title holds these words, once it is shown."""
        def look():
            return self.tool("xdotool", "search", "--onlyvisible", "--name", title).split()
        return wait_for(f"window '{title}'", seconds, look)[-1]

    def has_window(self, title):
        return self.tool("xdotool", "search", "--onlyvisible", "--name", title) != ""

    def size(self, window):
        text = self.tool("xdotool", "getwindowgeometry", "--shell", window)
        values = dict(line.split("=") for line in text.splitlines())
        return int(values["WIDTH"]), int(values["HEIGHT"])

    def click(self, window, x, y):
        """Clicks into a window; counted from its upper left corner, without the frame."""
        self.tool("xdotool", "mousemove", "--window", window, str(x), str(y))
        time.sleep(0.1)
        self.tool("xdotool", "click", "1")
        time.sleep(0.1)

    def click_from_corner(self, window, x, y):
        """Clicks into a window; counted from its lower right corner, to the left and up."""
        width, height = self.size(window)
        self.click(window, width - x, height - y)

    def choose(self, window, menu, item):
        """Opens a menu of a window and takes an item of it, both by their places."""
        self.click(window, *menu)
        time.sleep(1)
        self.click(window, *item)

    def press(self, *keys):
        self.tool("xdotool", "key", *keys)
        time.sleep(0.1)

    def write(self, text):
        """Types into whatever has the keyboard."""
        self.tool("xdotool", "type", "--delay", "30", text)
        time.sleep(0.1)

    def settled_window(self, title, seconds=60):
        """A window that is shown, and has had time to take the keyboard."""
        window = self.window(title, seconds)
        time.sleep(SETTLING_SECONDS)
        return window

    def open_window(self, title, act):
        """The window that an act opens. A busy program may lose clicks: then it acts once more."""
        for _ in range(OPENINGS - 1):
            act()
            try:
                return self.settled_window(title, OPENING_SECONDS)
            except Late:
                self.press("Escape") # of a menu that may be half open
        act()
        return self.settled_window(title, OPENING_SECONDS)

    def wait_for_end(self, title):
        wait_for(f"end of window '{title}'", OPENING_SECONDS, lambda: not self.has_window(title))

    def take_picture(self, window, path):
        """A window as a picture of few colours, which is a fifth of the size."""
        colours = ["-dither", "None", "-colors", "64", "-strip",
                   "-define", "png:exclude-chunks=date,time"]
        self.tool("import", "-silent", "-window", window, *colours, f"PNG8:{path.resolve()}")
        if not path.exists():
            raise Failure(f"no picture {path}")


def has_tool(name):
    return shutil.which(name) or os.access(f"/usr/games/{name}", os.X_OK)
