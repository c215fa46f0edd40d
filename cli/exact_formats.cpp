// SPDX-License-Identifier: Apache-2.0
// The slots that look at a whole record.
#include "cli/exact_formats.h"

#include <algorithm>
#include <cstring>

#include "genreg/text/fields.h"

namespace cli {

namespace {

template <class RecordType>
const RecordType& recordAt(const void* record) {
  return *static_cast<const RecordType*>(record);
}

bool sameText(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return std::strcmp(a, b) == 0;
}

bool sameAliases(char* const* a, char* const* b) {
  if (a == nullptr || b == nullptr) return a == b;
  for (; *a != nullptr && *b != nullptr; ++a, ++b) {
    if (!sameText(*a, *b)) return false;
  }
  return *a == *b;
}

const char* withoutBlank(const char* comment) {
  return *comment == ' ' ? comment + 1 : comment;
}

// A copy of the comment in `line`, as it stands and as it reads; both empty without one.
struct LineComment {
  explicit LineComment(const char* line) {
    const char* mark = std::strchr(line, '#');
    if (mark == nullptr) return;
    const std::size_t length = std::min(std::strcspn(mark + 1, "\n"), sizeof raw - 1);
    std::memcpy(raw, mark + 1, length);
    std::memcpy(clean, raw, length);
    CleanString(clean);
  }
  char raw[kGenRegLineSize] = {};
  char clean[kGenRegLineSize] = {};
};

// Gives `format`, which puts "# " before a comment, the comment without its blank.
template <class RecordType>
int formatWithComment(void* record, char* line, int (*format)(void*, char*)) {
  RecordType laidOut = recordAt<RecordType>(record);
  if (laidOut.comment == nullptr) return format(record, line);
  LineComment old(line);
  const bool stays = std::strcmp(withoutBlank(old.clean), withoutBlank(laidOut.comment)) == 0;
  laidOut.comment = const_cast<char*>(withoutBlank(stays ? old.raw : laidOut.comment));
  return format(&laidOut, line);
}

}  // namespace

ExactVarVal::ExactVarVal(const std::string& path, unsigned int* status)
    : GenRegVarVal(path.c_str(), status) {
  matchRecord = &ExactVarVal::matchExactly;
  formatLine = &ExactVarVal::formatParsed;
}

int ExactVarVal::matchExactly(unsigned long long mask, void* stored, void* given) {
  if (MatchRecord(mask, stored, given) == 0) return 0;
  if ((mask & kEverything) == 0) return 1;
  const auto& a = recordAt<GenRegVarValRecord>(stored);
  const auto& b = recordAt<GenRegVarValRecord>(given);
  return sameText(a.comment, b.comment) ? 1 : 0;
}

int ExactVarVal::formatParsed(void* record, char* line) {
  return formatWithComment<GenRegVarValRecord>(record, line, &GenRegVarVal::FormatLine);
}

ExactServices::ExactServices(const std::string& path, unsigned int* status)
    : GenRegServices(const_cast<char*>(path.c_str()), status) {
  matchRecord = &ExactServices::matchExactly;
  formatLine = &ExactServices::formatParsed;
}

int ExactServices::matchExactly(unsigned long long mask, void* stored, void* given) {
  const auto& a = recordAt<GenRegServicesRecord>(stored);
  const auto& b = recordAt<GenRegServicesRecord>(given);
  if (((a.flags | b.flags) & kServicesNotUnderstood) != 0) return 0;
  if (MatchRecord(mask, stored, given) == 0) return 0;
  if ((mask & kEverything) == 0) return 1;
  return sameAliases(a.aliases, b.aliases) && sameText(a.comment, b.comment) ? 1 : 0;
}

int ExactServices::formatParsed(void* record, char* line) {
  return formatWithComment<GenRegServicesRecord>(record, line, &GenRegServices::FormatLine);
}

ExactInitTab::ExactInitTab(const std::string& path, unsigned int* status) {
  *status = setPaths(const_cast<char*>(path.c_str()));
  matchRecord = &ExactInitTab::matchExactly;
  formatLine = &ExactInitTab::formatParsed;
}

int ExactInitTab::matchExactly(unsigned long long mask, void* stored, void* given) {
  const auto& a = recordAt<GenRegInitTabRecord>(stored);
  const auto& b = recordAt<GenRegInitTabRecord>(given);
  if ((a.flags & b.flags & kInitTabHasEntry) == 0) return 0;
  GenRegInitTabRecord entry = b;
  entry.flags = kInitTabHasEntry;  // the format would compare comments whatever the mask
  if (MatchRecord(mask, stored, &entry) == 0) return 0;
  return (mask & kEverything) == 0 || sameText(a.comment, b.comment) ? 1 : 0;
}

int ExactInitTab::formatParsed(void* record, char* line) {
  GenRegInitTabRecord laidOut = recordAt<GenRegInitTabRecord>(record);
  char none[] = "";
  if (laidOut.command != nullptr && std::strcmp(laidOut.command, " ") == 0) laidOut.command = none;
  return FormatLine(&laidOut, line);
}

ExactBinVarVal::ExactBinVarVal(const std::string& path, unsigned int* status)
    : GenRegBinVarVal(const_cast<char*>(path.c_str()), status) {
  matchRecord = &ExactBinVarVal::matchExactly;
}

int ExactBinVarVal::matchExactly(unsigned long long mask, void* stored, void* given) {
  if (MatchRecord(mask, stored, given) == 0) return 0;
  if ((mask & kEverything) == 0) return 1;
  const auto& a = recordAt<GenRegBinVarValRecord>(stored);
  const auto& b = recordAt<GenRegBinVarValRecord>(given);
  return std::strncmp(a.comment, b.comment, sizeof a.comment) == 0 ? 1 : 0;
}

}  // namespace cli
