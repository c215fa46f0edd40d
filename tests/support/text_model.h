// SPDX-License-Identifier: Apache-2.0
// What the three text formats do to a file, told a second time with strings alone: straight from
// the rules in docs/text-formats.md, sharing nothing with the library. Tests compare the two.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vrxtest::model {

enum class Format { kProfile, kServices, kInitTable };

// A record of any of the formats. Texts that a format does not have stay missing.
struct Record {
  bool comment = false;   // has one, or, as a services line, is blank
  bool entry = false;     // has a variable, a service, an init table entry
  bool notKnown = false;  // services: port/protocol not understood
  std::optional<std::string> note;
  std::optional<std::string> name;      // variable, service, id
  std::optional<std::string> value;     // value, protocol, action
  std::optional<std::string> runlevel;  // init table
  std::optional<std::string> command;   // init table
  unsigned port = 0;                    // services, as one reads it
  std::vector<std::string> aliases;
};

// A line as it stands in the file, as its format sees it, and what that makes.
struct Line {
  std::string raw;
  std::string text;
  bool piece = false;            // of a line that does not fit 2047 bytes
  std::optional<Record> record;  // missing when the line does not parse
};

std::vector<Line> linesOf(Format format, const std::string& bytes);
std::optional<Record> parse(Format format, const std::string& text);
bool matches(Format format, unsigned long long mask, const Record& stored, const Record& given);
bool isAcceptable(Format format, unsigned long long mask, const Record& record);
// The record as a line with its newline, laid out over `old`; missing when it cannot be.
std::optional<std::string> lineFor(Format format, const Record& record, const std::string& old);

// The status of an update and the file after it.
struct Outcome {
  unsigned status = 0;
  std::string bytes;
};

Outcome add(Format format, const std::string& bytes, unsigned long long mask, const Record& record);
Outcome change(Format format, const std::string& bytes, unsigned long long mask, const Record& key,
               const Record& record);
Outcome remove(Format format, const std::string& bytes, unsigned long long mask, const Record& key);
// The text of the first line that a lookup finds.
std::optional<std::string> find(Format format, const std::string& bytes, unsigned long long mask,
                                const Record& key);

}  // namespace vrxtest::model
