// SPDX-License-Identifier: Apache-2.0
// The common part of the three parser targets: one line is parsed by a format and by the model, and
// the record that results is laid out, parsed again, compared, checked and dumped.
#pragma once

#include <cstring>
#include <memory>
#include <optional>

#include "fuzz/fuzz_support.h"
#include "genreg/text/line_io.h"
#include "tests/support/text_model.h"

namespace vrxfuzz {

// Null as a text of its own, so that missing and empty are told apart.
inline void requireText(const char* got, const std::optional<std::string>& wanted,
                        const char* what) {
  require((got != nullptr) == wanted.has_value(), what, wanted.value_or("(missing)"));
  require(got == nullptr || *wanted == got, what, wanted.value_or(""));
}

// Slots is the format's class, Record its record; `compare` holds a record against the model's.
template <class Slots, class Record>
void runParser(vrxtest::model::Format format, const std::string& line,
               void (*compare)(const Record&, const vrxtest::model::Record&)) {
  constexpr int kRubbish = 0x5A;
  const std::string text = line.substr(0, line.find('\0'));
  std::string given = text;
  const auto record = std::make_unique<Record>();
  std::memset(static_cast<void*>(record.get()), kRubbish, sizeof(Record));
  const bool parsed = Slots::ParseLine(record.get(), given.data()) == 0;
  require(given == text, "the line given was changed");
  // A record's own line holds no more.
  const auto wanted = vrxtest::model::parse(format, text.substr(0, kGenRegLineSize - 1));
  require(parsed == wanted.has_value(), "parsed or not", text);
  if (parsed) compare(*record, *wanted);

  (void)Slots::ValidateRecord(~0ULL, record.get());  // either answer is right
  (void)Slots::MatchRecord(~0ULL, record.get(), record.get());
  char out[kGenRegLineSize] = {};
  std::memcpy(out, text.data(), text.size() < sizeof out ? text.size() : sizeof out - 1);
  const std::string before = out;
  const bool written = Slots::FormatLine(record.get(), out) == 0;
  require(written || before == out, "a line that is refused was changed", text);
  require(std::memchr(out, '\0', sizeof out) != nullptr, "line not terminated");
  const auto again = std::make_unique<Record>();
  (void)Slots::ParseLine(again.get(), out);  // either answer is right
}

}  // namespace vrxfuzz
