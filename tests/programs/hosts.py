"""The chess programs: how the engine is added to each, how a game is started, and how a player
makes his moves. A position in a window is counted from its upper left corner, in pixels.

Each program has `play`, which leaves its window with ten moves of both sides on the board, and
`think`, which leaves it with the engine in a search that lasts."""
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


class ChessProgram:
    """What most of them have in common."""
    path = "/usr/games:/usr/bin:/bin"

    @staticmethod
    def add_engine(desktop, engine, thinks_long):
        pass


# ---- xboard: on its command line, with polyglot between

XBOARD_WORDS = "-fcp {engine} -fUCI -scp {engine} -sUCI -mg 1 -mps 40"


class XBoard(ChessProgram):
    name = "xboard"
    needs = ["xboard", "polyglot"]

    @staticmethod
    def start(desktop, engine):
        # It looks up the home in the list of users, and would write its settings there.
        return desktop.start("xboard", "-saveSettingsFile", str(desktop.home / ".xboardrc"),
                             *XBOARD_WORDS.format(engine=engine).split(), "-tc", "0:20")

    @staticmethod
    def play(desktop, engine, log):
        del engine
        return watch_ten_moves(desktop, log, "Vesk .* vs. Vesk")

    @staticmethod
    def think(desktop, engine):
        del engine
        desktop.window("Vesk .* vs. Vesk")


# ---- pychess: in its list of engines, chosen in its window for a new game

PYCHESS_ENGINES = '[{{"name": "vesk-uci", "command": "{engine}", "protocol": "uci"}}]\n'
PYCHESS_SETTINGS = """[General]
show_tip_at_startup = False
dont_show_externals_at_startup = True
classicalRadio = True
ngclassical min = 1
ngclassical moves = 60
"""
PYCHESS_WHITE = (257, 48)
PYCHESS_BLACK = (257, 122)
PYCHESS_START = (70, 28) # counted from the lower right corner


class PyChess(ChessProgram):
    name = "pychess"
    needs = ["pychess"]
    path = "/usr/bin:/bin" # it looks for engines where this leads, and asks all that it finds

    @staticmethod
    def add_engine(desktop, engine, _):
        folder = desktop.home / ".config/pychess"
        folder.mkdir(parents=True)
        (folder / "engines.json").write_text(PYCHESS_ENGINES.format(engine=engine))
        (folder / "config").write_text(PYCHESS_SETTINGS)

    @staticmethod
    def start(desktop, engine):
        del engine
        return desktop.start("/usr/games/pychess", "--no-version-check")

    @staticmethod
    def think(desktop, engine):
        del engine
        desktop.window("Welcome - PyChess")
        saved = desktop.home / ".config/pychess/engines.json"
        wait_for("engine that the program has asked for its options", 60,
                 lambda: "UCI_Elo" in saved.read_text())
        time.sleep(1)
        desktop.press("ctrl+n")
        dialogue = desktop.window("New Game")
        time.sleep(1)
        for place in (PYCHESS_WHITE, PYCHESS_BLACK):
            desktop.click(dialogue, *place)
            time.sleep(0.5)
            desktop.press("End", "Return") # the last name in the list
            time.sleep(0.5)
        width, height = desktop.size(dialogue)
        desktop.click(dialogue, width - PYCHESS_START[0], height - PYCHESS_START[1])

    @staticmethod
    def play(desktop, engine, log):
        PyChess.think(desktop, engine)
        return watch_ten_moves(desktop, log, "Vesk .* - PyChess")


# ---- scid: in its list of engines, played against in a serious game

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


class Scid(ChessProgram):
    name = "scid"
    needs = ["scid"]

    @staticmethod
    def add_engine(desktop, engine, _):
        package = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", "scid"], text=True,
                                 capture_output=True, check=True).stdout
        version = ".".join(package.rpartition(":")[2].split(".")[:2])
        folder = desktop.home / f".scid{version}/config"
        folder.mkdir(parents=True)
        (folder / "engines.dat").write_text(SCID_ENGINES.format(engine=engine))
        (folder / "options.dat").write_text(SCID_SETTINGS)

    @staticmethod
    def start(desktop, engine):
        del engine
        return desktop.start("scid")

    @staticmethod
    def open(desktop):
        window = desktop.window("Scid - ")
        time.sleep(2)
        return window

    @staticmethod
    def play(desktop, engine, log):
        window = Scid.open(desktop)
        desktop.click(window, 300, 15) # Play
        time.sleep(1)
        desktop.click(window, 340, 43) # its first line
        desktop.window("Game configuration")
        time.sleep(1)
        desktop.press("Return") # Play
        time.sleep(1)
        play_by_clicking(desktop, engine, log, window,
                         lambda file, row: (42 + 45 * file, 107 + 45 * row))
        return window

    @staticmethod
    def think(desktop, engine):
        Scid.open(desktop)
        # The engine on top of the list is at hand from the start, and now analyses.
        wait_for("engine in the window for analysis", 60, lambda: processes_of(engine))
        time.sleep(3)
        desktop.press("F4")


# ---- gnome-chess: in its list of engines, the first of which is the opponent

GNOME_CHESS_ENGINES = """[Vesk]
protocol=uci
binary={engine}
uci-go-option-easy-0={limit}
"""
# The middle of a8, and the side of a square.
GNOME_CHESS_A8 = (178, 102)
GNOME_CHESS_SQUARE = 48


class GnomeChess(ChessProgram):
    name = "gnome-chess"
    needs = ["gnome-chess"]

    @staticmethod
    def add_engine(desktop, engine, thinks_long):
        folder = desktop.home / ".config/gnome-chess"
        folder.mkdir(parents=True)
        limit = "movetime 60000" if thinks_long else "depth 8"
        text = GNOME_CHESS_ENGINES.format(engine=engine, limit=limit)
        (folder / "engines.conf").write_text(text)

    @staticmethod
    def start(desktop, engine):
        del engine
        return desktop.start("gnome-chess", GSK_RENDERER="cairo")

    @staticmethod
    def square(file, row):
        return tuple(corner + GNOME_CHESS_SQUARE * index
                     for corner, index in zip(GNOME_CHESS_A8, (file, row)))

    @staticmethod
    def open(desktop):
        window = desktop.window("White to Move")
        time.sleep(2)
        return window

    @staticmethod
    def play(desktop, engine, log):
        window = GnomeChess.open(desktop)
        play_by_clicking(desktop, engine, log, window, GnomeChess.square)
        return window

    @staticmethod
    def think(desktop, engine):
        del engine
        window = GnomeChess.open(desktop)
        for row in (6, 4): # e2, e4
            desktop.click(window, *GnomeChess.square(4, row))


HOSTS = [XBoard, PyChess, Scid, GnomeChess]


def missing_tools(host):
    return [name for name in host.needs if not has_tool(name)]
