#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Fails on files and functions that are too long, on banned functions and on a missing licence line.

Functions are found by their braces in clang-formatted code; a definition is counted from the first
line of its head to its closing brace. Not here: includes (check_layers.py).
"""
import argparse
import pathlib
import re
import statistics
import sys

import list_sources

MAX_FILE_LINES = 499
MAX_FUNCTION_LINES = 80
MEDIAN_BELOW = 12  # over production code

BANNED = re.compile(
    r"\b(strcpy|stpcpy|strcat|sprintf|vsprintf|strtok|strtok_r|gets|alloca|tmpnam|mktemp)\s*\("
)
LICENCE = re.compile(r"(//|#|/\*) SPDX-License-Identifier: Apache-2\.0")

NAMESPACE, TYPE, FUNCTION, OTHER = "namespace", "type", "function", "other"


def kind_of_scope(head, glued):
    """What an opening brace outside of functions begins; `glued` when no blank stands before it."""
    head = re.sub(r"__attribute__\s*\(\(.*?\)\)|\[\[.*?\]\]", " ", head, flags=re.S).strip()
    if re.match(r"(inline\s+)?namespace\b", head) or re.fullmatch(r'extern\s+"[^"]*"', head):
        return NAMESPACE
    outside = strip_parentheses(without_template(head))
    if re.search(r"(?<![=!<>])=(?!=)", outside) and "operator" not in outside:
        return OTHER  # an initialiser, a lambda kept in a variable among them
    if "()" in outside and not glued:
        return FUNCTION
    if re.search(r"\b(class|struct|union)\b", outside) and "()" not in outside:
        return TYPE
    return OTHER  # an enumeration, a member's initialiser, a variable's braces


def without_template(head):
    """The head without its template parameters, whose defaults are no initialisers."""
    match = re.match(r"template\s*<", head)
    if not match:
        return head
    depth = 0
    for offset in range(match.end() - 1, len(head)):
        depth += {"<": 1, ">": -1}.get(head[offset], 0)
        if depth == 0:
            return without_template(head[offset + 1 :].lstrip())
    return head


def strip_parentheses(text):
    """The text with everything inside of parentheses left out."""
    out, depth = [], 0
    for char in text:
        if char == ")":
            depth -= 1
        if depth == 0:
            out.append(char)
        if char == "(":
            depth += 1
    return "".join(out)


def without_directives(code):
    """Preprocessor lines, with their continuations, replaced by empty ones."""
    return re.sub(
        r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*",
        lambda match: "\n" * match.group(0).count("\n"),
        code,
        flags=re.M,
    )


class Scanner:
    """Walks the braces of one file and notes its function definitions."""

    def __init__(self, text):
        self.code = without_directives(list_sources.blank_out(text, keep_strings=True))
        self.shape = without_directives(list_sources.blank_out(text))
        self.functions = []  # (line, name, lines)
        self.scopes = []  # (kind, offset of the head, offset after which the head goes on)
        self.head = 0

    def scan(self):
        for match in re.finditer(r"[{};]", self.shape):
            char, offset = match.group(0), match.start()
            if char == "{":
                self.open_brace(offset)
            elif char == "}":
                self.close_brace(offset)
            elif not self.inside(FUNCTION, OTHER):
                self.head = offset + 1
        return self.functions

    def inside(self, *kinds):
        return bool(self.scopes) and self.scopes[-1][0] in kinds

    def open_brace(self, offset):
        if self.inside(FUNCTION, OTHER):
            self.scopes.append((OTHER, None))
            return
        text = self.code[self.head : offset]
        text = re.sub(r"^\s*((public|private|protected)\s*:\s*)+", "", text)
        start = offset - len(text.lstrip())
        kind = kind_of_scope(text, glued=not text[-1:].isspace())
        self.scopes.append((kind, start))
        if kind in (NAMESPACE, TYPE):
            self.head = offset + 1

    def close_brace(self, offset):
        if not self.scopes:
            raise ValueError("unbalanced braces")
        kind, start = self.scopes.pop()
        if kind == FUNCTION:
            self.note(start, offset)
        if kind in (FUNCTION, NAMESPACE, TYPE):
            self.head = offset + 1

    def note(self, start, end):
        head = self.code[start:end].split("{")[0]
        name = re.search(r"(TEST\w*\([^)]*\)|[\w:~]+(?=\s*\())", head)
        line = self.code.count("\n", 0, start) + 1
        lines = self.code.count("\n", start, end) + 1
        self.functions.append((line, name.group(0) if name else "?", lines))


def functions_of(text):
    scanner = Scanner(text)
    functions = scanner.scan()
    if scanner.scopes:
        raise ValueError("unbalanced braces")
    return functions


def judge_licence(path, lines):
    first = lines[1:2] if lines and lines[0].startswith("#!") else lines[:1]
    if not first or not LICENCE.match(first[0]):
        return [(1, "the first line is not the SPDX line")]
    return []


def judge_text(path, text):
    """The findings about a file as text: (line, what)."""
    lines = text.splitlines()
    findings = judge_licence(path, lines)
    if len(lines) > MAX_FILE_LINES:
        findings.append((len(lines), f"{len(lines)} lines, at most {MAX_FILE_LINES}"))
    if list_sources.is_cpp(path):
        code = list_sources.blank_out(text)
        for match in BANNED.finditer(code):
            line = code.count("\n", 0, match.start()) + 1
            findings.append((line, f"{match.group(1)} is banned"))
    return findings


def judge_functions(path, text):
    """The findings about a file's functions, and the lengths of all of them."""
    if path.suffix == ".inc":
        return [], []
    try:
        functions = functions_of(text)
    except ValueError as error:
        return [(1, str(error))], []
    findings = [
        (line, f"{name} has {lines} lines, at most {MAX_FUNCTION_LINES}")
        for line, name, lines in functions
        if lines > MAX_FUNCTION_LINES
    ]
    return findings, [lines for _, _, lines in functions]


def median_finding(lengths):
    """The closing line about lengths, and whether the median is within its bound."""
    if not lengths:
        return "no functions", True
    median = statistics.median(lengths)
    line = f"{len(lengths)} functions, median {median:g} lines, longest {max(lengths)}"
    return line, median < MEDIAN_BELOW


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", type=pathlib.Path, default=list_sources.ROOT)
    parser.add_argument("--longest", type=int, default=0, help="also list the N longest functions")
    options = parser.parse_args()
    count, lengths, files, longest = 0, [], 0, []
    for path in list_sources.walk(options.root):
        if not list_sources.is_cpp(path) and not list_sources.is_script(path):
            continue
        files += 1
        text = (options.root / path).read_text(encoding="utf-8", errors="replace")
        findings = judge_text(path, text)
        if list_sources.is_cpp(path):
            more, own = judge_functions(path, text)
            findings += more
            if not list_sources.is_test(path):
                lengths += own
                longest += [(n, path) for n in own]
        for line, finding in findings:
            print(f"{path}:{line}: {finding}")
        count += len(findings)
    for lines, path in sorted(longest, reverse=True)[: options.longest]:
        print(f"{lines:4} {path}")
    line, short_enough = median_finding(lengths)
    print(f"{files} files, {count} findings; production: {line}")
    return 1 if count or not short_enough or not files else 0


if __name__ == "__main__":
    sys.exit(main())
