"""What a match leaves on the disk: the games as PGN, and beside them a state file, with which an
interrupted match goes on.

The state file has a line of JSON for the settings of the match, then one for each game that is
over, in the order in which they ended: opening, colours, points of the first engine, and how long
the file of games is behind it. A game counts once its line is there, so that whatever a power cut
or a full disk has left behind the last line is cut off and played again. Both files belong to one
match at a time.
"""

import fcntl
import json
import os
import textwrap

import uci_games


class RecordFault(Exception):
    """A file that cannot be written or read, or is not of this match."""


def to_pgn(game, tags):
    """A game as chess programs show it."""
    tokens = []
    number, is_white = 1, game.fen.split()[1] == "w"
    for ply, (san, comment) in enumerate(zip(game.sans, game.comments)):
        if is_white or ply == 0 or game.comments[ply - 1]:
            tokens.append(f"{number}{'.' if is_white else '...'}")
        tokens.append(san)
        if comment:
            tokens.append(f"{{{comment}}}")
        number += not is_white
        is_white = not is_white
    text = textwrap.fill(" ".join([*tokens, game.result]), 80, break_long_words=False,
                         break_on_hyphens=False)
    tags = {"Event": "?", "Site": "?", "Date": "????.??.??", **tags, "White": game.white,
            "Black": game.black, "Result": game.result, "PlyCount": len(game.sans),
            "Termination": game.why}
    escaped = {name: str(value).replace("\\", "\\\\").replace('"', '\\"')
               for name, value in tags.items()}
    return uci_games.pgn_text(escaped, game.fen, text)


class Record:
    """The files of a match, open and locked."""

    def __init__(self, path, settings, resume):
        self.games_path, self.state_path = str(path), f"{path}.state"
        self.done = []      # of each game: its line in the state file
        self.files = []
        try:
            self.files = [os.open(name, os.O_RDWR | os.O_CREAT, 0o666)
                          for name in (self.games_path, self.state_path)]
            self.games, self.state = self.files
            fcntl.flock(self.state, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.read(settings, resume)
        except BlockingIOError:
            self.close()
            raise RecordFault(f"{self.state_path}: another match is writing it") from None
        except OSError as error:
            self.close()
            raise RecordFault(f"{error.filename or path}: {error.strerror}") from None
        except RecordFault:
            self.close()
            raise

    def read(self, settings, resume):
        text = b""
        while chunk := os.read(self.state, 1 << 20):
            text += chunk
        games_size = os.fstat(self.games).st_size
        lines = text.split(b"\n")[:-1]      # one that was cut short is none
        if not lines and games_size:
            raise RecordFault(f"{self.games_path}: there are games already, and no state of their "
                              f"match in {self.state_path}")
        if len(lines) < 2:      # a match that ended before its first game
            os.ftruncate(self.games, 0)
            os.ftruncate(self.state, 0)
            os.lseek(self.state, 0, os.SEEK_SET)
            self.append(self.state, self.state_path, json.dumps(settings) + "\n", 0)
            return
        if not resume:
            raise RecordFault(f"{self.games_path}: games of a match are there already; "
                              "go on with --resume, or name another file")
        self.check_settings(self.parse(lines[0], 1), settings)
        self.keep(lines, games_size)

    def parse(self, line, number):
        try:
            found = json.loads(line)
            if number > 1:
                found["pair"], found["turn"], found["points"], found["size"]
        except (ValueError, KeyError, TypeError):
            raise RecordFault(f"{self.state_path}:{number}: this is no line of a match") from None
        return found

    def check_settings(self, old, new):
        for name in new:
            if old.get(name) != new[name]:
                raise RecordFault(f"{self.state_path}:1: {name} was {json.dumps(old.get(name))}, "
                                  f"and is {json.dumps(new[name])} now")

    def keep(self, lines, games_size):
        """Takes over the games that are there as a whole, and cuts off the rest."""
        kept, size = len(lines[0]) + 1, 0
        for number, line in enumerate(lines[1:], 2):
            game = self.parse(line, number)
            if game["size"] > games_size:
                break
            self.done.append(game)
            kept += len(line) + 1
            size = game["size"]
        os.ftruncate(self.state, kept)
        os.ftruncate(self.games, size)
        for file in self.files:
            os.lseek(file, 0, os.SEEK_END)

    def append(self, file, path, text, size):
        """Writes behind the size that the file has, or leaves it at that."""
        data = text.encode()
        try:
            while data:
                data = data[os.write(file, data):]
        except OSError as error:
            os.ftruncate(file, size)
            os.lseek(file, size, os.SEEK_SET)
            raise RecordFault(f"{path}: {error.strerror}") from None

    def add(self, pair, turn, points, game, tags):
        """Writes a game down. Without room for it both files stay as they were."""
        size = os.fstat(self.games).st_size
        text = to_pgn(game, {**tags, "Round": f"{pair + 1}.{turn + 1}"})
        self.append(self.games, self.games_path, text, size)
        line = {"pair": pair, "turn": turn, "points": points, "end": game.why,
                "size": size + len(text.encode())}
        try:
            self.append(self.state, self.state_path, json.dumps(line) + "\n",
                        os.fstat(self.state).st_size)
        except RecordFault:
            os.ftruncate(self.games, size)
            raise
        self.done.append(line)

    def close(self):
        for file in self.files:
            os.close(file)
        self.files = []


def write_whole(path, text):
    """Writes a file that somebody may look at meanwhile."""
    part = f"{path}.part"
    try:
        with open(part, "w", encoding="utf-8") as file:
            file.write(text)
        os.replace(part, path)
    except OSError as error:
        raise RecordFault(f"{path}: {error.strerror}") from None
