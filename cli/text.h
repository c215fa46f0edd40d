// SPDX-License-Identifier: Apache-2.0
// Bytes made safe for where they go: terminals, JSON, CSV, TSV, shells; and words that look alike.
// Not here: what is printed (output.h).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

// Whether the bytes are well-formed UTF-8.
bool isUtf8(std::string_view bytes);

// For people: control characters, bidirectional overrides and bytes that are not UTF-8 become \n,
// \t, \r, \xNN or \uNNNN, so that no record can move the cursor or reorder a line.
std::string displayText(std::string_view bytes);

// One TSV cell: backslash, tab, newline, carriage return and other controls become \\, \t, \n, \r
// and \xNN, which can be undone; all other bytes stand as they are.
std::string tsvCell(std::string_view bytes);

// One CSV cell as RFC 4180 has it, in quotes where needed.
std::string csvCell(std::string_view bytes);

// A word in single quotes for any POSIX shell.
std::string shellWord(std::string_view bytes);

std::string base64(std::string_view bytes);
std::string hexText(std::string_view bytes);

// The parts between the separators, empty ones included; one empty part for an empty text.
std::vector<std::string> split(std::string_view text, char separator);

// The texts with `separator` between them.
std::string join(const std::vector<std::string>& texts, std::string_view separator);

// ` (did you mean "x"?)` for the candidate that looks most like `word`; empty when none does.
std::string suggestion(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace cli
