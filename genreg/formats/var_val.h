// SPDX-License-Identifier: Apache-2.0
// Profiles: lines of the form name = value, with "#" comments and blank lines.
// docs/text-formats.md tells the syntax and what survives an update.
//
//     unsigned int status = 0;
//     GenRegVarVal profile("/etc/vrx/profile", &status);
//     int level = 0;
//     if (status == 0 && profile.GetSintValue("DIAG", &level)) ...
#pragma once

#include <cstddef>

#include "genreg/text/text_store.h"

// Bits of GenRegVarValRecord::contents. Neither bit stands for a blank line.
constexpr unsigned int kVarValHasComment = 0x1;
constexpr unsigned int kVarValHasValue = 0x2;

// Bits of the field mask.
constexpr unsigned long long kVarValVariable = 0x1;
constexpr unsigned long long kVarValValue = 0x2;

// One line. A caller that builds a record for Add or Change fills `contents` and the strings, which
// stay the caller's; ParseLine points them into `line`.
struct GenRegVarValRecord {
  unsigned int contents;
  char* comment;   // the text behind the "#", or null
  char* variable;  // the name, or null
  char* value;     // as written, double quotes included, or null
  char line[kGenRegLineSize];
};

// The layout in 32-bit and 64-bit builds: 2064 and 2080 bytes.
static_assert(offsetof(GenRegVarValRecord, comment) == sizeof(char*));
static_assert(offsetof(GenRegVarValRecord, variable) == 2 * sizeof(char*));
static_assert(offsetof(GenRegVarValRecord, value) == 3 * sizeof(char*));
static_assert(offsetof(GenRegVarValRecord, line) == 4 * sizeof(char*));
static_assert(sizeof(GenRegVarValRecord) == (sizeof(char*) == 4 ? 2064 : 2080));

// Several lines may give one variable (feature 0x2): Add does not look for it, Change and Delete
// act on every match. Updates are verified before they are committed (feature 0x1).
class VRXGENREG_API GenRegVarVal : public GenRegText {
 public:
  // *status receives 0, or 0x900001F3 (null or empty path), 0x900001F4 (longer than 1017 bytes),
  // 0x900001B8, 0x900001B9 (no base name, directory): the object must then not be used. Sets
  // bCompactFormattedLine back to false.
  GenRegVarVal(const char* path, unsigned int* status);
  ~GenRegVarVal();

  // Each looks up the first line for `name` and converts its value. False, and *out as it was, when
  // there is none or its text does not convert as a whole; a quoted value keeps its quotes and so
  // is no number. Numbers out of range saturate; an empty value is 0.
  bool GetBooleanValue(const char* name, bool* out);  // the words of ossStrToBoolean
  // *out points to text that belongs to the object and lives until its next lookup by these
  // getters.
  bool GetStringValue(const char* name, const char** out);
  bool GetDoubleValue(const char* name, double* out);
  bool GetSintValue(const char* name, int* out);
  bool GetUintValue(const char* name, unsigned int* out);  // "-1" wraps around, as strtoul has it

  // The slots.

  // 1 when the stored line has a variable and agrees in the fields of the mask, byte by byte. A
  // missing text is an empty one. Comments are not compared.
  static int MatchRecord(unsigned long long mask, void* stored, void* given);
  // 0x900001F3 null record; 0x900001F5 contents 0; 0x9000020A, 0x9000020B variable, value missing.
  static int ValidateRecord(unsigned long long mask, void* record);
  // Dumps the record to standard output; 0.
  static int PrintRecord(void* record);
  static int GetRecordSize(void* record, unsigned long* size);
  static int GetMaxRecordSize(unsigned long* size);
  // 0x900001F3 null record or line; 0x90000207 a variable line without "="; 0x90000208 an opening
  // double quote without a closing one.
  static int ParseLine(void* record, char* line);
  // Lays the record out with the white space of the line that `line` holds. 0x900001F3 null record
  // or line; 0x90000207 that line has no "=" behind its name; 0x90000273 longer than 2046 bytes.
  static int FormatLine(void* record, char* line);

 private:
  bool find(const char* name);

  GenRegVarValRecord found_;
};
