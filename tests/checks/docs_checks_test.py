#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that the checks of pages and examples fail on what they are there to find."""
import pathlib
import shutil
import sys
import unittest
from unittest import mock

import man_pages_test
from checks_test import ROOT, Tree

sys.path.insert(0, str(ROOT / "tests/consumer"))
import every_name_check  # noqa: E402
import page_examples  # noqa: E402

CPP = "// SPDX-License-Identifier: Apache-2.0\nint main() {}\n"


class PageExamples(Tree):
    def setUp(self):
        super().setUp()
        self.put("docs/examples/a.cpp", CPP)
        self.put("docs/examples/a.out", "1\n")
        self.page("a.cpp", "a.out")
        self.assertEqual(self.run_main(page_examples, "--root", self.root)[0], 0)

    def page(self, *names):
        blocks = [f"<!-- file: {name} -->\n```text\n```\n" for name in names]
        self.put("docs/programming.md", "# Page\n\n" + "\n".join(blocks))

    def judge(self):
        return self.run_main(page_examples, "--check", "--root", self.root)

    def test_a_page_that_shows_the_files_passes(self):
        self.assertEqual(self.judge()[0], 0)
        text = (self.root / "docs/programming.md").read_text()
        self.assertIn("```cpp\nint main() {}\n```", text)

    def test_a_file_that_has_changed_is_found(self):
        self.put("docs/examples/a.cpp", CPP + "// more\n")
        status, out = self.judge()
        self.assertEqual(status, 1)
        self.assertIn("differs from the page: a.cpp", out)

    def test_a_file_that_the_page_does_not_show_is_found(self):
        self.put("docs/examples/b.cpp", CPP)
        status, out = self.judge()
        self.assertEqual(status, 1)
        self.assertIn("not in the page: b.cpp", out)
        self.assertIn("without an expected output: b.cpp", out)

    def test_a_file_that_is_not_there_is_found(self):
        self.page("a.cpp", "a.out", "c.cpp")
        self.assertIn("no such file: c.cpp", self.judge()[1])


class EveryName(unittest.TestCase):
    NAMES = {"_Z1av": "a()", "_Z1bv": "b()", **every_name_check.UNREACHABLE}

    def test_all_names_called_is_right(self):
        self.assertEqual(every_name_check.judge(self.NAMES, {"_Z1av", "_Z1bv"}), [])

    def test_a_name_that_is_not_called_is_found(self):
        self.assertEqual(every_name_check.judge(self.NAMES, {"_Z1bv"}), ["not called: _Z1av  a()"])

    def test_a_name_that_is_in_no_list_is_found(self):
        self.assertEqual(
            every_name_check.judge(self.NAMES, {"_Z1av", "_Z1bv", "_Z1cv"}), ["not listed: _Z1cv"]
        )

    def test_an_exception_that_is_called_after_all_is_found(self):
        called = {"_Z1av", "_Z1bv", *every_name_check.UNREACHABLE}
        self.assertEqual(len(every_name_check.judge(self.NAMES, called)), 1)


class ManPages(unittest.TestCase):
    HELP = (
        "Nouns:\n  profile    a file (NAME)\n\nVerbs of every noun:\n  list     all\n\n"
        "Other verbs:\n  where    which\n\nOptions (anywhere):\n  -q, --quiet    no reports\n\n"
        "Exit status: 0 done, 1 not found,\n  2 usage\n\nFields:\n  name   text\n  value  text\n"
    )
    PAGE = (
        "# NOUNS\n\n*profile*\n\tA file. Key: _name_. Other fields: *value*.\n\n# VERBS\n\n*list*\n\tAll.\n\n"
        "*where*\n\tWhich.\n\n# OPTIONS\n\n*-q*, *--quiet*\n\tNo reports.\n\n"
        "# EXIT STATUS\n\n*0*\n\tDone.\n\n*1*\n\tNot found.\n\n*2*\n\tUsage.\n"
    )

    def judge(self, page, shown=None):
        with mock.patch.object(man_pages_test, "text_of", return_value=page):
            with mock.patch.object(man_pages_test, "help_of", return_value=shown or self.HELP):
                return man_pages_test.compare_help(pathlib.Path("vrxreg"))

    def test_a_page_that_agrees_passes(self):
        self.assertEqual(self.judge(self.PAGE), [])

    def test_what_the_page_leaves_out_is_found(self):
        for words in ("*profile*", "*list*", "*where*", "*--quiet*", "*-q*", "*2*", "*value*", "_name_"):
            self.assertNotEqual(self.judge(self.PAGE.replace(words, "")), [], words)

    def test_what_the_page_makes_up_is_found(self):
        for words, more in (
            ("\n*profile*\n", "\n*ports*\n\n*profile*\n"),
            ("\n*list*\n", "\n*edit*\n\n*list*\n"),
            ("*value*", "*value*, *comment*"),
            ("\n*2*\n", "\n*3*\n\n*2*\n"),
            ("*-q*", "*-z*, *-q*"),
        ):
            self.assertNotEqual(self.judge(self.PAGE.replace(words, more)), [], words)

    def test_what_the_tool_gains_is_found(self):
        for words, more in (
            ("  list     all\n", "  list     all\n  edit     one\n"),
            ("  -q, --quiet    no reports\n", "  -q, --quiet    no reports\n  --loud    more\n"),
            ("2 usage", "2 usage, 3 lock busy"),
            ("  value  text\n", "  value  text\n  comment  text\n"),
        ):
            self.assertNotEqual(self.judge(self.PAGE, self.HELP.replace(words, more)), [], words)

    @unittest.skipUnless(shutil.which("scdoc") and shutil.which("mandoc"), "no scdoc or mandoc")
    def test_what_the_linters_say_is_found(self):
        with mock.patch.object(man_pages_test, "GENERATOR_HABIT", "no such text"):
            self.assertNotEqual(man_pages_test.lint("vrxreg.1.scd"), [])


if __name__ == "__main__":
    unittest.main()
