// SPDX-License-Identifier: Apache-2.0
// Global registry records as words of a command line and as lines of text, for test programs.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "globalreg/record.h"

namespace vrxtest {

// Reads a decimal, 0x or octal number. False, and *value untouched, when it is none.
bool parseNumber(const std::string& text, unsigned long long* value);

// Fills *record from TYPE NAME=VALUE..., each name setting its bit in the field mask. The names are
// those of the record's members. False with the reason in *problem.
bool parseRecord(const std::vector<std::string>& words, GlobalRegRecord* record,
                 std::string* problem);

// A text up to its NUL or `width` bytes, and printing it. Backslashes and bytes outside of
// printable ASCII appear as \xNN.
std::string plainText(const char* text, std::size_t width);
void printText(const char* text, std::size_t width);

// One line: the type, mask=, missing=, checksum= and each present field as NAME=VALUE, separated by
// tabs, texts as by plainText; and printing it.
std::string recordText(const GlobalRegRecord& record);
void printRecord(const GlobalRegRecord& record);

}  // namespace vrxtest
