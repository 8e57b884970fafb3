"""Writes a transcript anew from what the engine says now: run_transcript.py --write.

A transcript that fails twice is played a third time, and each expectation that fails is mended:

  next      the lines are lined up with this step and the "next" steps that follow it: lines that
            have changed are put in place, new ones get a step, steps without a line are taken out
  expect    the line most like the pattern is put in its place; without one the step is taken out
  has, errors, total, exit
            get the line, text, number or status found

Of a pattern the words that still match stay, so times and the like go on matching anything; one
whose words cannot be lined up with those of the line is replaced as a whole. What says that
something must not come (never, silence, lacks, idle, "total 0"), and that something remembered
comes again, is for a human: the transcript fails and its file stays. So it does if the engine ends
by a signal, or if the mended transcript fails in a play of its own. Prints each change.
"""
import difflib
import functools
import os
import re
import time

from run_transcript import FACTOR, Failure, Forbidden, Run

LEAST_LIKENESS = 0.6
SETTLING_SECONDS = 0.5      # a pause after which no further line of an answer is awaited
LINES_AHEAD = 12


def escape(text):
    """A pattern that matches this text alone, as one would write it by hand."""
    text = re.sub(r"([\\.^$*+?{}\[\]|()])", r"\\\1", text)
    return text.replace("\n", "\\n").replace("\r", "\\r").replace("\t", "\\t")


def matches(pattern, line):
    try:
        return re.fullmatch(pattern, line) is not None
    except re.error:        # a part of a pattern that is none by itself
        return False


def other_word(old, new):
    """What it costs to have a word in place of another: half where only a number differs."""
    plain = [re.sub(r"\d+", "0", re.sub(r"\\(.)", r"\1", word)) for word in (old, new)]
    return 0.5 if plain[0] == plain[1] else 1


def merge(pattern, line, fill):
    """The pattern with as little as possible replaced so that it matches the line, and the cost of
    that in words; None if its words cannot be lined up with those of the line. A word with a
    wildcard may stand for several words. fill puts what was remembered in its places."""
    old = pattern.split(" ")
    new = line.split(" ")

    @functools.cache
    def rest(i, j):
        if i == len(old) or j == len(new):
            return (0, []) if i == len(old) and j == len(new) else None
        word = fill(old[i])
        widest = len(new) if re.search(r"[*+ ]", word) else j + 1
        found = [(0, old[i], rest(i + 1, end)) for end in range(j + 1, widest + 1)
                 if matches(word, " ".join(new[j:end]))]
        found.append((other_word(old[i], new[j]), escape(new[j]), rest(i + 1, j + 1)))
        found = [(cost + tail[0], [word] + tail[1]) for cost, word, tail in found if tail]
        return min(found, key=lambda one: one[0], default=None)

    best = rest(0, 0)
    if best is None or not matches(fill(" ".join(best[1])), line):
        return None
    return " ".join(best[1]), best[0]


def likeness(pattern, line, fill):
    """From 0 to 1: the share of words that may stay, or of characters, backslashes left out."""
    letters = difflib.SequenceMatcher(None, re.sub(r"\\(.)", r"\1", pattern), line, False).ratio()
    words = sum(word != ".*" for word in pattern.split(" "))
    merged = merge(pattern, line, fill)
    return max(letters, (words - merged[1]) / words if merged and words else 0)


class Mender(Run):
    """A play that changes its steps where they fail."""

    def __init__(self, path, script):
        super().__init__(path, script)
        self.changes = []

    # ---- changing steps

    def put(self, index, steps, count=1):
        """Puts steps in place of so many, and goes back to have the first of them played."""
        for name in self.remembered:
            if f"%{name}%" in "".join(self.steps[index:index + count]) \
                    and f"%{name}%" not in "".join(steps):
                raise Failure(f"the {name} remembered does not come again")
        for old in self.steps[index:index + count]:
            self.changes.append(f"- {old}")
        self.changes += [f"+ {new}" for new in steps]
        self.steps[index:index + count] = steps
        self.number = index

    def put_pattern(self, index, pattern):
        """Gives a step another pattern. One that remembers must still have a group."""
        step = self.steps[index]
        if step.startswith("remember ") and re.compile(self.filled(pattern)).groups == 0:
            raise Failure(f"nothing to remember in {pattern!r}")
        self.put(index, [" ".join(step.split(" ")[:self.head_words(index)] + [pattern])])

    def head_words(self, index):
        return 3 if self.steps[index].startswith("remember ") else 2

    def pattern_of(self, index):
        """The pattern of a step as it is written."""
        return " ".join(self.steps[index].split(" ")[self.head_words(index):])

    def mended(self, index, line):
        """The pattern of a step, as much of it as can stay, so that it matches the line."""
        merged = merge(self.pattern_of(index), line, self.filled)
        return merged[0] if merged else escape(line)

    def put_most_like(self, index, lines):
        """Lets the step match the line most like its pattern, the last of several such. Returns
        whether there is one."""
        marks = [likeness(self.pattern_of(index), line, self.filled) for line in lines]
        if not marks or max(marks) < LEAST_LIKENESS:
            return False
        last = max(i for i, mark in enumerate(marks) if mark == max(marks))
        self.put_pattern(index, self.mended(index, lines[last]))
        return True

    # ---- lines of the engine

    def take_back(self, mark):
        """Puts the lines read since the mark before those still unread; returns them."""
        engine = self.engine
        with engine.arrived:
            lines = engine.history[mark:]
            del engine.history[mark:]
            engine.lines.extendleft(reversed(lines))
        return lines

    def lines_ahead(self):
        """The unread lines, with those that come at once."""
        engine = self.engine
        quiet = time.monotonic()
        with engine.arrived:
            while len(engine.lines) < LINES_AHEAD and not engine.closed:
                count = len(engine.lines)
                left = quiet + SETTLING_SECONDS * FACTOR - time.monotonic()
                if left <= 0:
                    break
                engine.arrived.wait(left)
                if len(engine.lines) > count:
                    quiet = time.monotonic()
            return list(engine.lines)[:LINES_AHEAD]

    # ---- the steps that read lines

    def do_next(self, rest):
        mark = len(self.started().history)
        try:
            super().do_next(rest)
        except Forbidden:
            raise
        except Failure:
            self.take_back(mark)
            self.mend_next(self.number - 1)

    def run_of_next(self, index):
        """The indices of this step and of the "next" steps behind it."""
        indices = []
        while index < len(self.steps):
            step = self.steps[index]
            if step.startswith("next "):
                indices.append(index)
            elif step.strip() and not step.startswith("#"):
                break
            index += 1
        return indices[:LINES_AHEAD]

    def mend_next(self, index):
        lines = self.lines_ahead()
        steps = self.run_of_next(index)
        patterns = [self.filled(self.pattern_of(step)) for step in steps]
        gone, come = self.least_change(patterns, lines)
        if gone > 0 and come > 0:
            self.put_pattern(index, self.mended(index, lines[0]))
        elif gone > 0:
            self.put(index, [])
        else:
            seconds = self.steps[index].split(" ")[1]
            self.put(index, [f"next {seconds} {escape(line)}" for line in lines[:come]], 0)

    @staticmethod
    def least_change(patterns, lines):
        """How many patterns are gone and how many lines have come instead before both agree again.
        Lines that have changed, so many for as many, are the likeliest."""
        sizes = range(1, max(len(patterns), len(lines)) + 1)
        for size in sizes:
            pairs = [(size, size)]
            for less in range(size - 1, -1, -1):
                pairs += [(less, size), (size, less)]
            for gone, come in pairs:
                if gone < len(patterns) and come < len(lines) \
                        and matches(patterns[gone], lines[come]):
                    return gone, come
        return 1, min(1, len(lines))

    def do_expect(self, rest):
        mark = len(self.started().history)
        try:
            return super().do_expect(rest)
        except Forbidden:
            raise
        except Failure:
            index = self.number - 1
            if not self.put_most_like(index, self.take_back(mark)):
                if self.steps[index].startswith("remember "):
                    raise
                self.put(index, [])
        return None

    def do_remember(self, rest):
        name, _, rest = rest.partition(" ")
        match = self.do_expect(rest)
        if match:       # otherwise the step comes again
            self.remembered[name] = match.group(1)

    # ---- the steps that look at what is there

    def do_total(self, rest):
        try:
            super().do_total(rest)
        except Failure:
            wanted, _, pattern = rest.partition(" ")
            if int(wanted) == 0:
                raise
            found = sum(matches(pattern, line) for line in self.engine.history)
            written = self.pattern_of(self.number - 1)
            self.put(self.number - 1, [f"total {found} {written}"])

    def do_has(self, rest):
        try:
            super().do_has(rest)
        except Failure:
            lines = self.lines_of(rest.partition(" ")[0] + " (?s:.*)")
            if not self.put_most_like(self.number - 1, lines):
                raise

    def do_errors(self, rest):
        try:
            super().do_errors(rest)
        except Failure:
            self.engine.errors.seek(0)
            text = self.engine.errors.read().decode("latin-1")
            if not text:
                raise
            self.put(self.number - 1, [f"errors {escape(text)}"])

    def do_exit(self, rest):
        try:
            super().do_exit(rest)
        except Failure:
            wanted, seconds = rest.split()
            found = self.engine.process.poll()
            if found is None or found < 0 or int(wanted) < 0 or found == int(wanted):
                raise
            if not self.steps[self.number - 1].startswith("exit "):     # "end", or none at all
                raise
            self.put(self.number - 1, [f"exit {found} {seconds}"])


def mend(engine, script):
    """Plays a transcript and writes it anew if it fails. Returns what could not be mended."""
    if Run(engine, script).play() is None or Run(engine, script).play() is None:
        return None
    mender = Mender(engine, script)
    failure = mender.play()
    if failure is not None:
        return f"not written anew: {failure}"
    if not mender.changes:      # it failed by chance
        return None
    trial = script + ".part"
    try:
        with open(trial, "w", encoding="latin-1") as file:
            file.writelines(step + "\n" for step in mender.steps)
        failure = Run(engine, trial).play()
        if failure is not None:
            return f"not written anew, since that fails too: {failure}"
        os.replace(trial, script)
    finally:
        if os.path.exists(trial):
            os.remove(trial)
    print(f"{script}: written anew")
    for change in mender.changes:
        print(f"  {change}")
    return None
