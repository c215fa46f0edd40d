// SPDX-License-Identifier: Apache-2.0
// The host's init table: id:runlevels:action:command, with comments.
// docs/text-formats.md tells the syntax and what survives an update.
#pragma once

#include <cstddef>

#include "genreg/text/text_store.h"

// Bits of GenRegInitTabRecord::flags. Neither bit stands for a blank line.
constexpr unsigned int kInitTabHasComment = 0x1;
constexpr unsigned int kInitTabHasEntry = 0x2;

// Bits of the field mask.
constexpr unsigned long long kInitTabId = 0x1;
constexpr unsigned long long kInitTabRunlevel = 0x2;
constexpr unsigned long long kInitTabAction = 0x4;
constexpr unsigned long long kInitTabCommand = 0x8;

// One line. A caller that builds a record for Add or Change fills `flags` and the strings, which
// stay the caller's; ParseLine points them into `line`.
struct GenRegInitTabRecord {
  char line[kGenRegLineSize];
  char* comment;  // the text behind the "#" (or behind a leading ":"), or null
  unsigned int flags;
  char* runlevel;
  char* id;
  char* action;
  char* command;
};

// The layout in 32-bit and 64-bit builds: 2072 and 2096 bytes.
static_assert(offsetof(GenRegInitTabRecord, comment) == kGenRegLineSize);
static_assert(offsetof(GenRegInitTabRecord, flags) == kGenRegLineSize + sizeof(char*));
static_assert(offsetof(GenRegInitTabRecord, runlevel) == kGenRegLineSize + 2 * sizeof(char*));
static_assert(offsetof(GenRegInitTabRecord, id) == kGenRegLineSize + 3 * sizeof(char*));
static_assert(offsetof(GenRegInitTabRecord, action) == kGenRegLineSize + 4 * sizeof(char*));
static_assert(offsetof(GenRegInitTabRecord, command) == kGenRegLineSize + 5 * sizeof(char*));
static_assert(sizeof(GenRegInitTabRecord) == (sizeof(char*) == 4 ? 2072 : 2096));

// Continuation lines are joined (feature 0x80); updates are verified before they are committed
// (feature 0x1).
class VRXGENREG_API GenRegInitTab : public GenRegText {
 public:
  // An object without a file: setPaths gives it one.
  GenRegInitTab();
  // An object with paths but without slots and features, on which every operation fails; *status
  // receives what setPaths returns. It has always been so and is kept for those who link against
  // it: use the other constructor and setPaths.
  GenRegInitTab(char* path, unsigned int* status);
  ~GenRegInitTab();

  // 0x900001F3 null or empty path; 0x900001F4 longer than 1017 bytes; 0x900001B8, 0x900001B9 no
  // base name, directory. The paths are as they were after a failure.
  [[nodiscard]] GenRegStatus setPaths(char* path);

  // The slots.

  // 1 for a mask of 0; else when the stored line agrees in the fields of the mask with an entry
  // given, and in its comment with a comment given. A missing text is an empty one.
  static int MatchRecord(unsigned long long mask, void* stored, void* given);
  // 0x900001F3 null record; 0x900001F5 flags 0; 0x9000020A an entry without id, action or command
  // where the mask asks for it.
  static int ValidateRecord(unsigned long long mask, void* record);
  // Dumps the record to standard output when it has a comment; 0.
  static int PrintRecord(void* record);
  static int GetRecordSize(void* record, unsigned long* size);
  static int GetMaxRecordSize(unsigned long* size);
  // 0x900001F3 null record or line; 0x90000204, 0x90000205, 0x90000206 run levels, action, command
  // missing.
  static int ParseLine(void* record, char* line);
  // Lays the record out, without a newline. 0x900001F3 null record or line; 0x90000273 longer than
  // 2046 bytes.
  static int FormatLine(void* record, char* line);
};
