#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""mutation_test.py: which changes mutation.py makes, which it leaves, and what it does with a change. Programs that the
tests write take the place of the project's test programs, and each is `built` by copying the source into it."""
import contextlib
import io
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from unittest import mock

import mutation
from mutants import mutants


def changes(source):
    return [(mutant.line, mutant.old.strip(), mutant.new.strip()) for mutant in mutants(source)]


class Mutants(unittest.TestCase):
    def test_an_operator_becomes_its_neighbours(self):
        self.assertEqual(changes("if (a < b && c == d) {"),
                         [(1, "<", "<="), (1, "<", ">="), (1, "&&", "||"), (1, "==", "!=")])

    def test_numbers_bools_negations_and_steps_change(self):
        self.assertEqual(changes("if (!ready) i = 0x1F;\nbool on = true;\n++count;"),
                         [(1, "!", ""), (1, "0x1F", "32"), (2, "true", "false"), (3, "++", "--")])

    def test_a_call_is_taken_out_whole(self):
        self.assertEqual(changes("void F() {\n  Close(a,\n        b);\n  lines_.clear();\n}"),
                         [(2, "Close(a,\n        b);", ";"), (4, "lines_.clear();", ";")])

    def test_an_octal_number_is_read_as_one(self):
        self.assertEqual(changes("Create(path, 0'660)"), [(1, "0'660", "433")])

    def test_values_returned_or_assigned_become_empty(self):
        self.assertEqual(changes("  int x = F(a);\n  x_ = y;\n  return Name(x);"),
                         [(1, "F(a)", "{}"), (2, "y", "{}"), (3, "Name(x)", "{}")])

    def test_what_is_empty_or_has_no_type_of_its_own_is_not_emptied(self):
        self.assertEqual(changes('  const auto x = F();\n  return nullptr;\n  return std::nullopt;\n  return "";\n'
                                 "  using X = Y;\n  return;\n  return {};"), [])

    def test_comments_texts_and_preprocessor_lines_stay(self):
        self.assertEqual(changes('// a == b\n#if A == 1\n/* 1 + 1 */ auto t = "a == 1";\nchar c = \'1\';\n'
                                 'static_assert(a == 1);\nauto r = R"(1 + 1)";\n'), [])

    def test_the_brackets_of_a_template_stay(self):
        self.assertEqual(changes("std::map<int, std::vector<int>> x;"), [])

    def test_a_mutant_has_its_one_change(self):
        source = "int x = 1;\nint y = 1;\n"
        self.assertEqual([mutant.apply(source) for mutant in mutants(source)], ["int x = 2;\nint y = 1;\n", "int x = 1;\nint y = 2;\n"])

    def test_a_mutant_is_shown_with_its_line(self):
        self.assertEqual([str(mutant) for mutant in mutants("x;\n  Clear(a);\n")], ["2: Clear(a);: `Clear(a);` -> `;`"])


class Runs(unittest.TestCase):
    """A source `area/x.cpp` of one line, `int x = 1;`, with one change: `1 -> 2`."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.source = self.folder / "area/x.cpp"
        self.source.parent.mkdir()
        self.source.write_text("int x = 1;\n", encoding="utf-8")
        (self.folder / "tests").mkdir()

    def program(self, when_changed):
        """A test program that passes at once, or does `when_changed` if the source has its change."""
        return f'#!/bin/sh\nif grep -q 2 {self.source}; then {when_changed}; fi\n# '

    def built(self, text, changes_program=True, patience=600):
        """Patches what a run asks of the project: one program, with this text and (if told so) the source's."""
        def build(_):
            path = self.folder / "tests/x_test"
            path.write_text(text + (self.source.read_text(encoding="utf-8") if changes_program else ""), encoding="utf-8")
            path.chmod(0o755)
        return mock.patch.multiple(mutation, COPY=self.folder, BUILD=self.folder, PATIENCE=patience, build=build,
                                   test_programs=lambda _: ["tests/x_test"])

    def run_file(self, text, explained=(), **how):
        run = mutation.Run(explained)
        output = io.StringIO()
        with self.built(text, **how), contextlib.redirect_stdout(output):
            run.file(pathlib.Path("area/x.cpp"), mutants("int x = 1;\n"))
        self.assertEqual(self.source.read_text(encoding="utf-8"), "int x = 1;\n")
        return run, output.getvalue()

    def test_a_change_that_fails_a_test_is_noticed(self):
        run, output = self.run_file(self.program("exit 1"))
        self.assertEqual((run.killed, run.survived, output), (1, 0, ""))

    def test_a_change_that_fails_none_has_survived(self):
        run, output = self.run_file(self.program("exit 0"))
        self.assertEqual((run.killed, run.survived), (0, 1))
        self.assertTrue(run.summary().startswith("0 of 1 changes noticed, 0 % "))
        self.assertEqual(output, "survived area/x.cpp:1: int x = 1;: `1` -> `2`\n")

    def test_a_program_that_hangs_is_ended_with_its_children(self):
        pid = self.folder / "pid"
        run, _ = self.run_file(self.program(f"sleep 1000 & echo $! > {pid}; wait"), patience=3)
        self.assertEqual((run.hung, run.killed), (1, 0))
        self.assertEqual(run.summary(), "1 of 1 changes noticed, 100 % (1 by the time limit); 0 explained, "
                                        "0 did not compile, 0 changed nothing")
        state = pathlib.Path(f"/proc/{pid.read_text(encoding='utf-8').strip()}/stat")
        end = time.monotonic() + 30
        while state.exists() and state.read_text(encoding="utf-8").split()[2] != "Z" and time.monotonic() < end:
            time.sleep(0.01)
        self.assertTrue(not state.exists() or state.read_text(encoding="utf-8").split()[2] == "Z")

    def test_a_change_that_leaves_the_program_as_it_was_does_not_count(self):
        run, _ = self.run_file(self.program("exit 0"), changes_program=False)
        self.assertEqual((run.same, run.survived), (1, 0))

    def test_a_change_that_is_explained_is_not_tried(self):
        run, _ = self.run_file(self.program("exit 1"), {("area/x.cpp", "int x = 1;", "1 -> 2"): "why"})
        self.assertEqual((run.excused, run.killed), (1, 0))

    def test_an_explanation_that_fits_no_change_any_more_is_reported(self):
        fits, old, other = (("area/x.cpp", "int x = 1;", "1 -> 2"), ("area/x.cpp", "int x = 3;", "3 -> 4"),
                            ("area/y.cpp", "int x = 3;", "3 -> 4"))
        with mock.patch.object(mutation, "PROJECT", self.folder):
            self.assertEqual(mutation.stale([pathlib.Path("area/x.cpp")], {fits: "", old: "", other: ""}), [old])

    def test_an_explanation_without_its_reason_is_refused(self):
        explained = self.folder / "explained.txt"
        explained.write_text("area/x.cpp\tint x = 1;\t1 -> 2\n", encoding="utf-8")
        with mock.patch.object(mutation, "EXPLAINED", explained), self.assertRaisesRegex(SystemExit, "explained.txt:1"):
            mutation.explanations()

    def test_the_source_is_restored_when_the_run_is_ended(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number=number):
                started = self.folder / "started"
                os.mkfifo(started)
                text = self.program(f"echo > {started}; exec sleep 1000")
                ran = subprocess.Popen([sys.executable, "-c", (
                    "import pathlib, sys\nimport mutation, mutation_test\nfrom mutants import mutants\n"
                    "test = mutation_test.Runs()\ntest.folder = pathlib.Path(sys.argv[1])\n"
                    "test.source = test.folder / 'area/x.cpp'\nmutation.end_by_signals()\n"
                    "with test.built(sys.argv[2]):\n"
                    "  mutation.Run({}).file(pathlib.Path('area/x.cpp'), mutants(test.source.read_text()))\n"),
                    self.folder, text], cwd=pathlib.Path(mutation.__file__).parent, stderr=subprocess.DEVNULL)
                started.read_text(encoding="utf-8")  # waits until the changed program runs
                self.assertIn("2", self.source.read_text(encoding="utf-8"))
                ran.send_signal(number)
                self.assertNotEqual(ran.wait(60), 0)
                self.assertEqual(self.source.read_text(encoding="utf-8"), "int x = 1;\n")
                started.unlink()


if __name__ == "__main__":
    unittest.main()
