// SPDX-License-Identifier: Apache-2.0
// The host's services file: name, port/protocol, aliases, comment.
// docs/text-formats.md tells the syntax and what survives an update.
#pragma once

#include <cstddef>

#include "genreg/text/text_store.h"

// Bits of GenRegServicesRecord::flags.
constexpr unsigned int kServicesHasComment = 0x1;     // or the line is blank
constexpr unsigned int kServicesHasEntry = 0x2;       // name, port and protocol
constexpr unsigned int kServicesNotUnderstood = 0x4;  // the entry's port/protocol part is not

// Bits of the field mask.
constexpr unsigned long long kServicesName = 0x1;
constexpr unsigned long long kServicesPort = 0x2;
constexpr unsigned long long kServicesProtocol = 0x4;

// Aliases that a record holds, and the size of its table with the terminator.
constexpr unsigned long kServicesMaxAliases = 127;
constexpr unsigned long kServicesAliasTableSize = kServicesMaxAliases + 1;

// One line. A caller that builds a record for Add or Change fills `flags`, `port` and the strings,
// which stay the caller's; ParseLine points them into `line` and `aliasTable`.
struct GenRegServicesRecord {
  unsigned int flags;
  char* comment;  // the text behind the "#", unprintable bytes made ".", or null
  char* name;
  char** aliases;     // ends with a null pointer; null when the line has none
  unsigned int port;  // 16 bits in network byte order, in the lower half
  char* protocol;     // "udp", "tcp", "ddp" or "divert"
  char line[kGenRegLineSize];
  char* aliasTable[kServicesAliasTableSize];
};

// The layout in 32-bit and 64-bit builds: 2584 and 3120 bytes.
static_assert(offsetof(GenRegServicesRecord, comment) == sizeof(char*));
static_assert(offsetof(GenRegServicesRecord, name) == 2 * sizeof(char*));
static_assert(offsetof(GenRegServicesRecord, aliases) == 3 * sizeof(char*));
static_assert(offsetof(GenRegServicesRecord, port) == 4 * sizeof(char*));
static_assert(offsetof(GenRegServicesRecord, protocol) == 5 * sizeof(char*));
static_assert(offsetof(GenRegServicesRecord, line) == 6 * sizeof(char*));
static_assert(offsetof(GenRegServicesRecord, aliasTable) == 6 * sizeof(char*) + kGenRegLineSize);
static_assert(sizeof(GenRegServicesRecord) == (sizeof(char*) == 4 ? 2584 : 3120));

// One line a service and protocol is assumed by nobody: which records are duplicates is the
// caller's mask to say. Updates are verified before they are committed (feature 0x1).
class VRXGENREG_API GenRegServices : public GenRegText {
 public:
  // *status receives 0, or 0x900001F3 (null or empty path), 0x900001F4 (longer than 1017 bytes),
  // 0x900001B8, 0x900001B9 (no base name, directory): the object then has no slots and no features.
  GenRegServices(char* path, unsigned int* status);
  ~GenRegServices();

  // The slots.

  // 1 when both records are comments with the same text (or without one), or both are entries that
  // agree in the fields of the mask.
  static int MatchRecord(unsigned long long mask, void* stored, void* given);
  // 0x900001F3 null record; 0x900001F5 flags 0; 0x9000020F, 0x90000210, 0x90000211 name, port,
  // protocol missing.
  static int ValidateRecord(unsigned long long mask, void* record);
  // Dumps the record to standard output, the port as it is stored; 0.
  static int PrintRecord(void* record);
  static int GetRecordSize(void* record, unsigned long* size);
  static int GetMaxRecordSize(unsigned long* size);
  // 0x900001F3 null record or line; 0x9000020C an entry without port/protocol. An entry whose
  // port/protocol is not understood gets flag 0x4 and 0; aliases beyond 127 are left out.
  static int ParseLine(void* record, char* line);
  // Lays the record out with tabs. 0x90000212, 0x90000213, 0x90000214 an entry without name, port,
  // protocol; 0x90000273 longer than 2046 bytes.
  static int FormatLine(void* record, char* line);
};
