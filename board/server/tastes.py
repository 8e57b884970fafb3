"""Tastes as files: options of the engine in the form that its ConfigFilePath reads."""

import contextlib
import re

from .words import HIGHEST_SCALE, LOWEST_SCALE, NAME, TASTE_NAMES, Refusal

MOST_TASTES = 200
LONGEST_FILE = 1 << 14      # bytes; larger ones are none of ours
LINE = re.compile(r"(\w+) *= *(\d{1,3}) *, *(\d{1,3})")
HEAD = "# A taste of Vesk, per cent of the middle game's and the endgame's weights.\n"


def taste_text(taste):
    """The lines of the file, all options, so that it also undoes what another file has set."""
    pairs = ((name, *taste.get(name, (100, 100))) for name in TASTE_NAMES)
    return HEAD + "".join(f"{name} = {middle},{end}\n" for name, middle, end in pairs)


def read_taste_text(text):
    """The pairs that a file sets; what is out of range is passed over, as are other options."""
    taste = {}
    for line in text.splitlines():
        found = LINE.match(line)
        if found is None or found[1] not in TASTE_NAMES:
            continue
        pair = int(found[2]), int(found[3])
        if all(LOWEST_SCALE <= half <= HIGHEST_SCALE for half in pair) and pair != (100, 100):
            taste[found[1]] = pair
    return taste


def list_tastes(folder):
    """The tastes of a folder by name."""
    found = {}
    if not folder.is_dir():
        return found
    for path in sorted(folder.glob("*.cfg"))[:MOST_TASTES]:
        with contextlib.suppress(OSError):  # that nobody may read
            if NAME.fullmatch(path.stem) and path.is_file() \
                    and path.stat().st_size <= LONGEST_FILE:
                found[path.stem] = read_taste_text(path.read_text(errors="replace"))
    return found


def save_taste(folder, name, taste, replace):
    """Writes a file and gives its path. An older one of that name stays unless it shall be
    replaced. Raises Refusal or OSError."""
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / f"{name}.cfg"
    if path.exists() and not replace:
        raise Refusal("exists")
    if not path.exists() and len(list(folder.glob("*.cfg"))) >= MOST_TASTES:
        raise Refusal(f"there are {MOST_TASTES} tastes already")
    part = folder / f".{name}.part"     # whole or not at all
    part.write_text(taste_text(taste))
    part.replace(path)
    return path
