"""The floors of Source, and what its files include.

One table for everything that looks at the house: tests/style/check_includes.py,
tests/style/check_links.py and scripts/draw_house. A folder includes itself and the floors below
it; folders of one floor stand side by side and know nothing of each other. A folder within a
folder counts as the outer one.
"""

import re

# From the ground up.
FLOORS = (
    ("base",),
    ("board",),
    ("eval", "fathom", "book"),
    ("search",),
    ("shell",),
    ("tools",),
    ("main",),
    ("host", "data"),
)

HEIGHT = {folder: height for height, floor in enumerate(FLOORS) for folder in floor}

INCLUDE = re.compile(r'#include "([^"]+)"')
PARTS = (".cpp", ".h", ".def")


def may_use(folder, other):
    """Whether files of folder may include files of the other one, and call what they define."""
    return folder == other or HEIGHT.get(other, len(FLOORS)) < HEIGHT.get(folder, -1)


def source_files(source):
    """The files below source, as paths."""
    return sorted(path for path in source.rglob("*") if path.suffix in PARTS)


def folder_of(name):
    return name.split("/")[0]


def module_of(name):
    """A header, its source file and its table of the same name are one module."""
    return name.rsplit(".", 1)[0]


def read_includes(source, path):
    """What path includes of source: pairs of line number and name, as written there."""
    lines = path.read_text(encoding="utf-8").splitlines()
    matches = ((number, INCLUDE.match(line)) for number, line in enumerate(lines, 1))
    return [(number, match.group(1)) for number, match in matches if match]


def module_graph(source):
    """For each module below source the set of other modules that it includes."""
    graph = {}
    for path in source_files(source):
        module = module_of(path.relative_to(source).as_posix())
        targets = {module_of(name) for _, name in read_includes(source, path)}
        graph.setdefault(module, set()).update(targets - {module})
    return graph


def reach(graph, start):
    """What can be come to from start, each with the one before it on a shortest way."""
    before, ends = {}, [start]
    for module in ends:
        for target in sorted(graph.get(module, ())):
            if target not in before:
                before[target] = module
                ends.append(target)
    return before


def find_circles(graph):
    """The sets of modules that include one another in a circle, however long: for each set its
    number of modules and a shortest way round, as text."""
    ways = {start: reach(graph, start) for start in graph}
    circles, met = [], set()
    for start in sorted(graph):
        members = {other for other in ways[start] if start in ways.get(other, ())}
        if start in met or not members:
            continue
        met |= members
        way = [start]
        while len(way) == 1 or way[-1] != start:
            way.append(ways[start][way[-1]])
        circles.append((len(members), " -> ".join(reversed(way))))
    return circles
