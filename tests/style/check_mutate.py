#!/usr/bin/env python3
"""Tests which changes scripts/mutate finds in a text and what they make of it, what it refuses, and
that it leaves nothing running."""

import importlib.machinery
import importlib.util
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

import mutations

SAMPLE = '''\
// In a comment: a < b, 7, true, return;
#include "base/types.h"
#define TWICE(x) \\
    ((x) + (x))

/* Over two lines: a < b
   and 7 again; */
static constexpr i32 table[8] = { 3, 4 };

i32 count_of(const Shape* shape, std::span<const i32> values)
{
    debug_check(shape->size > 0
        && values.size() < 9);
    const char* text = "a < b \\" 7 // true";
    const char mark = '7';
    i32 sum = -1;
    for (i32 i = 0; i < 5; ++i) {
        sum += values[i];
        if (is_odd(values[i])
            && text != nullptr) {
            continue;
        }
        print(text, mark);
    }
    return sum;
}
'''


def load_mutate():
    """The program as a module; its name has no ending."""
    path = str(ROOT / "scripts" / "mutate")
    loader = importlib.machinery.SourceFileLoader("mutate", path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", loader))
    loader.exec_module(module)
    return module


def made(text):
    """What the changes make of a text of one line, by kind."""
    return {(change.kind, mutations.make_change(text, change))
            for change in mutations.find_changes(text)}


def lines_of(text, kind):
    return [change.line for change in mutations.find_changes(text) if change.kind == kind]


class FindChanges(unittest.TestCase):
    def test_leaves_alone_what_is_no_code(self):
        lines = {change.line for change in mutations.find_changes(SAMPLE)}
        self.assertEqual(lines, {8, 16, 17, 18, 19, 20, 21, 23})

    def test_leaves_the_size_of_an_array_alone(self):
        found = [mutations.describe(SAMPLE, change)
                 for change in mutations.find_changes(SAMPLE) if change.line == 8]
        self.assertEqual(found, ["3 -> 2", "3 -> 4", "4 -> 3", "4 -> 5"])
        self.assertIn(("constant", "    values[9] = x;"), made("    values[8] = x;"))

    def test_keeps_the_number_of_lines(self):
        for change in mutations.find_changes(SAMPLE):
            text = mutations.make_change(SAMPLE, change)
            self.assertNotEqual(text, SAMPLE)
            self.assertEqual(text.count("\n"), SAMPLE.count("\n"))

    def test_turns_comparisons_and_moves_them_by_one(self):
        self.assertEqual(made("x = a < b"), {("comparison", "x = a <= b"),
                                             ("comparison", "x = a >= b")})
        self.assertEqual(made("x = a == b"), {("comparison", "x = a != b")})
        self.assertEqual(made("Shared<T> x"), set())
        self.assertEqual(made("template <typename T>"), set())

    def test_turns_operators(self):
        self.assertEqual(made("x = a + b"), {("operator", "x = a - b")})
        self.assertEqual(made("x = a && b"), {("operator", "x = a || b")})
        self.assertEqual(made("x = a << b"), {("operator", "x = a >> b")})
        self.assertEqual(made("x -= b"), {("operator", "x += b")})
        self.assertEqual(made("const Position* pos"), set())
        self.assertEqual(made("x = --a"), {("step", "x = ++a")})

    def test_drops_signs(self):
        self.assertEqual(made("x = -a"), {("sign", "x = a")})
        self.assertEqual(made("return ~a"), {("sign", "return a")})
        self.assertEqual(made("f(a, !b)"), {("sign", "f(a, b)")})
        self.assertEqual(made("p->x"), set())

    def test_moves_constants_by_one(self):
        self.assertEqual(made("x = 0"), {("constant", "x = 1")})
        self.assertEqual(made("x = 7U"), {("constant", "x = 8U"), ("constant", "x = 6U")})
        self.assertEqual(made("x = 0xffULL"), {("constant", "x = 0x100ULL"),
                                               ("constant", "x = 0xfeULL")})
        self.assertEqual(made("x = 0.25f"), {("constant", "x = 0.26f")})
        self.assertEqual(made("x = true"), {("constant", "x = false")})
        self.assertEqual(made("u8 v2"), set())

    def test_negates_conditions(self):
        self.assertIn(("condition", "if (!(f(a) && b)) {"), made("if (f(a) && b) {"))
        self.assertEqual(lines_of(SAMPLE, "condition"), [19])
        self.assertIn("if (!(is_odd(values[i])\n            && text != nullptr)) {", "".join(
            mutations.make_change(SAMPLE, change)
            for change in mutations.find_changes(SAMPLE) if change.kind == "condition"))

    def test_negates_once(self):
        self.assertEqual(made("if (!a) {"), {("sign", "if (a) {")})
        self.assertEqual(made("if (a != b) {"), {("comparison", "if (a == b) {")})

    def test_drops_statements_that_are_no_declarations(self):
        self.assertEqual(lines_of(SAMPLE, "statement"), [18, 21, 23])
        self.assertIn(("statement", "{\n    ;\n"), made("{\n    rec->list[i] = a;\n"))
        self.assertIn(("statement", "{\n        ;\n"), made("{\n        return a;\n"))
        self.assertEqual(lines_of("{\n    i32 x = a;\n    run(a,\n        b);\n", "statement"), [])


class Choose(unittest.TestCase):
    places = [("a.cpp", change) for change in mutations.find_changes(SAMPLE)]

    def test_same_seed_gives_the_same_choice(self):
        first = mutations.choose(self.places, 5, 3)
        self.assertEqual(first, mutations.choose(self.places[::-1], 5, 3))
        self.assertEqual(len(set(first)), 5)
        self.assertNotEqual(first, mutations.choose(self.places, 5, 4))

    def test_takes_every_line_once_before_a_second_change_of_one(self):
        lines = {place[1].line for place in self.places}
        chosen = mutations.choose(self.places, len(lines), 3)
        self.assertEqual({place[1].line for place in chosen}, lines)

    def test_takes_all_where_no_number_is_said(self):
        self.assertEqual(mutations.choose(self.places, None, 3), sorted(self.places))


class Program(unittest.TestCase):
    def test_knows_the_tests_of_recorded_results(self):
        """A name that no test has would let that test count as one of the behaviour."""
        text = (ROOT / "scripts" / "mutate").read_text(encoding="utf-8")
        table = text.partition("RECORDED_TESTS = (")[2].split(")")[0]
        names = re.findall(r'"(\w+)\.(\w+)",', table)
        self.assertGreater(len(names), 3)
        sources = "".join(path.read_text(encoding="utf-8")
                          for path in (ROOT / "tests" / "unit").glob("*.cpp"))
        for suite, test in names:
            self.assertRegex(sources, rf"TEST(_F)?\({suite}, {test}\)")

    def test_compares_stored_results_by_words_that_their_scripts_know(self):
        """Without a program to run they fail, but not at their own arguments."""
        mutate = load_mutate()
        for stage in mutate.stored_stages("Source/search/search.cpp"):
            script, *words = [str(word) for word in stage.command]
            words = [str(ROOT / pathlib.Path(word).relative_to(mutate.TREE))
                     if word.startswith(str(mutate.TREE)) else word for word in words]
            words = ["/bin/false" if word.startswith(str(mutate.BUILD)) else word for word in words]
            script = ROOT / pathlib.Path(script).relative_to(mutate.TREE)
            result = subprocess.run([sys.executable, script, *words], text=True,
                                    capture_output=True, check=False)
            self.assertNotEqual(result.returncode, 0, stage.label)
            self.assertNotIn("usage:", result.stderr, stage.label)

    def test_takes_sources_of_the_engine_alone(self):
        for name in ("README.md", "tests/unit/base_text.cpp", "Source/book/random64.cpp",
                     "Source/none.cpp", "/"):
            result = subprocess.run([ROOT / "scripts" / "mutate", ROOT / name], text=True,
                                    capture_output=True, check=False)
            self.assertEqual(result.returncode, 2, name)
            self.assertIn(" is no source of the engine", result.stderr)

    def test_refuses_a_count_below_one(self):
        for count in ("0", "-1"):
            result = subprocess.run([ROOT / "scripts" / "mutate", "--count", count, "/"], text=True,
                                    capture_output=True, check=False)
            self.assertEqual(result.returncode, 2, count)
            self.assertIn("error: how many changes?", result.stderr)


class Tree(unittest.TestCase):
    """Runs in a small tree of its own, of one source and one test."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = pathlib.Path(folder.name) / "tree"
        shutil.copytree(ROOT / "scripts", self.tree / "scripts")
        self.write("Source/base/sum.cpp", "i32 x = a + b;\n")
        self.write("tests/unit/base_sum.cpp", "TEST(Sum, Adds)\n")
        self.write(".gitignore", "/build/\n__pycache__/\n")
        # A repository around the folder is none of this tree, nor one that a hook has named.
        self.variables = {name: value for name, value in os.environ.items()
                          if not name.startswith("GIT_")}
        self.variables["GIT_CEILING_DIRECTORIES"] = folder.name

    def write(self, name, text):
        path = self.tree / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def git(self, *words):
        if shutil.which("git") is None:
            self.skipTest("git is not installed")
        subprocess.run(["git", "-c", "user.name=x", "-c", "user.email=x@x", *words], check=True,
                       cwd=self.tree, env=self.variables, capture_output=True)

    def commit(self):
        self.git("add", ".")
        self.git("commit", "-q", "-m", "x")

    def check_refusal(self, tree, words, reason):
        result = subprocess.run([tree / "scripts" / "mutate", *words], text=True,
                                capture_output=True, check=False, env=self.variables)
        self.assertEqual(result.returncode, 2)
        self.assertRegex(result.stderr, rf"\Amutate: .*{reason}.*\n\Z")

    def test_refuses_to_run_outside_of_git(self):
        for words in (["--changed"], [self.tree / "Source"]):
            self.check_refusal(self.tree, words, "not a git repository|No such file.*'git'")

    def test_refuses_to_compare_without_an_earlier_commit(self):
        self.git("init", "-q")
        self.commit()
        self.check_refusal(self.tree, ["--changed"], "none before it is known here")
        self.write("Source/base/sum.cpp", "i32 x = a - b;\n")
        self.commit()
        shallow = self.tree.parent / "shallow"
        self.git("clone", "-q", "--depth", "1", f"file://{self.tree}", shallow)
        self.check_refusal(shallow, ["--changed"], "none before it is known here")

    def test_leaves_no_compiler_behind_where_a_build_is_interrupted(self):
        self.git("init", "-q")
        self.commit()
        cmake = self.tree / "build" / "bin" / "cmake"
        self.write("build/bin/cmake", (ROOT / "tests/style/slow_cmake.py").read_text("utf-8"))
        cmake.chmod(0o755)
        self.variables["PATH"] = f"{cmake.parent}:{self.variables['PATH']}"
        for number in (signal.SIGINT, signal.SIGTERM):
            job = cmake.with_name("job")
            job.unlink(missing_ok=True)
            words = [self.tree / "scripts" / "mutate", self.tree / "Source"]
            with subprocess.Popen(words, env=self.variables, stdout=subprocess.PIPE,
                                  text=True) as process:
                self.addCleanup(process.kill)
                end = time.monotonic() + 20
                while not job.exists() and time.monotonic() < end:
                    time.sleep(0.05)
                process.send_signal(number)
                self.assertIn("0 of 1 changes", process.communicate(timeout=15)[0])
            with self.assertRaises(ProcessLookupError):
                os.kill(int(job.read_text("utf-8")), signal.SIGKILL)


class EndProcess(unittest.TestCase):
    def test_ends_what_ignores_the_first_signal(self):
        mutate = load_mutate()
        mutate.process_groups.MANNERS_SECONDS = 0.3
        words = ["sh", "-c", "trap '' TERM; echo; sleep 60; sleep 60"]
        with subprocess.Popen(words, stdout=subprocess.PIPE, start_new_session=True) as process:
            process.stdout.readline()
            mutate.process_groups.end_group(process)
            self.assertEqual(process.returncode, -signal.SIGKILL)
            # The end of the output: nobody of the group is left to hold it open.
            self.assertEqual(process.stdout.read(), b"")


if __name__ == "__main__":
    unittest.main()
