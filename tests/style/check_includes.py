#!/usr/bin/env python3
"""Checks the rules of the source tree that a compiler does not know: which folder may include
what, files in no circle, headers that stand alone, standard names whose header is named, calls
that are not used here, and build lists without gaps.

    check_includes.py ROOT COMPILER

Prints every violation as FILE:LINE: TEXT. Status 1 if there is one. Which folder stands above
which is told by scripts/floors.py.
"""

import concurrent.futures
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))

import floors
import standard_names

NO_CONTAINERS = "no library containers or streams"

# Folders that keep what they hear or collect in containers: they are on the path of no search.
COLLECTORS = ("host", "data", "tools/selfplay")

# What the engine does without, and why.
BANNED = (
    (re.compile(r"\b(strcpy|strcat|sprintf|vsprintf|strncpy|gets)\s*\("),
     "unbounded copy: use snprintf or copy_text"),
    (re.compile(r"scanf\s*\([^;]*%s"), "unbounded %s"),
    (re.compile(r"#include <(string|vector|(unordered_)?(map|set)|(forward_)?list|deque|queue|stack|"
                r"functional|memory|regex|iostream|istream|ostream|sstream|fstream)>"),
     NO_CONTAINERS),
    (re.compile(r"\b(try|catch|throw|dynamic_cast|typeid)\b\s*[({<]"), "built without exceptions"),
    (re.compile(r"^\s*class\s+\w+"), "plain records only"),
    (re.compile(r"\bNDEBUG\b"), "assertions stay in every build"),
)
MARKS = re.compile(r"\b(TO" r"DO|FIX" r"ME|XX" r"X|HA" r"CK)\b")

violations = []


def report(path, number, text):
    violations.append(f"{path}:{number}: {text}")


def without_text(line):
    """The line without string literals and comments, so that words in them do not count."""
    return re.sub(r"//.*", "", re.sub(r'"(\\.|[^"\\])*"', '""', line))


def check_include(source, path, number, name):
    folder = floors.folder_of(path.relative_to(source).as_posix())
    target = floors.folder_of(name)
    if not (source / name).is_file():
        report(path, number, f"{name} is not found from the include root")
    elif not floors.may_use(folder, target):
        place = "above" if floors.HEIGHT.get(target) != floors.HEIGHT.get(folder) else "beside"
        report(path, number, f"{name}: {target} stands {place} {folder}")


def check_source(source, path):
    lines = path.read_text(encoding="utf-8").splitlines()
    includes = floors.read_includes(source, path)
    for number, name in includes:
        check_include(source, path, number, name)
    for number, line in enumerate(lines, 1):
        code = line if line.startswith("#include <") else without_text(line)
        for pattern, reason in BANNED:
            if reason == NO_CONTAINERS and path.parent.relative_to(source).as_posix() in COLLECTORS:
                continue
            # The format of a scanf stands in a literal.
            text = line if "scanf" in pattern.pattern else code
            if pattern.search(text):
                report(path, number, reason)
    own = path.with_suffix(".h")
    if path.suffix == ".cpp" and own.is_file():
        if not includes or includes[0][1] != own.relative_to(source).as_posix():
            report(path, 1, "its own header is not included first")
    if path.suffix == ".h" and "#pragma once" not in lines:
        report(path, 1, "no #pragma once")
    if lines and not lines[0].startswith("//"):
        report(path, 1, "does not open with what it holds")


def check_text(path):
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if len(line) > 100:
            report(path, number, f"{len(line)} columns")
        if "\t" in line or line != line.rstrip():
            report(path, number, "tab or trailing blank")
        if MARKS.search(line):
            report(path, number, "unfinished work is not marked in sources")


def check_standard_names(path):
    text = path.read_text(encoding="utf-8")
    own = path.with_suffix(".h")
    own_text = own.read_text(encoding="utf-8") if own != path and own.is_file() else ""
    code = [without_text(line) for line in text.splitlines()]
    for number, complaint in standard_names.missing_headers(text, own_text, code):
        report(path, number, complaint)


def check_alone(source, compiler, path):
    """Compiles a header with nothing in front of it. Where a source file of the same name stands,
    the build does that: it includes its header first."""
    name = path.relative_to(source).as_posix()
    with tempfile.NamedTemporaryFile("w", suffix=".cpp") as file:
        file.write(f'#include "{name}"\n')
        file.flush()
        result = subprocess.run(
            [compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
             '-DVESK_VERSION=""', f"-I{source}", file.name], capture_output=True, text=True)
    if result.returncode != 0:
        report(path, 1, "does not compile on its own\n" + result.stderr)


def check_list(root, listing, files):
    text = (root / listing).read_text(encoding="utf-8")
    for path in files:
        name = path.relative_to((root / listing).parent).as_posix()
        if not re.search(rf"(^|\s){re.escape(name)}(\s|\)|$)", text):
            report(path, 1, f"is not in {listing}")


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    compiler = sys.argv[2]
    source = root / "Source"
    engine = floors.source_files(source)
    for folder in sorted({path.relative_to(source).parts[0] for path in engine}):
        if folder not in floors.HEIGHT:
            report(source / folder, 1, "stands on no floor of scripts/floors.py")
    for path in engine:
        check_source(source, path)
    for count, way in floors.find_circles(floors.module_graph(source)):
        report(source, 1, f"{count} modules include one another in a circle: {way}")
    others = [path for folder in ("tests/unit", "tests/tune", "tests/endings", "tests/exactness",
                                  "fuzz", "bench")
              for path in sorted((root / folder).glob("*")) if path.suffix in (".cpp", ".h")]
    for path in engine + others:
        check_text(path)
        check_standard_names(path)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        headers = [path for path in engine
                   if path.suffix == ".h" and not path.with_suffix(".cpp").is_file()]
        list(pool.map(lambda path: check_alone(source, compiler, path), headers))
    check_list(root, "CMakeLists.txt", [path for path in engine if path.suffix == ".cpp"])
    check_list(root, "tests/CMakeLists.txt", sorted((root / "tests/unit").glob("*.cpp"))
               + sorted((root / "tests/tune").glob("*.cpp")))
    for text in violations:
        print(text)
    print(f"{len(engine)} files of the engine, {len(violations)} violations")
    return 1 if violations else 0


if __name__ == "__main__":
    sys.exit(main())
