// SPDX-License-Identifier: Apache-2.0
// The text and binary formats as the face changes them: a record is replaced only while it is
// exactly as it was read, comment and aliases included. Not for programs.
//
// The formats themselves compare the fields of their mask bits only, so that a change of nothing
// but a comment would be none. Here the mask bit kEverything asks for all of a record; "all
// fields", by which the store tells changed from unchanged and verifies its updates, has that bit
// too. Several records of one name are accepted on request only (SeveralAllowed): an Add then looks
// for one while it holds the lock.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "genreg/formats/bin_var_val.h"
#include "genreg/formats/init_tab.h"
#include "genreg/formats/services.h"
#include "genreg/formats/var_val.h"
#include "genreg/text/fields.h"

namespace vrx {
namespace detail {

// The mask bit, of no format, that asks for the whole record to agree.
constexpr unsigned long long kEverything = 0x8000000000000000u;
constexpr unsigned long long kWholeRecord = ~0ULL;

template <class RecordType>
const RecordType& recordAt(const void* record) {
  return *static_cast<const RecordType*>(record);
}

inline bool sameText(const char* a, const char* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return std::strcmp(a, b) == 0;
}

inline bool sameAliases(char* const* a, char* const* b) {
  if (a == nullptr || b == nullptr) return a == b;
  for (; *a != nullptr && *b != nullptr; ++a, ++b) {
    if (!sameText(*a, *b)) return false;
  }
  return *a == *b;
}

// Formatters put a blank behind the "#", parsers leave it in the comment.
inline char* withoutBlank(char* comment) {
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

// Gives `format`, which puts "# " before a comment, the comment without its blank. A comment that
// reads as the one in the old line stays as it stands there, byte for byte.
template <class RecordType>
int formatWithComment(void* record, char* line, int (*format)(void*, char*)) {
  RecordType laidOut = recordAt<RecordType>(record);
  if (laidOut.comment == nullptr) return format(record, line);
  LineComment old(line);
  const bool stays = std::strcmp(withoutBlank(old.clean), withoutBlank(laidOut.comment)) == 0;
  laidOut.comment = withoutBlank(stays ? old.raw : laidOut.comment);
  return format(&laidOut, line);
}

class ExactVarVal : public GenRegVarVal {
 public:
  ExactVarVal(const std::string& path, unsigned int* status) : GenRegVarVal(path.c_str(), status) {
    matchRecord = &ExactVarVal::matchExactly;
    formatLine = &ExactVarVal::formatParsed;
    (void)unsetFeature(kGenRegDuplicates);  // fails where it is not set
  }

  static int matchExactly(unsigned long long mask, void* stored, void* given) {
    if (MatchRecord(mask, stored, given) == 0) return 0;
    if ((mask & kEverything) == 0) return 1;
    const auto& a = recordAt<GenRegVarValRecord>(stored);
    const auto& b = recordAt<GenRegVarValRecord>(given);
    return sameText(a.comment, b.comment) ? 1 : 0;
  }
  static int formatParsed(void* record, char* line) {
    return formatWithComment<GenRegVarValRecord>(record, line, &GenRegVarVal::FormatLine);
  }
};

class ExactServices : public GenRegServices {
 public:
  // The constructor takes a char* and only reads it; it is given a copy.
  ExactServices(std::string path, unsigned int* status) : GenRegServices(path.data(), status) {
    matchRecord = &ExactServices::matchExactly;
    formatLine = &ExactServices::formatParsed;
  }

  // An entry that is not understood agrees with nothing.
  static int matchExactly(unsigned long long mask, void* stored, void* given) {
    const auto& a = recordAt<GenRegServicesRecord>(stored);
    const auto& b = recordAt<GenRegServicesRecord>(given);
    if (((a.flags | b.flags) & kServicesNotUnderstood) != 0) return 0;
    if (MatchRecord(mask, stored, given) == 0) return 0;
    if ((mask & kEverything) == 0) return 1;
    return sameAliases(a.aliases, b.aliases) && sameText(a.comment, b.comment) ? 1 : 0;
  }
  static int formatParsed(void* record, char* line) {
    return formatWithComment<GenRegServicesRecord>(record, line, &GenRegServices::FormatLine);
  }
};

class ExactInitTab : public GenRegInitTab {
 public:
  // As ExactServices'.
  ExactInitTab(std::string path, unsigned int* status) {
    *status = setPaths(path.data());
    matchRecord = &ExactInitTab::matchExactly;
    formatLine = &ExactInitTab::formatParsed;
  }

  // Entries agree with entries only, and comments count where everything does.
  static int matchExactly(unsigned long long mask, void* stored, void* given) {
    const auto& a = recordAt<GenRegInitTabRecord>(stored);
    const auto& b = recordAt<GenRegInitTabRecord>(given);
    if ((a.flags & b.flags & kInitTabHasEntry) == 0) return 0;
    GenRegInitTabRecord entry = b;
    entry.flags = kInitTabHasEntry;  // the format would compare comments whatever the mask
    if (MatchRecord(mask, stored, &entry) == 0) return 0;
    return (mask & kEverything) == 0 || sameText(a.comment, b.comment) ? 1 : 0;
  }
  // A command of one blank is what the parser makes of none before a comment.
  static int formatParsed(void* record, char* line) {
    GenRegInitTabRecord laidOut = recordAt<GenRegInitTabRecord>(record);
    char none[] = "";
    if (sameText(laidOut.command, " ")) laidOut.command = none;
    return FormatLine(&laidOut, line);
  }
};

class ExactBinVarVal : public GenRegBinVarVal {
 public:
  // As ExactServices'.
  ExactBinVarVal(std::string path, unsigned int* status) : GenRegBinVarVal(path.data(), status) {
    matchRecord = &ExactBinVarVal::matchExactly;
    (void)unsetFeature(kGenRegDuplicates);  // fails where it is not set
  }

  static int matchExactly(unsigned long long mask, void* stored, void* given) {
    if (MatchRecord(mask, stored, given) == 0) return 0;
    if ((mask & kEverything) == 0) return 1;
    const auto& a = recordAt<GenRegBinVarValRecord>(stored);
    const auto& b = recordAt<GenRegBinVarValRecord>(given);
    return std::strncmp(a.comment, b.comment, sizeof a.comment) == 0 ? 1 : 0;
  }
};

}  // namespace detail
}  // namespace vrx
