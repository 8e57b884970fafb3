"""A browser that nobody sees, and what a person does in it."""

import contextlib
import shutil
import tempfile
import time

from selenium import webdriver
from selenium.common.exceptions import (JavascriptException, NoSuchElementException,
                                        StaleElementReferenceException)
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

# Texts whose contrast with their ground is below 4.5 to 1, each with its place.
FAINT_TEXTS = """(() => {
    const parse = text => {
        const [r, g, b, alpha = 1] = text.match(/[\\d.]+/g).map(Number)
        return text.startsWith("color(") ? [255 * r, 255 * g, 255 * b, alpha] : [r, g, b, alpha]
    }
    const light = color => color.slice(0, 3).map(part => part / 255)
        .map(part => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
        .reduce((sum, part, index) => sum + part * [0.2126, 0.7152, 0.0722][index], 0)
    const ground = node => {
        for (; node; node = node.parentElement) {
            const color = parse(getComputedStyle(node).backgroundColor)
            if (color[3] > 0.9) return color
        }
        return [255, 255, 255, 1]
    }
    return [...document.querySelectorAll("body *")].filter(node => node.checkVisibility()
        && !node.disabled && !node.closest("svg, .hidden-text, .cm-chessboard-accessibility")
        && [...node.childNodes].some(child => child.nodeType === 3 && child.data.trim()))
        .map(node => {
            const [one, two] = [parse(getComputedStyle(node).color), ground(node)].map(light)
            const contrast = (Math.max(one, two) + 0.05) / (Math.min(one, two) + 0.05)
            return [`${node.id || node.className || node.tagName}: ${node.textContent}`, contrast]
        }).filter(([, contrast]) => contrast < 4.5)
})()"""
BROWSERS = ("chromium", "chromium-browser", "google-chrome")
PATIENCE = 20.0         # seconds that a busy machine may take
WORDS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
         "--no-first-run", "--no-proxy-server", "--hide-scrollbars", "--disable-extensions",
         "--disable-background-networking", "--disable-component-update", "--disable-sync",
         "--disable-default-apps", "--disable-domain-reliability", "--force-color-profile=srgb")


def find_browser():
    """The paths of the browser and of its driver, or None."""
    paths = [next(filter(None, map(shutil.which, names)), None)
             for names in (BROWSERS, ("chromedriver",))]
    return None if None in paths else paths


class Browser:
    """A browser with a page; ended with `with`. Elements are named by CSS selectors."""

    def __init__(self, width=1280, height=900, dark=False):
        browser, driver = find_browser()
        self.home = tempfile.mkdtemp(prefix="vesk-browser-")
        options = webdriver.ChromeOptions()
        options.binary_location = browser
        for word in (*WORDS, f"--window-size={width},{height}", f"--user-data-dir={self.home}"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        try:
            self.driver = webdriver.Chrome(options=options, service=Service(driver))
        except BaseException:
            shutil.rmtree(self.home, ignore_errors=True)
            raise
        self.resize(width, height)
        self.use_colours("dark" if dark else "light")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(Exception):
            self.driver.quit()
        shutil.rmtree(self.home, ignore_errors=True)

    def command(self, name, **members):
        return self.driver.execute_cdp_cmd(name, members)

    def resize(self, width, height):
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height,
                     deviceScaleFactor=1, mobile=width < 600)

    def use_colours(self, name):
        """What the system is set to: light or dark."""
        self.command("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": name},
            {"name": "prefers-reduced-motion", "value": "reduce"}])

    def start_review(self, seconds):
        """Has the game gone through, with so long a look at each position."""
        self.click("#tab-analyse")
        self.choose("#review-time", seconds)
        self.click("#review")

    def faint_texts(self):
        return self.ask(FAINT_TEXTS)

    def open(self, address):
        self.driver.get("about:blank")
        self.driver.get(address)
        self.wait_ready()

    def wait_ready(self):
        self.until(lambda: self.text("#connection").startswith("Vesk"), "the engine is ready")

    def until(self, true, text, seconds=PATIENCE):
        """Waits until a function says something true, and gives it."""
        end = time.monotonic() + seconds
        while True:
            with contextlib.suppress(StaleElementReferenceException, NoSuchElementException,
                                     JavascriptException):
                found = true()
                if found:
                    return found
            if time.monotonic() > end:
                raise AssertionError(f"not within {seconds:g} s: {text}; the page says: "
                                     f"{self.text('#status')!r}")
            time.sleep(0.05)

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.find(selector).get_attribute("textContent")

    def click(self, selector):
        self.until(lambda: self.find(selector).is_enabled(), f"{selector} can be used")
        self.find(selector).click()

    def type(self, selector, text):
        field = self.find(selector)
        field.clear()
        field.send_keys(text)

    def choose(self, selector, value):
        """Chooses an entry of a list as a person does."""
        self.find(f'{selector} option[value="{value}"]').click()

    def slide(self, selector, value):
        """Moves a slider by the keyboard."""
        field = self.find(selector)
        field.send_keys(Keys.END if value > 100 else Keys.HOME)
        for _ in range(60):
            now = int(field.get_attribute("value"))
            if now == value:
                return
            field.send_keys(Keys.ARROW_LEFT if now > value else Keys.ARROW_RIGHT)
        raise AssertionError(f"{selector} does not go to {value}")

    def ask(self, script, *arguments):
        return self.driver.execute_script(f"return {script}", *arguments)

    def move(self, text):
        """A move by the field for it."""
        self.type("#move-text", text + "\n")

    def drag(self, start, end):
        """A move by the mouse, from square to square."""
        pieces = {name: self.find(f'#board .board [data-square="{name}"]') for name in (start, end)}
        actions = ActionChains(self.driver, duration=50)
        actions.move_to_element(pieces[start]).click_and_hold().move_by_offset(5, 5)
        actions.move_to_element(pieces[end]).perform()
        held, under = self.find(".cm-chessboard-draggable-piece").rect, pieces[end].rect
        for side in ("x", "y"):
            if abs(held[side] - under[side]) > 5:
                raise AssertionError(f"the piece in the hand is not on {end}: {held}, {under}")
        ActionChains(self.driver, duration=50).release().perform()

    def press(self, selector):
        """A click where the middle of an element is, whatever lies on top there."""
        ActionChains(self.driver, duration=50).move_to_element(self.find(selector)).click().perform()

    def tap(self, *squares):
        """Touches squares one after the other."""
        for name in squares:
            box = self.find(f'#board .board [data-square="{name}"]').rect
            point = {"x": box["x"] + box["width"] / 2, "y": box["y"] + box["height"] / 2}
            point["y"] -= self.ask("window.scrollY")
            self.command("Input.dispatchTouchEvent", type="touchStart", touchPoints=[point])
            self.command("Input.dispatchTouchEvent", type="touchEnd", touchPoints=[])

    def moves(self):
        """The moves of the list, as the page writes them."""
        return self.ask("[...document.querySelectorAll('.move > span:first-child')]"
                        ".map(item => item.textContent)")

    def complaints(self):
        """What the browser has complained of."""
        return [entry["message"] for entry in self.driver.get_log("browser")
                if entry["level"] in ("SEVERE", "WARNING")]

    def picture(self, path):
        self.driver.save_screenshot(str(path))
