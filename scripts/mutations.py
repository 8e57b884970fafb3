"""One-token changes of a C++ text: where they can be made, and what each makes of its line.

A change keeps the number of lines. Comments, literals of text, lines of the preprocessor, checks
for developers and the sizes of arrays are left alone: what they hold changes no result.
"""

import collections
import random
import re

# start and end are places in the text of the file.
Change = collections.namedtuple("Change", "start end line kind new")

# What is looked at as one piece, so that a quote within a comment opens no literal.
NO_CODE = re.compile(
    r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|'(?:\\.|[^'\\\n])+'(?![\w'])"
    r"|^[ \t]*#(?:\\\n|[^\n])*", re.DOTALL | re.MULTILINE)
CHECK = re.compile(r"\b(?:debug_check|static_assert|assert)\(")

# By blanks on both sides an operator is told from the brackets of a template, from a pointer and
# from a sign.
OPERATORS = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
    "==": ("!=",), "!=": ("==",), "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",),
    "&": ("|",), "|": ("&",), "^": ("|",), "<<": (">>",), ">>": ("<<",),
    "+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "|=": ("&=",), "&=": ("|=",), "^=": ("|=",),
}
COMPARISONS = ("<", "<=", ">", ">=", "==", "!=")
OPERATOR = re.compile(r"(?<=\s)(?:" + "|".join(
    re.escape(text) for text in sorted(OPERATORS, key=len, reverse=True)) + r")(?=\s)")

UNARY = re.compile(r"(?:(?<=[(\[,=?:!<>+*&|^-] )|(?<=[(\[!~])|(?<=\breturn ))[-~!](?=[\w(])|"
                   r"(?<=[\s(])!(?=[\w(])")
STEP = re.compile(r"\+\+|--")
STEP_TURNED = {"++": "--", "--": "++"}
WORD = re.compile(r"\b(?:true|false)\b")
WORD_TURNED = {"true": "false", "false": "true"}
NUMBER = re.compile(r"(?<![\w.])(?P<digits>0[xX][\da-fA-F]+|0[bB][01]+|\d+\.\d*|\.\d+|\d+)"
                    r"(?P<tail>[uUlLfF]*)(?![\w.'])")
# The line up to a number that is the size of an array being declared.
ARRAY_SIZE = re.compile(r"^\s*(?!return\b|else\b|case\b)[\w:<>,*& ]*[\w>*&] \*?\w+"
                        r"(?:\[[^\]]*\])*\[$")
CONDITION = re.compile(r"\b(?:if|while)(?: constexpr)? \(")
# Conditions whose negation is the change of a token: "!x" and a comparison alone.
SIMPLE_CONDITION = re.compile(r"^!(?:(?!&&|\|\|).)*$|^(?:(?!&&|\|\|).)* (?:[<>=!]=|[<>]) "
                              r"(?:(?!&&|\|\|).)*$", re.DOTALL)
DECLARATION = re.compile(r"[^=!<>]= |;")

# A statement on a line of its own that does something, as against a declaration: a step, an
# assignment to one word, a call, a jump.
STATEMENT = re.compile(
    r"^(?P<blanks> +)(?P<text>(?:(?:\+\+|--)[^;]+"
    r"|\*?[\w:.>-]+(?:\[[^;=]*\](?:[\w.]|->)*)* (?:[-+*/|&^%]|<<|>>)?= [^;]+"
    r"|[\w:.>-]+(?:<[\w:, ]+>)?\([^;]*\)|continue|break|return\b[^;]*);)$")
STATEMENT_MAY_FOLLOW = ("{", "}", ";", ":")


def blank_out(text, start, end):
    """The same with blanks from start to end; line feeds stay, so that no place moves."""
    return text[:start] + re.sub(r"[^\n]", " ", text[start:end]) + text[end:]


def closing(text, opened):
    """The place of the parenthesis that closes the one at opened, or None."""
    depth = 0
    for place in range(opened, len(text)):
        depth += {"(": 1, ")": -1}.get(text[place], 0)
        if depth == 0:
            return place
    return None


def code_alone(text):
    """The text with blanks in place of all that is not to be changed."""
    for match in list(NO_CODE.finditer(text)):
        # A literal stays a word, so that what stands beside it does not look like a sign.
        text = blank_out(text, *match.span())
        if match[0][0] in "\"'":
            text = text[:match.start()] + "_" * len(match[0]) + text[match.end():]
    while match := CHECK.search(text):
        end = closing(text, match.end() - 1)
        text = blank_out(text, match.start(), len(text) if end is None else end + 1)
    return text


def changed_numbers(digits):
    """What a constant may become: one up, and one down where that is not below 0. Of a number with
    a fraction the last digit changes."""
    if "." in digits:
        if not digits[-1].isdigit():
            return [digits + "5"]
        return [digits[:-1] + ("8" if digits[-1] == "9" else str(int(digits[-1]) + 1))]
    octal = len(digits) > 1 and digits[0] == "0"
    base = {"x": 16, "b": 2}.get(digits[1:2].lower(), 8 if octal else 10)
    value = int(digits, base)
    write = {16: hex, 8: "0{:o}".format, 2: bin}.get(base, str)
    return [write(number) for number in (value + 1, value - 1) if number >= 0]


def token_changes(code):
    """Kind, start, end and what stands there afterwards."""
    for match in OPERATOR.finditer(code):
        kind = "comparison" if match[0] in COMPARISONS else "operator"
        for new in OPERATORS[match[0]]:
            yield kind, match.start(), match.end(), new
    for match in UNARY.finditer(code):
        yield "sign", match.start(), match.end(), ""
    for match in STEP.finditer(code):
        yield "step", match.start(), match.end(), STEP_TURNED[match[0]]
    for match in WORD.finditer(code):
        yield "constant", match.start(), match.end(), WORD_TURNED[match[0]]
    for match in NUMBER.finditer(code):
        line_start = code.rfind("\n", 0, match.start()) + 1
        if ARRAY_SIZE.match(code[line_start:match.start()]):
            continue
        for new in changed_numbers(match["digits"]):
            yield "constant", match.start(), match.end(), new + match["tail"]


def condition_changes(text, code):
    for match in CONDITION.finditer(code):
        opened = match.end() - 1
        closed = closing(code, opened)
        inside = text[opened + 1:closed or opened]
        if closed and not DECLARATION.search(inside) and not SIMPLE_CONDITION.match(inside):
            yield "condition", opened + 1, closed, f"!({inside})"


def statement_changes(code):
    place = 0
    before = ""
    for line in code.split("\n"):
        match = STATEMENT.match(line.rstrip())
        # A jump out of the body of a function has no statement that could follow it.
        alone = match and match["text"].startswith("return") and len(match["blanks"]) < 8
        if match and not alone and before[-1:] in STATEMENT_MAY_FOLLOW:
            yield "statement", place + match.start("text"), place + match.end("text"), ";"
        before = line.rstrip() or before
        place += len(line) + 1


def find_changes(text):
    """Every change that can be made in the text, in the order of their places."""
    code = code_alone(text)
    found = [*token_changes(code), *condition_changes(text, code), *statement_changes(code)]
    return sorted(Change(start, end, text.count("\n", 0, start) + 1, kind, new)
                  for kind, start, end, new in found)


def make_change(text, change):
    return text[:change.start] + change.new + text[change.end:]


def describe(text, change):
    """The change in one line of text."""
    old = " ".join(text[change.start:change.end].split())
    if change.kind == "statement":
        return f"dropped: {old}"
    return f"{old} -> {' '.join(change.new.split()) or 'nothing'}"


def choose(places, count, seed):
    """So many of the places, pairs of a file and a change, at random: first one of each line, so
    that a table of numbers does not outweigh the code. The same seed gives the same choice."""
    shuffled = sorted(places)
    random.Random(seed).shuffle(shuffled)
    seen = collections.Counter()
    ranked = []
    for place in shuffled:
        line = place[0], place[1].line
        ranked.append((seen[line], place))
        seen[line] += 1
    ranked.sort(key=lambda pair: pair[0])
    chosen = [place for _, place in ranked]
    return sorted(chosen if count is None else chosen[:count])
