// SPDX-License-Identifier: Apache-2.0
// The text store: a registry whose records are lines.
//
// The store knows no line syntax. It reads logical lines and leaves parsing, matching, validating
// and formatting to the format's slots. A line that an update does not concern is copied byte for
// byte: comments, blank lines, continuation lines and lines that do not parse stay as they are.
// docs/text-formats.md tells what survives an update in each format.
//
// A line holds at most 2047 bytes. Longer ones are read in pieces: Change and Delete copy them
// through, and refuse (0x900001CD) when a piece is what matches; Add refuses (0x90000008) a file
// with such a line. An update refuses (0x900001CD) a file with a NUL byte; a lookup ignores what
// stands behind one in its line.
//
// Records hold pointers into a line of their own, so their size differs between 32-bit and 64-bit
// builds; the files do not.
#pragma once

#include "genreg/registry.h"
#include "genreg/text/line_io.h"

// A text format's way round parsing the lines that a lookup passes over or an update only carries
// along, and round copying those that it parses. It is used only while the object still has the
// slots named here that it stands in for.
struct GenRegLineSlots {
  GenRegBase::MatchRecordSlot matchRecord;
  int (*parseLine)(void* record, char* line);
  // A text that every logical line holds whose record agrees with `key` on the fields in `mask`;
  // null when there is none.
  const char* (*requiredText)(unsigned long long mask, const void* key);
  // parseLine for a line where it lies in a file's block: `length` bytes, at most 2046 and no NUL
  // among them, with a newline behind them. They are only read. May be null.
  int (*parseText)(void* record, const char* text, unsigned long length);
};

class VRXGENREG_API GenRegText : public GenRegFile {
 public:
  // Writes the record as one line into `line`, a buffer of kGenRegLineSize bytes that holds the
  // line being replaced (empty for a new one) and is unchanged on a failure.
  using FormatLineSlot = int (*)(void* record, char* line);
  // Fills the record from one logical line. Every pointer of the record is set on every path.
  using ParseLineSlot = int (*)(void* record, char* line);

  GenRegText();
  ~GenRegText();

  // 0 or the code of the first empty slot: validateRecord 0x9000021B, getMaxRecordSize 0x9000021D,
  // parseLine 0x90000220, matchRecord 0x9000021C, formatLine 0x90000221.
  [[nodiscard]] GenRegStatus CheckFuncPtrs();

  // As GenRegFile's.
  [[nodiscard]] GenRegStatus OpenReg(unsigned int mode);
  [[nodiscard]] GenRegStatus CloseReg(unsigned int mode);

  // The first record that agrees with `key` on the fields in `mask`, parsed into `result` (of
  // GetMaxRecordSize bytes, its strings in itself); all zero when none matches (0x900001F6),
  // untouched on other failures. 0x900001FC bad key; 0x900001C5 cannot be opened; 0x900001CD read
  // error; 0x900001C6 not closed; 0x9000021B, 0x9000021C, 0x9000021D, 0x90000220 empty slot;
  // 0x900001E5, 0x900001E6, 0x900001E7 record size, memory. A line that does not parse is passed
  // over.
  [[nodiscard]] GenRegStatus Get(unsigned long long mask, void* key, void* result);

  // The next such record of the open scan; with mask 0 the next line whatever it is, and `key` is
  // not looked at. 0x900001BE when there is none (`result` is cleared on the call that runs off the
  // end), 0x9000025A without a scan; otherwise as Get, and 0x900001EE.
  [[nodiscard]] GenRegStatus GetNext(unsigned long long mask, void* key, void* result);

  // Appends `record` as a line of its own behind everything else; an unterminated last line is
  // terminated first. 0x9000027D, 0x900001FC, 0x900001E5, 0x900001E6, 0x900001E7 before anything is
  // touched; 0x900001BC lock; 0x900001C5 open; 0x900001CB, 0x900001CD, 0x900001F1, 0x90000008,
  // 0x900001D0, 0x900001DF, 0x90000201, 0x900001D2 while copying; 0x900001C6, 0x900001FB at the
  // end: the file is as it was. 0x900001BD, 0x900001EE, 0x900003F2 after the update stands.
  [[nodiscard]] GenRegStatus Add(unsigned long long mask, void* record);

  // Rewrites the line that agrees with `key` on `mask`, with feature 0x2 every such line, to hold
  // `newRecord`, which is not validated but must be one (0x900001FC). 0x900001F6 none; 0x900001F7 a
  // matching line holds the new values already (no line is then changed); 0x900001F8 several;
  // 0x90000221 empty slot; 0x900001D3 the abandoned copy cannot be deleted; otherwise as Add.
  [[nodiscard]] GenRegStatus Change(unsigned long long mask, void* key, void* newRecord);

  // Deletes the line that agrees with `key` on `mask`, with feature 0x2 every such line. As Change.
  [[nodiscard]] GenRegStatus Delete(unsigned long long mask, void* key);

  // Compares the registry with its temporary copy, line by line, and commits the copy when they
  // differ exactly as the update of `mode` (2, 4 or 8) intended: (4, mask, null, added record), (2,
  // mask, key, new record), (8, mask, key, null). Called by the updates while they hold the lock.
  // 0x90000274 to 0x9000027E, 0x900001FD, 0x90000200 say what differs. 0x9000027D, 0x900001E5,
  // 0x900001E6, 0x900001E8, 0x900001E9, 0x900001C5, 0x900001CD, 0x900001C6, 0x900001F0, 0x900001EF.
  [[nodiscard]] GenRegStatus Verify(unsigned int mode, unsigned long long mask, void* key,
                                    void* newRecord);

  // Filled by the format's constructor.
  FormatLineSlot formatLine = nullptr;
  ParseLineSlot parseLine = nullptr;
  // Optional; a format's constant.
  const GenRegLineSlots* lineSlots = nullptr;
};
