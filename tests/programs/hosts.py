"""The chess programs: how the engine is added to each, how a game is started, and how a player
makes his moves. A position in a window is counted from its upper left corner, in pixels.

Each program can be given the engine in two ways: by its list of engines or command line, written
before it starts, or by hand, in the windows that it has for that. It has `play`, which leaves its
window with ten moves of both sides on the board, and `think`, which leaves it with the engine in a
search that lasts."""
import subprocess
import time

from desktop import Failure, has_tool, processes_of, wait_for
from engine_log import Adviser, answers, plies_told

WHOLE_MOVES = 10
GAME_SECONDS = 120
ANSWER_SECONDS = 30


def both_sides_have_moved(log):
    return len(answers(log)) >= 2 * WHOLE_MOVES and plies_told(log) >= 2 * WHOLE_MOVES - 1


def watch_ten_moves(desktop, log, title):
    """Waits while the engine plays against itself; the window of the game."""
    wait_for("twenty half-moves", GAME_SECONDS, lambda: both_sides_have_moved(log))
    return desktop.window(title)


def play_by_clicking(desktop, engine, log, window, square):
    """A player with the white pieces, who clicks on the squares of the moves that he is advised."""
    def click_square(name):
        desktop.click(window, *square("abcdefgh".index(name[0]), 8 - int(name[1])))

    moves = []
    with Adviser(engine) as adviser:
        for count in range(1, WHOLE_MOVES + 1):
            moves.append(adviser.best_move(moves))
            click_square(moves[-1][:2])
            click_square(moves[-1][2:4])
            wait_for(f"answer to move {count}, {moves[-1]}", ANSWER_SECONDS,
                     lambda: len(answers(log)) >= count)
            moves.append(answers(log)[-1])
            if plies_told(log) != 2 * count - 1:
                raise Failure(f"the program's game is not that of the player after {moves}")
            time.sleep(0.5) # the program shows the answer, and takes the next move
    return moves


def squares_of(a8, side):
    """Where the middle of each square is, from that of a8 and the length of a side."""
    return lambda file, row: (a8[0] + side * file, a8[1] + side * row)


class ChessProgram:
    """What most of them have in common."""
    path = "/usr/games:/usr/bin:/bin"

    @staticmethod
    def write_settings(desktop):
        """What the test wants to be otherwise than a new user finds it."""

    @staticmethod
    def write_list(desktop, engine, thinks_long):
        """Adds the engine before the program starts."""

    @staticmethod
    def add_by_hand(desktop, engine):
        """Adds the engine in the windows of the program, which was started without it."""


# ---- xboard: on its command line or in its window, with polyglot between

XBOARD_WORDS = "-fcp {engine} -fUCI -scp {engine} -sUCI -mg 1 -mps 40"
# A search on the player's time would be answered too, but by no move of the game.
XBOARD_ALONE = "-ncp -xponder -depth 8"
XBOARD_ENGINE_MENU = (272, 13)
XBOARD_LOAD = (345, 68)
XBOARD_NICKNAME = (521, 34)
XBOARD_COMMAND = (486, 112)
XBOARD_UCI = (235, 156)
XBOARD_OK = (151, 24) # counted from the lower right corner
# The middle of a8, and the side of a square.
XBOARD_A8 = (26, 112)
XBOARD_SQUARE = 50


class XBoard(ChessProgram):
    name = "xboard"
    needs = ["xboard", "polyglot"]

    @staticmethod
    def start(desktop, engine, by_hand):
        words = XBOARD_ALONE if by_hand else XBOARD_WORDS.format(engine=engine) + " -tc 0:20"
        # It looks up the home in the list of users, and would write its settings there.
        return desktop.start("xboard", "-saveSettingsFile", str(desktop.home / ".xboardrc"),
                             *words.split())

    @staticmethod
    def add_by_hand(desktop, engine):
        window = desktop.settled_window("^xboard")
        dialogue = desktop.open_window(
            "Load first engine", lambda: desktop.choose(window, XBOARD_ENGINE_MENU, XBOARD_LOAD))
        desktop.click(dialogue, *XBOARD_NICKNAME)
        desktop.write("vesk")
        desktop.click(dialogue, *XBOARD_COMMAND)
        desktop.write(str(engine))
        desktop.click(dialogue, *XBOARD_UCI)
        desktop.click_from_corner(dialogue, *XBOARD_OK)
        desktop.window("xboard: Vesk")

    @staticmethod
    def play(desktop, engine, log, by_hand):
        if not by_hand:
            return watch_ten_moves(desktop, log, "Vesk .* vs. Vesk")
        window = desktop.settled_window("xboard: Vesk")
        play_by_clicking(desktop, engine, log, window, squares_of(XBOARD_A8, XBOARD_SQUARE))
        return window

    @staticmethod
    def think(desktop, engine):
        del engine
        desktop.window("Vesk .* vs. Vesk")


# ---- pychess: in its list of engines or its window for them, chosen in that for a new game

PYCHESS_ENGINES = '[{{"name": "vesk-uci", "command": "{engine}", "protocol": "uci"}}]\n'
PYCHESS_SETTINGS = """[General]
show_tip_at_startup = False
dont_show_externals_at_startup = True
classicalRadio = True
ngclassical min = 1
ngclassical moves = 60
"""
PYCHESS_EDIT_MENU = (74, 13)
PYCHESS_ENGINES_ITEM = (108, 83)
PYCHESS_NEW = (472, 42) # counted from the lower right corner, and so are the buttons below
PYCHESS_SAVE = (39, 42)
PYCHESS_WHITE = (257, 48)
PYCHESS_BLACK = (257, 122)
PYCHESS_START = (70, 28)


class PyChess(ChessProgram):
    name = "pychess"
    needs = ["pychess"]
    path = "/usr/bin:/bin" # it looks for engines where this leads, and asks all that it finds

    @staticmethod
    def folder(desktop):
        return desktop.home / ".config/pychess"

    @staticmethod
    def write_settings(desktop):
        PyChess.folder(desktop).mkdir(parents=True)
        (PyChess.folder(desktop) / "config").write_text(PYCHESS_SETTINGS)

    @staticmethod
    def write_list(desktop, engine, _):
        text = PYCHESS_ENGINES.format(engine=engine)
        (PyChess.folder(desktop) / "engines.json").write_text(text)

    @staticmethod
    def start(desktop, *_):
        return desktop.start("/usr/games/pychess", "--no-version-check")

    @staticmethod
    def add_by_hand(desktop, engine):
        window = desktop.settled_window("Welcome - PyChess")
        dialogue = desktop.open_window(
            "Manage engines",
            lambda: desktop.choose(window, PYCHESS_EDIT_MENU, PYCHESS_ENGINES_ITEM))
        desktop.open_window("Select engine",
                            lambda: desktop.click_from_corner(dialogue, *PYCHESS_NEW))
        desktop.write(str(engine))
        time.sleep(1) # it looks for what the name may go on to
        desktop.press("Return")
        desktop.wait_for_end("Select engine")
        PyChess.wait_for_options(desktop)
        desktop.click_from_corner(dialogue, *PYCHESS_SAVE)
        desktop.wait_for_end("Manage engines")

    @staticmethod
    def wait_for_options(desktop):
        saved = PyChess.folder(desktop) / "engines.json"
        wait_for("engine that the program has asked for its options", 60,
                 lambda: saved.exists() and "UCI_Elo" in saved.read_text())

    @staticmethod
    def think(desktop, engine):
        del engine
        desktop.window("Welcome - PyChess")
        PyChess.wait_for_options(desktop)
        time.sleep(1)
        dialogue = desktop.open_window("New Game", lambda: desktop.press("ctrl+n"))
        for place in (PYCHESS_WHITE, PYCHESS_BLACK):
            desktop.click(dialogue, *place)
            time.sleep(0.5)
            desktop.press("End", "Return") # the last name in the list
            time.sleep(0.5)
        desktop.click_from_corner(dialogue, *PYCHESS_START)

    @staticmethod
    def play(desktop, engine, log, _):
        PyChess.think(desktop, engine)
        return watch_ten_moves(desktop, log, "Vesk .* - PyChess")


# ---- scid: in its list of engines or its window for them, played against in a serious game

SCID_ENGINES = """engine {{
  Name Vesk
  Cmd  {engine}
  Args {{}}
  Dir  .
  Elo  0
  Time 0
  URL  {{}}
  UCI 1
  UCIoptions {{}}
}}
"""
SCID_SETTINGS = """set startup(tip) 0
set ::sergame::timeMode depth
set ::sergame::depth 8
"""
SCID_TOOLS_MENU = (421, 15)
SCID_ANALYSIS_ENGINE = (478, 42)
SCID_NEW = (388, 29) # counted from the lower right corner, and so is the next
SCID_CANCEL = (55, 29)
SCID_A8 = (42, 107)
SCID_SQUARE = 45


class Scid(ChessProgram):
    name = "scid"
    needs = ["scid"]

    @staticmethod
    def folder(desktop):
        package = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", "scid"], text=True,
                                 capture_output=True, check=True).stdout
        version = ".".join(package.rpartition(":")[2].split(".")[:2])
        return desktop.home / f".scid{version}/config"

    @staticmethod
    def write_settings(desktop):
        Scid.folder(desktop).mkdir(parents=True)
        (Scid.folder(desktop) / "options.dat").write_text(SCID_SETTINGS)

    @staticmethod
    def write_list(desktop, engine, _):
        (Scid.folder(desktop) / "engines.dat").write_text(SCID_ENGINES.format(engine=engine))

    @staticmethod
    def start(desktop, *_):
        return desktop.start("scid")

    @staticmethod
    def add_by_hand(desktop, engine):
        window = Scid.open(desktop)
        engines = desktop.open_window(
            "Scid: Analysis Engine",
            lambda: desktop.choose(window, SCID_TOOLS_MENU, SCID_ANALYSIS_ENGINE))
        desktop.open_window("^Scid$", lambda: desktop.click_from_corner(engines, *SCID_NEW))
        desktop.write("Vesk")
        desktop.press("Tab")
        desktop.write(str(engine))
        desktop.press("Return") # OK
        desktop.wait_for_end("^Scid$")
        saved = Scid.folder(desktop) / "engines.dat"
        wait_for("engine in the program's list", 20,
                 lambda: saved.exists() and str(engine) in saved.read_text())
        desktop.click_from_corner(engines, *SCID_CANCEL) # OK would start an analysis
        desktop.wait_for_end("Scid: Analysis Engine")

    @staticmethod
    def open(desktop):
        window = desktop.window("Scid - ")
        time.sleep(2)
        return window

    @staticmethod
    def play(desktop, engine, log, _):
        window = Scid.open(desktop)
        desktop.click(window, 300, 15) # Play
        time.sleep(1)
        desktop.click(window, 340, 43) # its first line
        desktop.window("Game configuration")
        time.sleep(1)
        desktop.press("Return") # Play
        time.sleep(1)
        play_by_clicking(desktop, engine, log, window, squares_of(SCID_A8, SCID_SQUARE))
        return window

    @staticmethod
    def think(desktop, engine):
        Scid.open(desktop)
        # The engine on top of the list is at hand from the start, and now analyses.
        wait_for("engine in the window for analysis", 60, lambda: processes_of(engine))
        time.sleep(3)
        desktop.press("F4")


# ---- gnome-chess: in its list of engines, chosen in its window for a new game

GNOME_CHESS_ENGINES = """[Vesk]
protocol=uci
binary={engine}
uci-go-option-easy-0={limit}
"""
# The first on the list is the opponent unasked. This one never moves.
GNOME_CHESS_OTHER = """[Another]
protocol=uci
binary=/bin/cat

"""
GNOME_CHESS_OPPONENT = (331, 102)
GNOME_CHESS_START = (352, 27)
GNOME_CHESS_A8 = (178, 102)
GNOME_CHESS_SQUARE = 48


class GnomeChess(ChessProgram):
    name = "gnome-chess"
    needs = ["gnome-chess"]

    @staticmethod
    def write_list(desktop, engine, thinks_long, others=""):
        folder = desktop.home / ".config/gnome-chess"
        folder.mkdir(parents=True)
        limit = "movetime 60000" if thinks_long else "depth 8"
        text = GNOME_CHESS_ENGINES.format(engine=engine, limit=limit)
        (folder / "engines.conf").write_text(others + text)

    @staticmethod
    def start(desktop, engine, by_hand):
        if by_hand:
            # It has no window for adding an engine, but one for choosing from the list.
            GnomeChess.write_list(desktop, engine, False, GNOME_CHESS_OTHER)
        # Without a user's session nobody keeps the settings, and a choice would not last.
        return desktop.start("gnome-chess", GSK_RENDERER="cairo", GSETTINGS_BACKEND="memory")

    @staticmethod
    def add_by_hand(desktop, engine):
        del engine
        GnomeChess.open(desktop)
        dialogue = desktop.open_window("New Game", lambda: desktop.press("ctrl+n"))
        desktop.click(dialogue, *GNOME_CHESS_OPPONENT)
        time.sleep(1.5)
        desktop.press("End", "Return") # the last name in the list
        time.sleep(1.5)
        desktop.click(dialogue, *GNOME_CHESS_START)
        desktop.wait_for_end("New Game")

    @staticmethod
    def open(desktop):
        window = desktop.window("White to Move")
        time.sleep(2)
        return window

    @staticmethod
    def play(desktop, engine, log, _):
        window = GnomeChess.open(desktop)
        wait_for("engine as the opponent", ANSWER_SECONDS, lambda: list(log.glob("*.in")))
        play_by_clicking(desktop, engine, log, window,
                         squares_of(GNOME_CHESS_A8, GNOME_CHESS_SQUARE))
        return window

    @staticmethod
    def think(desktop, engine):
        del engine
        window = GnomeChess.open(desktop)
        square = squares_of(GNOME_CHESS_A8, GNOME_CHESS_SQUARE)
        for row in (6, 4): # e2, e4
            desktop.click(window, *square(4, row))


HOSTS = [XBoard, PyChess, Scid, GnomeChess]


def missing_tools(host):
    return [name for name in host.needs if not has_tool(name)]
