// SPDX-License-Identifier: Apache-2.0
// What the stores of texts share that depends on no format: the choice of the file, and refusals.
#include "cli/text_store.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/text.h"

namespace cli {

namespace {

namespace status = genreg::status;

std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

void refuseText(const Field& field, const std::string& text, const char* bytes, const char* why) {
  if (text.find_first_of(bytes) == std::string::npos) return;
  refuseValue(field, fmt::format("{} would not read back the same: {}", quoted(text), why));
}

}  // namespace

std::string chosenFile(const Noun& noun, const Arguments& arguments, const char* fallback,
                       const std::string& path) {
  if (!path.empty()) return path;
  if (arguments.file) return *arguments.file;
  if (fallback != nullptr) return fallback;
  throw usageFailure(fmt::format("{}: which file? Give -f FILE", noun.name));
}

void requirePath(const std::string& path, GenRegStatus rc) {
  if (rc == status::ok) return;
  Failure failure = failureOf(rc, path, path);
  failure.exit = Exit::noRegistry;
  throw failure;
}

void refuseBytes(const Field& field, const Value& value, const char* bytes, const char* why) {
  if (const auto* list = std::get_if<List>(&value)) {
    for (const std::string& item : list->items)
      refuseText(field, item, bytes, why);
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    refuseText(field, *text, bytes, why);
  }
}

void refuseLineEnds(const Noun& noun, const Row& row) {
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    if (noun.fields[i].presence == Presence::derived) continue;
    refuseBytes(noun.fields[i], row.values[i], "\n", "a line end ends the record");
  }
}

void refuseUnprintable(const Field& field, const Value& comment) {
  const std::string text = valueText(comment);
  const auto isLost = [](unsigned char c) { return c != '\t' && (c < 0x20 || c > 0x7E); };
  if (std::none_of(text.begin(), text.end(), isLost)) return;
  refuseValue(field, fmt::format("{} would not read back the same: comments are printable ASCII",
                                 quoted(text)));
}

Value shownComment(const char* comment) {
  if (comment == nullptr) return {};
  return std::string(*comment == ' ' ? comment + 1 : comment);
}

char* LineTexts::keep(const Value& value) {
  return texts_.emplace_back(valueText(value)).data();
}

char* LineTexts::keepOrNull(const Value& value) {
  return isAbsent(value) ? nullptr : keep(value);
}

char** LineTexts::keepList(const Value& value) {
  const auto* list = std::get_if<List>(&value);
  if (list == nullptr) return nullptr;
  for (const std::string& item : list->items)
    list_.push_back(texts_.emplace_back(item).data());
  list_.push_back(nullptr);
  return list_.data();
}

void refuseLine(const Noun& noun, const Row& row, GenRegStatus rc) {
  const std::string why = rc == status::ok ? "it would be no entry" : meaningOf(rc);
  std::vector<std::string> values;
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    if (isAbsent(row.values[i])) continue;
    values.push_back(fmt::format("{}={}", noun.fields[i].name, quoted(valueText(row.values[i]))));
  }
  Failure failure(Exit::refused, fmt::format("{} {}: no line can hold {}: {}", noun.name, row.key,
                                             join(values, " "), why));
  failure.code = rc;
  throw failure;
}

void refuseDifference(const Noun& noun, const Row& row, const std::vector<Value>& values) {
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    if (row.values[i] == values[i]) continue;
    refuseValue(noun.fields[i],
                fmt::format("{} would not read back the same, but as {}",
                            quoted(valueText(row.values[i])), quoted(valueText(values[i]))));
  }
}

void refuseLoss(const Noun& noun, const Row& row, const std::string& lost) {
  throw Failure(Exit::refused,
                fmt::format("{} {}: its line holds {}, which would not be kept as it stands; "
                            "with --replace it is given up",
                            noun.name, row.key, quoted(lost)));
}

void refuseNotUnderstood(const Noun& noun, const Record& record) {
  throw Failure(Exit::refused,
                fmt::format("{} {}: line {} is not understood and is left alone: {}", noun.name,
                            record.row.key, record.line, quoted(withoutLineEnd(record.text))));
}

void Obstacles::note(const TextLine& line, Joining joining) {
  // An update gives a last line the line end that it lacks.
  const std::size_t missing = line.raw.back() == '\n' ? 0 : 1;
  const bool tooLong = line.tooLong || line.raw.size() + missing >= kGenRegLineSize;
  if (tooLong && longLine == 0) longLine = line.number;
  if (line.raw.find('\0') != std::string::npos && nulLine == 0) nulLine = line.number;
  const std::string text = withoutLineEnd(line.raw);
  const bool joins = joining == Joining::continuations && !text.empty() && text.back() == '\\';
  openLine = joins ? line.number : 0;
}

GenRegStatus Obstacles::status() const {
  if (nulLine != 0) return status::read_failed;
  return longLine != 0 ? GenRegStatus{status::buffer_too_small} : GenRegStatus{status::ok};
}

std::string Obstacles::describe(GenRegStatus rc) const {
  if (rc == status::verify_failed && openLine != 0) {
    return fmt::format("line {} ends in a backslash, which would join the next one to it",
                       openLine);
  }
  if (rc != status::read_failed && rc != status::buffer_too_small) return {};
  if (rc == status::read_failed && nulLine != 0)
    return fmt::format("line {} holds a NUL byte", nulLine);
  if (longLine == 0) return {};
  return fmt::format("line {} is longer than {} bytes, with its line end", longLine,
                     kGenRegLineSize - 1);
}

LineKind kindOfUnparsed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return LineKind::blank;
  return text[first] == '#' ? LineKind::comment : LineKind::unparsed;
}

}  // namespace cli
