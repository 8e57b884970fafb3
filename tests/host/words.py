#!/usr/bin/env python3
"""The words of vesk-uci's command line, said to the real program: what they print, to which stream,
and with which status the process ends.

    words.py VESK_UCI VESK ROOT [--quick]

VESK is the engine alone of the same build, ROOT the top of the tree. With --quick, for builds that
are slow or watched over, nothing long is run and the process is left what it needs of the system.
Prints what is wrong; status 1 if anything is.
"""

import json
import os
import pathlib
import pty
import re
import shutil
import subprocess
import sys
import tempfile
import time

PATIENCE = 60 * float(os.environ.get("VESK_TIMEOUT_FACTOR", "1"))
TOTALS = re.compile(r"(\d+) nodes (\d+) nps")

complaints = []


def expect(condition, text):
    if not condition:
        complaints.append(text)


def run(program, *words, folder=None, **more):
    return subprocess.run([program, *words], cwd=folder, stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=PATIENCE, check=False, **more)


# ---- Words that are short to say


def check_version(program, root):
    result = run(program, "--version")
    expect(result.returncode == 0 and result.stderr == "", f"--version: {result}")
    pattern = (r"Vesk \d+\.\d+\ncompiler {9}(GCC|Clang) \d.*\nprocessor level  \S+\n"
               r"commit {11}(\S+)\n")
    match = re.fullmatch(pattern, result.stdout)
    expect(match, f"--version: {result.stdout!r}")
    if (root / ".git").exists() and match and shutil.which("git"):
        expect(match[2] != "unknown", "--version: the commit is unknown in a tree of git's")


def check_refusals(program):
    for words in (["bnech"], ["--tables", "x"], ["-c"], [""], ["--version", "now"], ["bench", "x"],
                  ["bench", "3", "3"], ["doctor", "here"], ["doctor", "--tables"]):
        result = run(program, *words)
        expect(result.returncode == 2 and result.stdout == "", f"{words}: {result}")
        expect(re.fullmatch(r"vesk-uci: .+\nTry: vesk-uci --help\n", result.stderr),
               f"{words}: {result.stderr!r}")
    result = run(program, "--help")
    expect(result.returncode == 0 and "doctor" in result.stdout, f"--help: {result}")


def check_full_disk(program):
    """The disk is named also where lines were written long before the end, as by the benchmark."""
    for words in (["--version"], ["--help"], ["bench", "1"]):
        with open("/dev/full", "w", encoding="ascii") as full:
            result = subprocess.run([program, *words], stdout=full, stderr=subprocess.PIPE,
                                    text=True, timeout=PATIENCE, check=False)
        expect(result.returncode == 1 and result.stderr
               == "standard output: cannot be written: No space left on device\n",
               f"{words} to a full disk: {result}")


# ---- The benchmark


def bench_nodes(program, *words, folder):
    """Nodes by the last line, which must agree with the engine's own."""
    result = run(program, "bench", *words, folder=folder)
    lines = result.stdout.splitlines()
    match = TOTALS.fullmatch(lines[-1]) if lines else None
    expect(result.returncode == 0 and match, f"bench {words}: {result}")
    if not match:
        return None
    own = re.search(r"nodes= (\d+), nps= (\d+)", result.stdout)
    expect(own and own.groups() == match.groups(), f"bench {words}: {result.stdout}")
    expect(sum(line.startswith("pos ") for line in lines) == 20, f"bench {words}: {result.stdout}")
    return int(match[1])


def engine_nodes(engine, depth, folder):
    result = run(engine, "-d", str(depth), "-threads", "1", "-bench", folder=folder)
    return int(re.search(r"nodes= (\d+)", result.stdout)[1])


def check_bench(program, engine, root, folder, quick):
    nodes = bench_nodes(program, "3", folder=folder)
    expect(nodes == engine_nodes(engine, 3, folder), f"bench 3: {nodes} nodes")
    expect(bench_nodes(program, "4", folder=folder) != nodes, "the depth changes nothing")
    if not quick:
        signature = int((root / "bench/signature.txt").read_text(encoding="ascii"))
        nodes = bench_nodes(program, folder=folder)
        expect(nodes == signature, f"bench: {nodes} nodes, the signature is {signature}")


def check_bench_with_weights(program, engine, folder):
    """A file of weights in the folder is told of, and changes the nodes as it does the engine's."""
    before = bench_nodes(program, "3", folder=folder)
    weights = folder / "params.txt"
    weights.write_text('fset("mtl_pawn",300,20);\n', encoding="ascii")
    result = run(program, "bench", "3", folder=folder)
    after = bench_nodes(program, "3", folder=folder)
    expect(after not in (before, None) and after == engine_nodes(engine, 3, folder),
           f"weights: {before} nodes without, {after} with them")
    expect("params.txt in this folder is in use: 1 of 913 weights" in result.stdout, result.stdout)
    doctor = run(program, "doctor", folder=folder)
    expect("1 of 913 weights are not Vesk's own" in doctor.stdout, doctor.stdout)
    expect("wrong  It sets 1 weights" in doctor.stdout and doctor.returncode == 1, doctor.stdout)
    weights.unlink()


def children_of(pid):
    try:
        text = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii")
    except OSError:
        return []
    return [int(word) for word in text.split()]


def is_alive(pid):
    try:
        status = pathlib.Path(f"/proc/{pid}/stat").read_text(encoding="ascii")
    except OSError:
        return False
    return status.rsplit(")", 1)[1].split()[0] not in "ZX"


def check_bench_killed(program, folder):
    """The engine in the child ends with the process that was killed."""
    process = subprocess.Popen([program, "bench", "40"], cwd=folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE)
    process.stdout.readline()
    children = children_of(process.pid)
    expect(len(children) == 1, f"a benchmark has the children {children}")
    process.kill()
    process.wait()
    process.stdout.close()
    deadline = time.monotonic() + PATIENCE
    while any(is_alive(child) for child in children) and time.monotonic() < deadline:
        time.sleep(0.05)
    expect(not any(is_alive(child) for child in children), "the benchmark's child lives on")


# ---- The doctor


def doctor(program, *words, folder, **more):
    result = run(program, "doctor", *words, folder=folder, **more)
    wrong = len(re.findall(r"^  wrong  ", result.stdout, re.MULTILINE))
    expect(result.stderr == "", f"doctor {words}: {result.stderr}")
    expect(result.returncode == (1 if wrong else 0), f"doctor {words}: {result}")
    last = result.stdout.splitlines()[-1] if result.stdout else ""
    wanted = ("All is well." if wrong == 0 else "1 thing is wrong, marked above." if wrong == 1
              else f"{wrong} things are wrong, marked above.")
    expect(last == wanted, f"doctor {words} ends with {last!r}, not {wanted!r}")
    expect("\033" not in result.stdout, f"doctor {words}: colours in a pipe")
    return result.stdout


def check_doctor(program, folder):
    text = doctor(program, folder=folder)
    for heading in ("Processor", "Memory", "Processors in use", "Clocks", "Evaluation",
                    "What to put into a chess program"):
        expect(f"\n\n{heading}\n" in text, f"doctor has no heading {heading!r}: {text}")
    for name, pattern in (("Program", re.escape(os.path.realpath(program))), ("Threads", r"\d+"),
                          ("Hash", r"\d+"), ("Move Overhead", r"\d+"), ("SyzygyPath", ".+")):
        expect(re.search(rf"^ +{name} +{pattern}$", text, re.MULTILINE), f"no {name}: {text}")
    expect("Vesk plays with its own weights" in text, text)


def check_tables(program, data, folder):
    tables = data / "syzygy"
    text = doctor(program, "--tables", str(tables), folder=folder)
    results = {2 + sum(letter in "QRBNP" for letter in path.stem) for path in tables.glob("*.rtbw")}
    expect(max(results) >= 4, "the tables of the tests are others")
    expect("Vesk finds 23 tables there." in text, text)
    expect(re.search(r"^ +3 +5 of +5 .* 5 of +5 ", text, re.MULTILINE), text)
    expect("wrong  Of the results for 4 pieces 12 are missing: KQQvK.rtbw, " in text, text)
    expect("note   There are no distances for 5 pieces." in text, text)
    expect(re.search(rf"^ +SyzygyPath +{re.escape(str(tables))}$", text, re.MULTILINE), text)
    # Paths that are none.
    (folder / "file").write_bytes(b"")
    (folder / "outer/inner").mkdir(parents=True)
    (folder / "outer/inner/KQvK.rtbw").write_bytes(b"")
    for path, words in (("nowhere", "there is no such folder"), ("file", "is a file"),
                        ("a;b", "parted by a colon"), (":", "There are no endgame tables"),
                        ("outer", "outer/inner holds tables too"),
                        ("outer/inner", "KQvK.rtbw (empty)"), ("x" * 9000, "too long")):
        text = doctor(program, f"--tables={path}", folder=folder)
        expect(words in text, f"--tables {path[:20]}: {text}")
    if os.geteuid() != 0:
        (folder / "outer").chmod(0)
        text = doctor(program, "--tables", "outer", folder=folder)
        (folder / "outer").chmod(0o700)
        expect("you may not read this folder" in text, text)


def check_books(program, data, folder):
    book = data / "small.bin"
    text = doctor(program, "--book", str(book), folder=folder)
    expect(f"ok     {book} is in order: " in text, text)
    expect(re.search(rf"^ +OwnBook_File +{re.escape(str(book))}$", text, re.MULTILINE), text)
    good = book.read_bytes()
    (folder / "cut.bin").write_bytes(good[:-3])
    (folder / "mixed.bin").write_bytes(good[-16:] + good)
    text = doctor(program, "--book", "cut.bin", "--book=mixed.bin", folder=folder)
    expect("was not copied to its end" in text, text)
    expect("is not in order from entry 2 on" in text, text)
    for name, words in (("none.bin", "No such file"), (".", "no file that could hold a book"),
                        ("/dev/null", "no file that could hold a book")):
        expect(words in doctor(program, "--book", name, folder=folder), f"--book {name}")


def at_terminal(program, columns, folder, **environment):
    """What the doctor prints at a terminal of so many columns."""
    parent, child = pty.openpty()
    subprocess.run(["stty", "cols", str(columns)], stdin=child, check=True)
    process = subprocess.Popen([program, "doctor", "--tables", "."], cwd=folder, stdin=child,
                               stdout=child, stderr=child,
                               env={**os.environ, "TERM": "xterm", **environment})
    os.close(child)
    text = b""
    while True:
        try:
            block = os.read(parent, 4096)
        except OSError: # the other end is closed
            break
        if not block:
            break
        text += block
    os.close(parent)
    process.wait(timeout=PATIENCE)
    return text.decode()


def check_terminal(program, folder):
    text = at_terminal(program, 50, folder)
    expect("\033[1mMemory\033[0m" in text, f"no colours at a terminal: {text!r}")
    plain = at_terminal(program, 50, folder, NO_COLOR="1")
    expect("\033" not in plain, f"colours in spite of NO_COLOR: {plain!r}")
    headings = plain.split("What to put")[0].split("\r\n")
    long = [line for line in headings if len(line) > 50 and not line.startswith("Vesk ")
            and "pieces" not in line and " of " not in line and len(max(line.split(), key=len)) < 40]
    expect(not long, f"lines are not broken at a terminal: {long}")


def check_odd_places(program, folder, quick):
    """In a folder that has gone, and without what the system tells of itself."""
    gone = folder / "gone"
    gone.mkdir()
    text = subprocess.run(["sh", "-c", 'cd gone && rmdir ../gone && exec "$0" doctor', program],
                          cwd=folder, capture_output=True, text=True, timeout=PATIENCE, check=False)
    expect(text.returncode in (0, 1) and "What to put" in text.stdout, f"gone: {text}")
    if quick:
        return
    hide = "mount -t tmpfs none /proc && mount -t tmpfs none /sys && "
    if subprocess.run(["unshare", "-rm", "sh", "-c", hide + "true"], capture_output=True,
                      check=False).returncode != 0:
        print("without /proc: left out, it cannot be hidden here")
        return
    result = subprocess.run(["unshare", "-rm", "sh", "-c", hide + 'exec "$0" doctor', program],
                            cwd=folder, capture_output=True, text=True, timeout=PATIENCE,
                            check=False)
    expect(result.returncode == 0, f"without /proc: {result}")
    expect("does not say how much memory is free" in result.stdout, result.stdout)
    expect(os.path.realpath(program) in result.stdout, result.stdout)


def check_old_processor(program):
    """Every way to start the program says what is wrong, on an emulated processor."""
    emulator = shutil.which("qemu-x86_64")
    level = run(program, "--version").stdout.split("processor level")[1].split()[0]
    if not emulator or level != "x86-64-v3":
        print("an older processor: left out, without its emulator or for another level")
        return
    for words in ([], ["bench", "1"], ["--version"]):
        result = run(emulator, "-cpu", "Nehalem", program, *words)
        expect(result.returncode == 1, f"on an older processor: {result}")
        sentence = "vesk-uci: this program is built for newer processors than this one"
        expect(sentence in result.stderr and "make ARCH=x86-64-v2" in result.stderr, f"{result}")
        expect(result.stdout == f"info string {result.stderr}", f"{result}")


# ---- Distributed tests


def check_openbench(root):
    """What the page says, and what "make" would do for a worker of the test system."""
    page = (root / "docs/openbench.md").read_text(encoding="utf-8")
    blocks = re.findall(r"```json\n(.*?)```", page, re.DOTALL)
    expect(len(blocks) == 1, "docs/openbench.md holds one configuration")
    for block in blocks:
        config = json.loads(block)
        expect(set(config) == {"private", "nps", "source", "build", "test_presets"}, f"{set(config)}")
        expect(set(config["build"]) == {"path", "compilers", "cpuflags", "systems"}, f"{config}")
    signature = (root / "bench/signature.txt").read_text(encoding="ascii").strip()
    expect(f"Bench: {signature}" in page, "docs/openbench.md has another signature")
    environment = {name: value for name, value in os.environ.items()
                   if name not in ("CC", "CXX", "MAKEFLAGS", "MFLAGS", "MAKELEVEL")}
    for words, compiler in ((["CC=g++"], "g++"), (["CXX=clang++"], "clang++"),
                            (["CC=gcc-12"], "g++-12"), (["CC=/usr/bin/clang-15"],
                                                        "/usr/bin/clang++-15"),
                            (["CC=gcc", "CXX=clang++-14"], "clang++-14"), ([], None)):
        result = subprocess.run(["make", "-n", "-j", "EXE=/x/name", *words], cwd=root,
                                env=environment, capture_output=True, text=True, check=False)
        found = re.search(r"-DCMAKE_CXX_COMPILER='(.*?)'", result.stdout)
        expect(result.returncode == 0 and "vesk-uci '/x/name'" in result.stdout, f"{result}")
        expect((found[1] if found else None) == compiler, f"make {words}: {result.stdout}")


def main():
    program, engine, root = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
    quick = "--quick" in sys.argv[4:]
    data = root / "tests/data"
    with tempfile.TemporaryDirectory(prefix="vesk_words_") as name:
        folder = pathlib.Path(name).resolve()
        check_version(str(program), root)
        check_refusals(str(program))
        check_full_disk(str(program))
        check_bench(str(program), str(engine), root, folder, quick)
        check_bench_with_weights(str(program), str(engine), folder)
        check_bench_killed(str(program), folder)
        check_doctor(str(program), folder)
        check_tables(str(program), data, folder)
        check_books(str(program), data, folder)
        check_terminal(str(program), folder)
        check_odd_places(str(program), folder, quick)
    if not quick:
        check_old_processor(str(program))
    check_openbench(root)
    for text in complaints:
        print(text)
    print(f"{len(complaints)} complaints")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
