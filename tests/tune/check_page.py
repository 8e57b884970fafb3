#!/usr/bin/env python3
"""Runs the commands of docs/tuning.md, from games to a match, on a few games.

    check_page.py PAGE VESK VESK_TUNE MATCH GAMES

Every indented line of the page up to its options that begins with a command is run as it stands, but
for the number of games, in an empty folder with games of other engines. Status 1 if one fails or
leaves nothing. Matches are left out where their referee, pgn-extract, is not
installed.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import uci_games

OPENINGS = 2
OWN_GAMES = 8
EXPECTED = ("own.pgn", "lines.epd", "openings.epd", "tuned/params.txt", "tmp.epd", "tune_new.epd",
            "tune_report.txt", "tune_report.csv", "tune_errors.csv", "tune_errors.svg", "all.epd")
PLAYED = ("match.pgn", "match.pgn.state", "match.svg", "margins.json", "margins.svg")


def commands(page):
    text = page.read_text(encoding="utf-8").split("\n## Options")[0]
    return re.findall(r"^    ((?:\$VESK|mkdir|mv|awk).*)$", text, re.M)


def main():
    page, vesk, tune, match, games = (pathlib.Path(path).resolve() for path in sys.argv[1:])
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder) / "sources"
        work = pathlib.Path(folder) / "work"
        for path in (root, work):
            path.mkdir(parents=True)
        (root / "vesk").symlink_to(vesk)
        (root / "vesk-tune").symlink_to(tune)
        (root / "bench").symlink_to(match.parent)
        (work / "games.pgn").write_bytes(games.read_bytes())
        played = ""
        has_referee = uci_games.find_referee() is not None
        for command in commands(page):
            # What takes a night is only begun.
            command = re.sub(r"--games \d+", f"--games {2 * OPENINGS}", command)
            own = OPENINGS if "-selfplay-seed" in command else OWN_GAMES
            command = re.sub(r"-selfplay \d+", f"-selfplay {own}", command)
            if "bench/" in command and not has_referee:
                print(f"pgn-extract is not installed, so this is left out: {command}")
                continue
            result = subprocess.run(["bash", "-c", command], cwd=work, capture_output=True,
                                    text=True, stdin=subprocess.DEVNULL, timeout=300, check=False,
                                    env={**os.environ, "VESK": str(root)})
            if "match.py" in command:
                played = result.stdout
            if result.returncode != 0:
                raise SystemExit(f"{command}: status {result.returncode}\n"
                                 f"{result.stdout}{result.stderr}")
        for name in (*EXPECTED, *(PLAYED if has_referee else ())):
            if not (work / name).is_file() or (work / name).stat().st_size == 0:
                raise SystemExit(f"the commands leave no {name}")
        if has_referee and f"games {2 * OPENINGS}: " not in played:
            raise SystemExit(f"no match was played:\n{played}")


if __name__ == "__main__":
    main()
