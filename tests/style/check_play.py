#!/usr/bin/env python3
"""Starts scripts/play in a small tree whose makefile calls CMake as the real one does: a build
shows its steps, a start without a build shows nothing but the program's own words and installs
nothing, whatever the build can do without is missing, a build that fails shows its errors, and arguments, input and status reach the program and come back.

    check_play.py ROOT

Prints what is wrong; status 1 if anything is.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

MAKEFILE = """\
vesk:
\tcmake -S . -B build && cmake --build build
\tcp -f build/vesk vesk
.PHONY: vesk
"""
CMAKE = """\
cmake_minimum_required(VERSION 3.21)
project(Small LANGUAGES CXX)
add_executable(vesk main.cpp)
"""
PROGRAM = """\
#include <cstdio>
int main(int argc, char** argv)
{
    int letter = getchar();
    printf("%d %s %c\\n", argc, argv[1], letter);
    return 7;
}
"""

# A compiler that finds no header, and what would install the packages of some.
TOOLS = {
    "g++": "#!/bin/sh\ncase \" $* \" in *' -E '*) exit 1 ;; esac\nexec {compiler} \"$@\"\n",
    "apt-get": "#!/bin/sh\necho \"$@\" >>{calls}\n",
    "sudo": "#!/bin/sh\necho \"$@\" >>{calls}\n",
}

wrong = []


def play(root, tools=None):
    # As from a shell, not from below a "make test" with words of its own.
    surroundings = {name: value for name, value in os.environ.items() if "MAKE" not in name}
    if tools is not None:
        surroundings["PATH"] = f"{tools}:{surroundings['PATH']}"
    return subprocess.run([root / "scripts" / "play", "two words"], input="x",
                          cwd=root / "elsewhere", env=surroundings,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def expect(true, text, result):
    if not true:
        wrong.append(f"{text}: status {result.returncode}\n"
                     f"  output: {result.stdout!r}\n  errors: {result.stderr!r}")


def plays(result):
    return (result.returncode, result.stdout) == (7, "2 two words x\n")


def make_tools(folder):
    folder.mkdir()
    for name, text in TOOLS.items():
        tool = folder / name
        tool.write_text(text.format(compiler=shutil.which("g++"), calls=folder / "calls"))
        tool.chmod(0o755)


def main():
    source = pathlib.Path(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        (root / "scripts").mkdir()
        (root / "elsewhere").mkdir()
        for name in ("play", "build_quietly", "install_missing"):
            shutil.copy(source / "scripts" / name, root / "scripts")
        (root / "Makefile").write_text(MAKEFILE)
        (root / "CMakeLists.txt").write_text(CMAKE)
        (root / "main.cpp").write_text(PROGRAM)

        first = play(root)
        lines = first.stderr.splitlines()
        expect(plays(first) and len(lines) == 2
               and "Building" in lines[0] and "Linking" in lines[1],
               "a build does not show its two steps and nothing else", first)

        second = play(root)
        expect(plays(second) and second.stderr == "",
               "a start without a build is not quiet", second)

        make_tools(root / "tools")
        lacking = play(root, root / "tools")
        expect(plays(lacking) and lacking.stderr == "" and not (root / "tools" / "calls").exists(),
               "a start without packages that a build can do without is not quiet", lacking)

        (root / "main.cpp").write_text("int main() { return lost; }\n")
        third = play(root)
        expect(third.returncode == 1 and third.stdout == "" and "lost" in third.stderr
               and third.stderr.endswith("Vesk could not be built; the lines above tell why.\n"),
               "a failed build does not say why", third)
    print("\n".join(wrong + [f"4 starts, {len(wrong)} complaints"]))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
