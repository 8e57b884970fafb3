#!/usr/bin/env python3
"""Takes the pictures of docs/board.md anew.

    take_pictures.py ROOT PROGRAMS PACKAGES FOLDER

They are packed by pngquant where it is installed, and must not be larger than 100 KB.
"""

import pathlib
import shutil
import subprocess
import sys
import time

from interpreter import need

need("aiohttp", "selenium")

from board_server import BoardServer
from browser import Browser

ROOT, PROGRAMS, PACKAGES, FOLDER = (pathlib.Path(word).resolve() for word in sys.argv[1:5])
LARGEST = 100_000   # bytes
GAME = """[White "White"]
[Black "Black"]
[Result "1-0"]

1. e4 e5 2. Nf3 d6 3. d4 Bg4 4. dxe5 Bxf3 5. Qxf3 dxe5 6. Bc4 Nf6 7. Qb3 Qe7 8. Nc3 c6 9. Bg5 b5
10. Nxb5 cxb5 11. Bxb5+ Nbd7 12. O-O-O Rd8 13. Rxd7 Rxd7 14. Rd1 Qe6 15. Bxd7+ Nxd7 16. Qb8+ Nxb8
17. Rd8# 1-0
"""


def load(page, ply):
    page.click("#open-pgn")
    page.ask("document.getElementById('import-text').value = arguments[0]", GAME)
    page.click("#import-read")
    page.ask("window.vesk.game.go(arguments[0])", ply)


def take(page, name):
    time.sleep(0.4)
    path = FOLDER / f"{name}.png"
    page.ask("document.activeElement.blur()")
    page.ask("document.getElementById('folder').textContent = 'board/files'")
    page.picture(path)
    if shutil.which("pngquant"):
        subprocess.run(["pngquant", "--force", "--strip", "--speed", "1", "--output", path, "128",
                        path], check=True)
    print(f"{path}: {path.stat().st_size} bytes")
    if path.stat().st_size > LARGEST:
        sys.exit(f"{path} is too large")


def review(page):
    page.start_review("0.1")
    page.until(lambda: "inaccurac" in page.text("#review-text"), "the game is gone through", 120)


def take_wide(page):
    load(page, 25)
    review(page)
    page.ask("window.vesk.game.go(23)")
    page.click("#analysis")
    page.until(lambda: len(page.all("#analysis-lines li")) == 3, "three lines come")
    time.sleep(4)
    take(page, "analyse")
    page.click("#tab-why")
    page.until(lambda: len(page.all("#why-rows .term-row")) == 9, "the terms are shown")
    page.click("[data-term=king]")
    take(page, "why")
    page.click("#tab-taste")
    page.choose("#taste-choice", "Attacker")
    page.until(lambda: page.text("#taste-bars .change.up"), "the bars follow")
    page.choose("#match-choice", "Pawn player")
    page.click("#match")
    page.until(lambda: "20 of 20" in page.text("#match-text"), "the match is over", 240)
    page.ask("window.scrollTo(0, 0)")
    page.resize(1280, 1480)
    take(page, "taste")
    page.resize(1280, 900)
    page.click("#tab-tuning")
    page.until(lambda: len(page.all("#maps .map")) == 3, "the maps are drawn")
    take(page, "tuning")
    page.click("#tab-play")
    page.find("#full").click()
    page.type("#seconds", "0.3")
    page.choose("#opening", "Italian game")
    page.click("#start")
    page.move("O-O")
    page.until(lambda: "Your move" in page.text("#play-turn") and len(page.moves()) == 12, "my turn")
    page.click("#hint")
    page.until(lambda: page.all(".arrow-hint"), "the hint is shown")
    take(page, "play")


def take_dark(page):
    load(page, 21)
    page.click("#tab-why")
    page.until(lambda: len(page.all("#why-rows .term-row")) == 9, "the terms are shown")
    page.click("[data-term=other]")
    take(page, "dark")


def take_phone(page):
    load(page, 23)
    page.click("#tab-why")
    page.until(lambda: len(page.all("#why-rows .term-row")) == 9, "the terms are shown")
    take(page, "phone")


def main():
    FOLDER.mkdir(parents=True, exist_ok=True)
    with BoardServer(ROOT, PROGRAMS, PACKAGES, games=20) as server:
        for picture, words in ((take_wide, {}), (take_dark, {"dark": True}),
                               (take_phone, {"width": 390, "height": 1500})):
            with Browser(**words) as page:
                page.open(server.address)
                picture(page)


main()
