#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that each check of the sources fails on what it is there to find, and accepts what is allowed."""
import contextlib
import io
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "scripts"), str(ROOT / "scripts/dev")]
import check_exports  # noqa: E402
import check_layers  # noqa: E402
import check_links  # noqa: E402
import check_packaging  # noqa: E402
import check_style  # noqa: E402
import debian_symbols  # noqa: E402
import list_sources  # noqa: E402
import status_codes_doc  # noqa: E402
import sum_tests  # noqa: E402

SPDX = "// SPDX-License-Identifier: Apache-2.0\n"


class Tree(unittest.TestCase):
    """A small tree of files in a private folder."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)

    def put(self, path, text):
        (self.root / path).parent.mkdir(parents=True, exist_ok=True)
        (self.root / path).write_text(text, encoding="utf-8")

    def run_main(self, module, *arguments):
        """(exit status, printed text) of a script's main function."""
        out = io.StringIO()
        with mock.patch.object(sys, "argv", ["check", *map(str, arguments)]):
            with contextlib.redirect_stdout(out):
                try:
                    status = module.main()
                except SystemExit as stop:
                    status = stop.code
        return status, out.getvalue()


class Layers(Tree):
    HEADERS = [
        "platform/osse/memory.h", "platform/osse/internal/x.h", "genreg/registry.h",
        "genreg/internal/guards.h", "genreg/bin/bin_store.h", "genreg/bin/checksum.h",
        "genreg/text/fields.h", "genreg/text/text_store.h", "genreg/formats/var_val.h",
        "genreg/formats/services.h", "globalreg/global_reg.h", "oss/directory.h",
        "oss/version_code.h", "cli/table.h", "tests/support/temp_dir.h",
    ]  # fmt: skip

    def setUp(self):
        super().setUp()
        for header in self.HEADERS:
            self.put(header, SPDX + "#pragma once\n")

    def judge(self, path, include):
        self.put(path, SPDX + f"#include {include}\n")
        return self.run_main(check_layers, "--root", self.root)

    def assert_refused(self, path, include):
        status, out = self.judge(path, include)
        self.assertEqual(status, 1, f"{path} may include {include}")
        self.assertRegex(out, rf"(?m)^{re.escape(path)}:2: ")
        (self.root / path).unlink()

    def assert_allowed(self, path, include):
        status, out = self.judge(path, include)
        self.assertEqual(status, 0, out)

    def test_edges_down_the_house_are_allowed(self):
        self.assert_allowed("cli/list.cpp", '"oss/directory.h"')
        self.assert_allowed("oss/a.cpp", '"globalreg/global_reg.h"')
        self.assert_allowed("globalreg/b.cpp", '"genreg/bin/bin_store.h"')
        self.assert_allowed("genreg/bin/c.cpp", '"genreg/internal/guards.h"')
        self.assert_allowed("genreg/d.cpp", '"platform/osse/memory.h"')
        self.assert_allowed("genreg/formats/var_val.cpp", '"genreg/formats/var_val.h"')
        self.assert_allowed("genreg/e.cpp", "<sys/stat.h>")
        self.assert_allowed("cli/json.cpp", "<nlohmann/json.hpp>")
        self.assert_allowed("genreg/f_test.cpp", '"tests/support/temp_dir.h"')

    def test_the_three_upward_edges_are_allowed(self):
        self.assert_allowed("genreg/checksum_header.cpp", '"genreg/bin/checksum.h"')
        self.assert_allowed("globalreg/change_line.cpp", '"oss/version_code.h"')
        self.assert_allowed("globalreg/fixpack_sync.cpp", '"oss/directory.h"')

    def test_other_edges_up_the_house_are_refused(self):
        self.assert_refused("genreg/registry_open.cpp", '"genreg/bin/checksum.h"')
        self.assert_refused("genreg/checksum_header.cpp", '"genreg/bin/bin_store.h"')
        self.assert_refused("globalreg/location.cpp", '"oss/directory.h"')
        self.assert_refused("genreg/bin/a.cpp", '"globalreg/global_reg.h"')
        self.assert_refused("platform/osse/a.cpp", '"genreg/registry.h"')

    def test_stores_and_formats_do_not_see_each_other(self):
        self.assert_refused("genreg/bin/a.cpp", '"genreg/text/fields.h"')
        self.assert_refused("genreg/text/a.cpp", '"genreg/bin/checksum.h"')
        self.assert_refused("genreg/formats/services.cpp", '"genreg/formats/var_val.h"')
        self.assert_refused("genreg/text/fields.cpp", '"genreg/registry.h"')

    def test_internal_headers_stay_in_their_library(self):
        self.assert_refused("cli/a.cpp", '"genreg/internal/guards.h"')
        self.assert_refused("genreg/a.cpp", '"platform/osse/internal/x.h"')
        self.assert_refused("globalreg/a.h", '"genreg/internal/guards.h"')

    def test_strangers_are_refused(self):
        self.assert_refused("genreg/a.cpp", "<fmt/core.h>")
        self.assert_refused("genreg/a.cpp", "<gtest/gtest.h>")
        self.assert_refused("genreg/a.cpp", '"tests/support/temp_dir.h"')
        self.assert_refused("genreg/a.cpp", '"registry.h"')
        self.assert_refused("genreg/a.cpp", "WHATEVER")

    def test_a_commented_include_is_none(self):
        self.assert_allowed("genreg/a.cpp", '<cstdio>\n// #include "oss/directory.h"')

    def test_an_unknown_folder_is_refused(self):
        self.put("elsewhere/a.cpp", SPDX)
        self.assertEqual(self.run_main(check_layers, "--root", self.root)[0], 1)

    def test_duties_stay_with_their_files(self):
        self.put("genreg/registry_close.cpp", SPDX + "int f() { return ::link(a, b); }\n")
        self.put("genreg/registry_paths.cpp", SPDX + 'const char* k = "%s.tmp";\n')
        self.assertEqual(self.run_main(check_layers, "--root", self.root)[0], 0)
        self.put("genreg/a.cpp", SPDX + "int f() { return ::link(a, b); }\n")
        self.put("genreg/b.cpp", SPDX + 'const char* k = "%s.tmp";\n')
        self.put("globalreg/c.cpp", SPDX + "void f(R& r) { r.Lock(1, 0); }\n")
        self.put("oss/d.cpp", SPDX + 'void f() { fopen("x", "r"); }\n')
        out = self.run_main(check_layers, "--root", self.root)[1]
        for path in ("genreg/a", "genreg/b", "globalreg/c", "oss/d"):
            self.assertIn(f"{path}.cpp:2: ", out)

    def test_an_empty_tree_is_no_success(self):
        with tempfile.TemporaryDirectory() as empty:
            self.assertEqual(self.run_main(check_layers, "--root", pathlib.Path(empty))[0], 1)


class Style(Tree):
    def judge(self, text, path="genreg/a.cpp"):
        self.put(path, text)
        return self.run_main(check_style, "--root", self.root)

    def function(self, lines, head="int f()"):
        return f"{head} {{\n" + "  g();\n" * (lines - 2) + "}\n"

    def test_a_short_file_is_accepted(self):
        self.assertEqual(self.judge(SPDX + self.function(5))[0], 0)

    def test_a_missing_licence_line_is_found(self):
        self.assertEqual(self.judge("int x;\n")[0], 1)
        self.assertEqual(self.judge("#!/bin/bash\n# SPDX-License-Identifier: Apache-2.0\n", "dev")[0], 1)
        self.put("genreg/a.cpp", SPDX)
        self.assertEqual(self.run_main(check_style, "--root", self.root)[0], 0)

    def test_a_file_of_500_lines_is_too_long(self):
        self.assertEqual(self.judge(SPDX + "\n" * 498)[0], 0)
        self.assertEqual(self.judge(SPDX + "\n" * 499)[0], 1)

    def test_banned_functions_are_found_in_code_alone(self):
        self.assertEqual(self.judge(SPDX + "void f() { std::strcpy(a, b); }\n")[0], 1)
        self.assertEqual(self.judge(SPDX + "void f() { fgets(a, 1, b); }\n")[0], 0)
        self.assertEqual(self.judge(SPDX + '// strcpy(a)\nauto s = "gets(";\n')[0], 0)

    def test_a_function_of_81_lines_is_too_long(self):
        short = self.function(3) * 3
        self.assertEqual(self.judge(SPDX + short + self.function(80))[0], 0)
        self.assertEqual(self.judge(SPDX + short + self.function(81))[0], 1)

    def test_a_median_of_12_is_too_long(self):
        self.assertEqual(self.judge(SPDX + self.function(11) * 3)[0], 0)
        self.assertEqual(self.judge(SPDX + self.function(12) * 3)[0], 1)

    def test_long_functions_are_found_wherever_they_stand(self):
        heads = [
            "template <class T = int>\nvoid f(T x = T{})",
            "Foo::Foo() : a_{1}, b_(2)",
            "Foo& Foo::operator=(const Foo&)",
            "bool operator==(const A& a, const A& b)",
            "[[nodiscard]] auto f() -> std::vector<int>",
            'extern "C" int f(int)',
            "TEST(Frame, HasALength)",
            "int f() const noexcept(true)",
        ]
        for head in heads:
            for wrap in ("{}", "namespace a {{\n{}}}\n", "class B {{\n public:\n{}}};\n"):
                found = check_style.functions_of(wrap.format(self.function(90, head)))
                lines = head.count("\n") + 90
                self.assertEqual([n for _, _, n in found], [lines], wrap.format(head))

    def test_data_is_no_function(self):
        for text in ("const int a[] = {\n1,\n2};\n", "enum class E {\na,\n};\n", "struct S {\nint a{};\n};\n"):
            self.assertEqual(check_style.functions_of(text), [])

    def test_this_tree_has_functions(self):
        text = (ROOT / "genreg/registry_paths.cpp").read_text(encoding="utf-8")
        names = [name for _, name, _ in check_style.functions_of(text)]
        self.assertIn("GenRegFile::setRegistryPaths", names)


class Exports(Tree):
    """On small libraries built for the purpose."""

    def build(self, source, soname="libsmall.so.1"):
        self.put("small.cpp", source)
        library = self.root / "libsmall.so"
        subprocess.run(
            ["c++", "-shared", "-fPIC", "-O1", f"-Wl,-soname,{soname}",
             str(self.root / "small.cpp"), "-o", str(library)], check=True,
        )  # fmt: skip
        return library

    def judge(self, library, listed):
        machine = check_exports.machine_of(library)
        if machine is None:
            self.skipTest("no lists for this architecture")
        self.put(f"libsmall.{machine}.txt", "".join(f"{symbol}  x\n" for symbol in listed))
        with mock.patch.object(check_exports, "LISTS", self.root):
            return check_exports.judge("small", library, machine)[0]

    def test_the_listed_symbols_and_no_others_are_accepted(self):
        library = self.build("int kept() { return 1; }\n")
        self.assertEqual(self.judge(library, ["_Z4keptv"]), [])

    def test_a_symbol_that_disappeared_is_found(self):
        library = self.build("int kept() { return 1; }\n")
        self.assertEqual(self.judge(library, ["_Z4gonev", "_Z4keptv"]), ["not exported: _Z4gonev"])

    def test_a_symbol_that_appeared_is_found(self):
        library = self.build("int kept() { return 1; }\nint fresh() { return 2; }\n")
        self.assertEqual(self.judge(library, ["_Z4keptv"]), ["not listed: _Z5freshv  fresh()"])

    def test_an_instantiation_that_leaks_is_found(self):
        source = """
            template <class T> struct Box { T take(T x) __attribute__((noinline)) { return x + n; } T n = 0; };
            int kept(int n) { return Box<int>().take(n); }
        """
        findings = self.judge(self.build(source), ["_Z4kepti"])
        self.assertEqual(len(findings), 1)
        self.assertRegex(findings[0], "^leaks: .*Box<int>::take")

    def test_another_soname_is_found(self):
        library = self.build("int kept() { return 1; }\n", soname="libsmall.so.2")
        self.assertEqual(len(self.judge(library, ["_Z4keptv"])), 1)

    def test_an_empty_list_is_found(self):
        self.assertIn("no list", self.judge(self.build("static int x;\n"), [])[0])


class Packaging(Tree):
    SYMBOLS = "packaging/debian/libvrxosse1.symbols"

    def setUp(self):
        super().setUp()
        self.put("CMakeLists.txt", "project(vrxgenreg VERSION 1.1.0 LANGUAGES CXX)\n")
        self.put("packaging/debian/control", "Source: x\n\nPackage: libx1\n\nPackage: libx-dev\n")
        self.put("packaging/debian/changelog", "x (1.1.0-1) unstable; urgency=medium\n")
        self.put("packaging/debian/libx1.install", "usr/lib/*/libx.so.1*\n")
        self.put("packaging/debian/libx-dev.install", "usr/include/x\n")
        self.put("prefix/lib/libx.so.1.1.0", "")
        self.put("prefix/include/x/deep/x.h", "")

    def judge(self):
        return self.run_main(
            check_packaging, "--root", self.root, "--prefix", self.root / "prefix"
        )

    def test_a_file_in_exactly_one_package_is_accepted(self):
        self.assertEqual(self.judge(), (0, "2 installed files, 2 packages, 0 findings\n"))

    def test_a_file_in_no_package_is_found(self):
        self.put("prefix/lib/pkgconfig/x.pc", "")
        self.assertIn("usr/lib/ARCHITECTURE/pkgconfig/x.pc: in no package", self.judge()[1])

    def test_a_file_in_two_packages_is_found(self):
        self.put("packaging/debian/libx-dev.install", "usr/include/x\nusr/lib/*/libx.so*\n")
        self.assertIn("libx.so.1.1.0: in libx-dev and libx1", self.judge()[1])

    def test_a_line_that_finds_nothing_is_found(self):
        self.put("packaging/debian/libx-dev.install", "usr/include/x\nusr/share/x\n")
        self.assertIn("libx-dev.install: nothing is called usr/share/x", self.judge()[1])

    def test_a_file_of_an_unknown_package_is_found(self):
        self.put("packaging/debian/libx2.postrm", "")
        self.assertIn("libx2.postrm: no package of this name", self.judge()[1])

    def test_another_version_is_found(self):
        self.put("packaging/debian/changelog", "x (1.0.0-1) unstable; urgency=medium\n")
        self.assertIn("version 1.0.0, the project has 1.1.0", self.judge()[1])

    def put_exports(self, amd64, i386):
        for library in debian_symbols.LIBRARIES:
            self.put(f"tests/checks/exports/lib{library}.amd64.txt", amd64)
            self.put(f"tests/checks/exports/lib{library}.i386.txt", i386)

    def symbols(self):
        return (self.root / self.SYMBOLS).read_text(encoding="utf-8").splitlines()[2:]

    def test_a_new_symbol_is_since_this_version_and_an_old_one_keeps_its_own(self):
        self.put(self.SYMBOLS, " _Z3oldv@X_1 1.0.0\n")
        both = "_Z3oldv@@X_1  old()\n_Z5freshv@@X_1  fresh()\n"
        self.put_exports(both, both)
        self.assertEqual(self.run_main(debian_symbols, "--root", self.root)[0], 1)
        self.assertEqual(self.run_main(debian_symbols, "--root", self.root, "--update")[0], 0)
        wanted = [" X_1@X_1 1.1.0", " _Z3oldv@X_1 1.0.0", " _Z5freshv@X_1 1.1.0"]
        self.assertEqual(self.symbols(), wanted)
        self.assertEqual(self.run_main(debian_symbols, "--root", self.root)[0], 0)

    def test_a_symbol_of_one_architecture_says_so(self):
        self.put_exports("_Z4longm@@X_1  x\n", "_Z4longj@@X_1  x\n")
        self.run_main(debian_symbols, "--root", self.root, "--update")
        self.assertIn(" (arch=i386)_Z4longj@X_1 1.1.0", self.symbols())


class Links(Tree):
    def judge(self, path, text):
        self.put(path, text)
        status, out = self.run_main(check_links, "--root", self.root)
        return status, out.splitlines()[0]

    def test_a_link_to_a_file_is_accepted(self):
        self.put("docs/house.md", "")
        self.assertEqual(self.judge("README.md", "[a](docs/house.md#rooms) [b](https://x.y/z)\n")[0], 0)

    def test_a_link_that_leads_nowhere_is_found(self):
        expected = (1, "pages/a.md:1: no house.md")
        self.assertEqual(self.judge("pages/a.md", "[a](house.md)\n"), expected)

    def test_code_that_a_page_shows_holds_no_links(self):
        text = "```cpp\n[](House& house) {}\n```\n[a](house.md)\n"
        self.assertEqual(self.judge("pages/a.md", text), (1, "pages/a.md:4: no house.md"))

    def test_a_page_named_in_a_comment_must_exist(self):
        expected = (1, "genreg/a.h:1: no docs/" + "house.md")
        self.assertEqual(self.judge("genreg/a.h", "// see docs/" + "house.md\n"), expected)


class StatusCodesPage(Tree):
    ROW = 'VRX_STATUS({}, {}, "a | b", "f", "Do \\"it\\" "\n "now.")\n'

    def setUp(self):
        super().setUp()
        self.put("genreg/status_codes.inc", self.ROW.format("one", "0x90000001"))
        self.put("platform/osse/status_codes.inc", self.ROW.format("ok", "0"))

    def run_page(self, *options):
        return self.run_main(status_codes_doc, "--root", self.root, *options)

    def test_a_missing_page_and_a_stale_page_are_found(self):
        self.assertEqual(self.run_page("--check")[0], 1)
        self.assertEqual(self.run_page()[0], 0)
        self.assertEqual(self.run_page("--check")[0], 0)
        self.put("genreg/status_codes.inc", self.ROW.format("two", "0x90000001"))
        self.assertEqual(self.run_page("--check")[0], 1)

    def test_a_row_is_shown_whole(self):
        self.run_page()
        page = (self.root / status_codes_doc.PAGE).read_text(encoding="utf-8")
        self.assertIn('| 0x90000001 | `one` | a \\| b | f | Do "it" now. |\n', page)

    def test_a_row_that_is_not_understood_or_stands_twice_is_refused(self):
        self.put("genreg/status_codes.inc", "VRX_STATUS(one, kOne, nothing)\n")
        self.assertIn("not understood", str(self.run_page()[0]))
        self.put("genreg/status_codes.inc", self.ROW.format("one", "0x1") + self.ROW.format("two", "0x1"))
        self.assertIn("twice", str(self.run_page()[0]))


class Sums(Tree):
    CASES = {
        "passed": '<testcase name="a" status="run"/>',
        "failed": '<testcase name="b" status="fail"><failure/><system-out>why</system-out></testcase>',
        "skipped": '<testcase name="c" status="notrun"><skipped message="SKIP_RETURN_CODE=77"/></testcase>',
        "no program": '<testcase name="d" status="notrun"><skipped message="Unable to find executable"/></testcase>',
    }

    def total(self, **presets):
        for preset, cases in presets.items():
            body = "".join(self.CASES[case] for case in cases)
            self.put(f"{preset}.xml", f"<testsuite>{body}</testsuite>")
        status, out = self.run_main(sum_tests, self.root)
        return status, out.rstrip("\n")

    def test_green_presets_add_up(self):
        self.assertEqual(self.total(dev=["passed"] * 2, m32=["passed"]), (0, "3 passed, 0 failed"))

    def test_a_skip_is_counted_as_such(self):
        self.assertEqual(self.total(dev=["passed", "skipped"]), (0, "1 passed, 0 failed, 1 skipped"))

    def test_a_failure_fails(self):
        self.assertEqual(self.total(dev=["passed", "failed"]), (1, "1 passed, 1 failed"))

    def test_a_test_without_its_program_fails(self):
        self.assertEqual(self.total(dev=["passed", "no program"]), (1, "1 passed, 1 failed"))

    def test_a_preset_that_does_not_build_fails(self):
        self.put("asan.failed", "build of asan\n")
        self.assertEqual(self.total(dev=["passed"]), (1, "1 passed, 1 failed"))

    def test_a_report_that_is_missing_empty_or_cut_fails(self):
        self.put("dev.red", "")
        self.assertEqual(self.total(), (1, "0 passed, 1 failed"))
        self.assertEqual(self.total(dev=[]), (1, "0 passed, 1 failed"))
        self.put("dev.xml", "<testsuite><testcase")
        self.assertEqual(self.total(), (1, "0 passed, 1 failed"))

    def test_a_ctest_that_fails_without_a_failed_test_fails(self):
        self.put("dev.red", "")
        self.assertEqual(self.total(dev=["passed"]), (1, "1 passed, 1 failed"))

    def test_nothing_at_all_fails(self):
        self.assertEqual(self.total(), (1, "0 passed, 1 failed"))

    def test_the_output_of_a_failure_is_shown(self):
        self.total(dev=["failed"])
        out = self.run_main(sum_tests, "--preset", "dev", self.root)[1]
        self.assertIn("failed: b\nwhy", out)


class Sources(Tree):
    def test_caches_and_builds_are_not_sources(self):
        for path in ("a.cpp", "build/b.cpp", ".git/c", "x/__pycache__/d.py", "x/build/e.cpp"):
            self.put(path, "")
        found = [path.as_posix() for path in list_sources.walk(self.root)]
        self.assertEqual(found, ["a.cpp", "x/build/e.cpp"])

    def test_comments_and_strings_become_blanks_of_the_same_shape(self):
        text = 'a; /* b\n */ c("//d"); // e\nf(\'"\'); x = 1\'000;\n'
        blank = list_sources.blank_out(text)
        self.assertEqual(len(blank), len(text))
        self.assertEqual(blank.split(), ["a;", "c(", ");", "f(", ");", "x", "=", "1'000;"])


if __name__ == "__main__":
    unittest.main()
