#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that the measures of the tests themselves, mutants and coverage, can fail.

Not here: the mutants' own run, which takes a build of each (`./dev mutants`).
"""
import contextlib
import io
import json
import pathlib
import sys
import tempfile
import unittest
from unittest import mock

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))
import coverage_report  # noqa: E402
import mutants  # noqa: E402

CORE_FILE = "genreg/registry_close.cpp"
UNTOLD = (CORE_FILE, "a comment", "// why", "// why not")


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def put(self, path, text):
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(text, encoding="utf-8")


class MutantList(Folder):
    def test_every_mutant_fits_the_sources(self):
        self.assertEqual(mutants.misfits([mutants.CONTROL, *mutants.listed()]), [])

    def test_there_are_enough_of_them(self):
        self.assertGreaterEqual(len(mutants.listed()), 60)

    def test_text_must_stand_there_once(self):
        self.put(CORE_FILE, "int a; int a;\n")
        for text, times in (("int a;", 2), ("int b;", 0)):
            found = mutants.misfits([(CORE_FILE, "a", text, "")], self.root)
            self.assertEqual(found, [f"{CORE_FILE}: a: stands there {times} times"])

    def test_text_that_stays_is_no_mutant(self):
        self.put(CORE_FILE, "int a;\n")
        self.assertEqual(len(mutants.misfits([(CORE_FILE, "a", "int a;", "int a;")], self.root)), 1)

    def test_name_and_file_must_be_there(self):
        self.put(CORE_FILE, "int a;\n")
        row = (CORE_FILE, "a", "int a;", "")
        self.assertEqual(mutants.misfits([row, row], self.root), [f"{CORE_FILE}: a: listed twice"])
        self.assertEqual(len(mutants.misfits([("no/such.cpp", "a", "b", "")], self.root)), 1)


class Stub(mutants.Workshop):
    """A workshop whose builds and tests are answered by the test."""

    builds, noticed = True, None

    def __init__(self, folder):
        super().__init__(folder, "1")
        self.seen = []
        (self.tree / "genreg").mkdir(parents=True)
        (self.tree / CORE_FILE).write_text("x(); // why\n", encoding="utf-8")

    def make(self, *_):
        self.seen.append((self.tree / CORE_FILE).read_text(encoding="utf-8"))
        return self.builds

    def first_failure(self):
        return self.noticed


class MutantRun(Folder):
    def run_one(self, **answers):
        workshop = Stub(self.root)
        for name, value in answers.items():
            setattr(workshop, name, value)
        with contextlib.redirect_stdout(io.StringIO()) as out:
            killed = mutants.try_all(workshop, [UNTOLD])
        self.assertEqual(workshop.seen, ["x(); // why not\n"])
        self.assertEqual((workshop.tree / CORE_FILE).read_text(encoding="utf-8"), "x(); // why\n")
        return killed, out.getvalue()

    def test_noticed_mutant_is_killed(self):
        killed, told = self.run_one(noticed="Suite.Test")
        self.assertEqual(killed, 1)
        self.assertIn("killed   genreg/registry_close.cpp: a comment: Suite.Test", told)

    def test_mutant_that_changes_nothing_is_told_to_survive(self):
        killed, told = self.run_one()
        self.assertEqual(killed, 0)
        self.assertIn(mutants.SURVIVED, told)

    def test_mutant_that_does_not_compile_is_not_killed(self):
        killed, told = self.run_one(builds=False, noticed="Suite.Test")
        self.assertEqual(killed, 0)
        self.assertIn(mutants.UNBUILT, told)

    def test_endless_command_is_killed_and_named(self):
        run = mutants.Command(["sleep", "100"], 0.05, self.root / "log")
        self.assertEqual(run.killer("x"), "x (waits for ever)")

    def test_failed_test_is_named(self):
        line = "[  FAILED  ] Suite.Test, where it says (3 ms)"
        run = mutants.Command(["sh", "-c", f"echo '{line}'; exit 1"], 10, self.root / "log")
        self.assertEqual((run.status, run.killer("x")), (1, "Suite.Test"))

    def test_program_that_dies_is_named(self):
        run = mutants.Command(["sh", "-c", "kill -SEGV $$"], 10, self.root / "log")
        self.assertEqual(run.killer("x"), "x (ended by signal 11)")

    def test_copy_follows_the_sources(self):
        self.put("here/a.cpp", "1")
        self.put("here/b.cpp", "2")
        workshop = mutants.Workshop(self.root / "copy", "1")
        with mock.patch.object(mutants, "ROOT", self.root / "here"):
            workshop.refresh()
            before = (workshop.tree / "a.cpp").stat().st_mtime_ns
            (self.root / "here/b.cpp").unlink()
            workshop.refresh()
        self.assertEqual([path.name for path in workshop.tree.iterdir()], ["a.cpp"])
        self.assertEqual((workshop.tree / "a.cpp").stat().st_mtime_ns, before)


class Coverage(Folder):
    def run_report(self, source, lines, path=CORE_FILE):
        """(exit status, printed text) for one file with (line number, count, branch counts) triples."""
        self.put(path, source)
        rows = [
            {"line_number": number, "count": count, "branches": [{"count": taken} for taken in branches]}
            for number, count, branches in lines
        ]
        self.put("counts.json", json.dumps({"files": [{"file": path, "lines": rows}]}))
        arguments = ["report", str(self.root / "counts.json"), "--root", str(self.root)]
        with mock.patch.object(sys, "argv", arguments), contextlib.redirect_stdout(io.StringIO()) as out:
            return coverage_report.main(), out.getvalue()

    def test_reached_core_passes(self):
        status, told = self.run_report("a\nb\n", [(1, 3, [1, 2]), (2, 1, [])])
        self.assertEqual(status, 0, told)
        self.assertIn("core branches reached or argued 2/2", told)

    def test_branch_of_the_core_that_is_not_reached_fails(self):
        status, told = self.run_report("if (a) b();\n", [(1, 3, [3, 0])])
        self.assertEqual(status, 1)
        self.assertIn(f"{CORE_FILE}:1: 1 of 2 branches not reached: if (a) b();", told)

    def test_line_of_the_core_that_is_not_reached_fails(self):
        lines = [(number, 1, []) for number in range(1, 100)] + [(100, 0, [])]
        status, told = self.run_report("x\n" * 100, lines)
        self.assertEqual(status, 1)
        self.assertIn(f"{CORE_FILE}:100: the line not reached: x", told)

    def test_argument_beside_or_above_the_line_passes(self):
        for source in ("x  // Unreached: why\n", "// Unreached: why\n// it is so\nx\n"):
            status, told = self.run_report(source, [(source.count("\n"), 1, [1, 0])])
            self.assertEqual(status, 0, told)
            self.assertIn("reached or argued 2/2, 1 of them argued", told)

    def test_argument_above_holds_for_the_whole_statement_and_no_further(self):
        source = "z;\n// Unreached: why\nreturn a &&\n       b;\nc;\n"
        self.assertEqual(self.run_report(source, [(4, 1, [1, 0])])[0], 0)
        self.assertEqual(self.run_report(source, [(5, 1, [1, 0])])[0], 1)

    def test_argument_without_a_reason_or_behind_code_does_not_hold(self):
        for source in ("x  // Unreached:\n", "// Unreached: why\ny;\nx\n"):
            self.assertEqual(self.run_report(source, [(source.count("\n"), 1, [1, 0])])[0], 1)

    def test_argument_that_is_not_needed_is_named(self):
        _, told = self.run_report("x  // Unreached: why\n", [(1, 1, [1, 1])])
        self.assertIn(f"{CORE_FILE}:1: all is reached, and needs no argument", told)

    def test_instances_of_a_template_count_together(self):
        status, told = self.run_report("x\n", [(1, 1, [1, 0]), (1, 1, [0, 1])])
        self.assertEqual(status, 0, told)

    def test_branches_outside_of_the_core_are_only_counted(self):
        status, told = self.run_report("x\n", [(1, 1, [1, 0])], "globalreg/match.cpp")
        self.assertEqual(status, 0, told)

    def test_too_few_lines_fail(self):
        lines = [(number, number > 1, []) for number in range(1, 11)]
        status, told = self.run_report("x\n" * 10, lines, "globalreg/match.cpp")
        self.assertEqual(status, 1)
        self.assertIn("fewer than 95.0 %", told)


if __name__ == "__main__":
    unittest.main()
