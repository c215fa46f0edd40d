// SPDX-License-Identifier: Apache-2.0
// The init table format: parsing, laying out, comparing and checking one line.
#include "genreg/formats/init_tab.h"

#include <cstdio>
#include <cstring>

#include "genreg/internal/operation.h"
#include "genreg/text/internal/line_builder.h"

using namespace genreg;

namespace {

GenRegInitTabRecord& recordAt(void* record) {
  return *static_cast<GenRegInitTabRecord*>(record);
}

// Cuts the text at its first ":" and returns what follows; null when there is none.
char* cutField(char* text) {
  char* const colon = findMark(text, ':');
  if (colon == nullptr) return nullptr;
  *colon = '\0';
  return colon + 1;
}

// The command's first character stays, whatever it is.
void cutTrailingBlanks(char* command, char* end) {
  if (end == command) return;
  while (end > command + 1 && end[-1] == ' ')
    --end;
  *end = '\0';
}

// The entry ends at `end`.
void parseEntry(Operation& op, GenRegInitTabRecord& record, char* end) {
  record.flags |= kInitTabHasEntry;
  record.id = record.line;
  record.runlevel = cutField(record.id);
  if (record.runlevel == nullptr) {
    op.fail(2, status::inittab_no_runlevel);
    return;
  }
  record.action = cutField(record.runlevel);
  if (record.action == nullptr) {
    op.fail(3, status::inittab_no_action);
    return;
  }
  record.command = cutField(record.action);
  if (record.command == nullptr) {
    op.fail(4, status::inittab_no_command);
    return;
  }
  cutTrailingBlanks(record.command, end);
}

void parse(Operation& op, GenRegInitTabRecord& record, const char* text, unsigned long length) {
  takeLine(record.line, text, length);
  record.comment = nullptr;
  record.flags = 0;
  record.runlevel = record.id = record.action = record.command = nullptr;
  if (record.line[0] == ':') {
    record.flags = kInitTabHasComment;
    record.comment = record.line + 1;
    return;
  }
  const void* mark = std::memchr(text, '#', length);
  char* end = record.line + length;
  if (mark != nullptr) {
    end = record.line + (static_cast<const char*>(mark) - text);
    *end = '\0';
    record.comment = end + 1;
    record.flags = kInitTabHasComment;
  }
  if (record.line[0] != '\0') parseEntry(op, record, end);
}

void appendEntry(LineBuilder& line, const GenRegInitTabRecord& record) {
  line.append(record.id);
  line.append(":");
  line.append(record.runlevel);
  line.append(":");
  line.append(record.action);
  line.append(":");
  line.append(record.command);
}

void printField(const char* label, const char* text) {
  if (text != nullptr) std::printf("   %s : |%s|\n", label, text);
}

bool isMissing(unsigned long long mask, unsigned long long field, const char* text) {
  return (mask & field) != 0 && text == nullptr;
}

// A key that is a comment only is compared by its comment.
const char* requiredText(unsigned long long mask, const void* key) {
  const auto& wanted = *static_cast<const GenRegInitTabRecord*>(key);
  const bool named = (mask & kInitTabId) != 0 && (wanted.flags & kInitTabHasEntry) != 0;
  return named ? unparsedText(wanted.id) : nullptr;
}

int parseText(void* record, const char* text, unsigned long length) {
  Operation op(kGenRegInitTabParseLine);
  parse(op, recordAt(record), text, length);
  return op.result();
}

constexpr GenRegLineSlots kLineSlots = {GenRegInitTab::MatchRecord, GenRegInitTab::ParseLine,
                                        requiredText, parseText};

// The entry fields of the mask agree.
bool sameEntry(unsigned long long mask, const GenRegInitTabRecord& a,
               const GenRegInitTabRecord& b) {
  if ((mask & kInitTabId) != 0 && !sameText(a.id, b.id)) return false;
  if ((mask & kInitTabRunlevel) != 0 && !sameText(a.runlevel, b.runlevel)) return false;
  if ((mask & kInitTabAction) != 0 && !sameText(a.action, b.action)) return false;
  return (mask & kInitTabCommand) == 0 || sameText(a.command, b.command);
}

}  // namespace

GenRegInitTab::GenRegInitTab() {
  matchRecord = &GenRegInitTab::MatchRecord;
  validateRecord = &GenRegInitTab::ValidateRecord;
  printRecord = &GenRegInitTab::PrintRecord;
  getRecordSize = &GenRegInitTab::GetRecordSize;
  getMaxRecordSize = &GenRegInitTab::GetMaxRecordSize;
  formatLine = &GenRegInitTab::FormatLine;
  parseLine = &GenRegInitTab::ParseLine;
  lineSlots = &kLineSlots;
  (void)setFeature(kGenRegVerifyCommit);  // both are in range
  (void)setFeature(kGenRegJoinLines);
}

GenRegInitTab::GenRegInitTab(char* path, unsigned int* status) {
  const GenRegStatus rc = setPaths(path);
  if (status != nullptr) *status = rc;
}

GenRegInitTab::~GenRegInitTab() = default;

GenRegStatus GenRegInitTab::setPaths(char* path) {
  Operation op(kGenRegInitTabSetPaths, path);
  return op.conclude(setRegistryPaths(path));  // logged where it was found
}

int GenRegInitTab::ParseLine(void* record, char* line) {
  Operation op(kGenRegInitTabParseLine);
  if (record == nullptr || line == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  parse(op, recordAt(record), line, takenLength(line));
  return op.result();
}

int GenRegInitTab::FormatLine(void* record, char* line) {
  Operation op(kGenRegInitTabFormatLine);
  if (record == nullptr || line == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  const GenRegInitTabRecord& given = recordAt(record);
  if (given.flags == 0) return op.result();
  const bool hasEntry = (given.flags & kInitTabHasEntry) != 0;
  LineBuilder text;
  if (hasEntry) appendEntry(text, given);
  if ((given.flags & kInitTabHasComment) != 0) {
    text.append(hasEntry ? " #" : "#");
    text.append(given.comment);
  }
  if (text.isTooLong()) {
    op.fail(2, status::line_too_long);
  } else {
    text.copyTo(line);
  }
  return op.result();
}

int GenRegInitTab::MatchRecord(unsigned long long mask, void* stored, void* given) {
  if (mask == 0) return 1;
  const GenRegInitTabRecord& line = recordAt(stored);
  const GenRegInitTabRecord& wanted = recordAt(given);
  if ((wanted.flags & kInitTabHasEntry) != 0) {
    if ((line.flags & kInitTabHasEntry) == 0 || !sameEntry(mask, line, wanted)) return 0;
  }
  if ((wanted.flags & kInitTabHasComment) != 0) {
    if ((line.flags & kInitTabHasComment) == 0) return 0;
    if (!sameText(line.comment, wanted.comment)) return 0;
  }
  return 1;
}

int GenRegInitTab::ValidateRecord(unsigned long long mask, void* record) {
  Operation op(kGenRegInitTabValidateRecord);
  if (record == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  const GenRegInitTabRecord& given = recordAt(record);
  if (given.flags == 0) {
    op.fail(2, status::empty_record);
  } else if ((given.flags & kInitTabHasEntry) != 0 &&
             (isMissing(mask, kInitTabId, given.id) ||
              isMissing(mask, kInitTabAction, given.action) ||
              isMissing(mask, kInitTabCommand, given.command))) {
    op.fail(3, status::required_field_missing);
  }
  return op.result();
}

int GenRegInitTab::PrintRecord(void* record) {
  const GenRegInitTabRecord& given = recordAt(record);
  if ((given.flags & kInitTabHasComment) == 0) return 0;
  printField("ID      ", given.id);
  printField("RunLevel", given.runlevel);
  printField("Action  ", given.action);
  printField("Command ", given.command);
  printField("Comment ", given.comment);
  return 0;
}

int GenRegInitTab::GetRecordSize(void*, unsigned long* size) {
  return GetMaxRecordSize(size);
}

int GenRegInitTab::GetMaxRecordSize(unsigned long* size) {
  *size = sizeof(GenRegInitTabRecord);
  return 0;
}
