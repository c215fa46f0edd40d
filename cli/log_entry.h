// SPDX-License-Identifier: Apache-2.0
// One entry of the change log, read back from its text.
//
// The library writes an entry as one line:
//
//   TS="...";CALLER=...;PID=...;U=...;BL=...;FP=...;PATH=...;ACT=...;CL="...";REC=V,VRX,A,1,
//
// and a change's second record behind "!". A record is a letter and a fixed number of fields with
// commas between them. Paths, arguments and fields stand there as they are, commas, line ends and
// names like ";REC=" included, so some entries can be read in several ways. None of them is chosen:
// who looks into the log wants to know what happened. Not here: where entries begin and end in the
// file (log_cutter.h), what is shown of them (log.cpp).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/value.h"

namespace cli {

enum class EntryState {
  read,       // it can be read in one way
  ambiguous,  // in several: a text in it holds what separates texts
  unreadable  // in none: it was cut, or something else has written it
};

// A record as it was logged: the values in the order of its noun's fields. What is absent from a
// record leaves no trace but its comma, so an absent text cannot be told from an empty one.
struct LoggedRecord {
  std::string noun;
  std::vector<Value> values;
};

struct LogEntry {
  std::string time;    // as 2024-01-01T12:00:00, where the writer was; empty for one it cannot tell
  std::string caller;  // a function's name, or UNKNOWN
  std::int64_t process = 0;
  std::uint64_t user = 0;
  std::string buildLevel;
  std::uint64_t fixpack = 0;
  std::string registry;
  std::string action;                  // add, change, delete or unknown
  std::optional<std::string> command;  // the arguments with blanks between them
  std::optional<LoggedRecord> first;   // nothing for a record of no known type
  std::optional<LoggedRecord> second;  // of a change, what the record became
};

// Reads an entry, which ends before its line end. *entry is set when it could be read, and holds
// nothing of use otherwise.
EntryState readLogEntry(std::string_view text, LogEntry* entry);

}  // namespace cli
