// SPDX-License-Identifier: Apache-2.0
// Unified diffs, by dtl, of lines that are safe to show.
#include <dtl/dtl.hpp>
#include <fmt/format.h>

#include <cstring>
#include <sstream>

#include "cli/output.h"
#include "cli/text.h"

namespace cli {

namespace {

std::vector<std::string> recordLines(const Noun& noun, const std::optional<Row>& row) {
  std::vector<std::string> lines;
  if (!row) return lines;
  for (std::size_t i = 0; i < noun.fields.size(); ++i) {
    const Value& value = row->values[i];
    if (isAbsent(value)) continue;
    lines.push_back(fmt::format("{}={}", noun.fields[i].name, displayText(valueText(value))));
  }
  return lines;
}

// A range without lines begins before the first one; dtl counts from 1 there too.
std::string withEmptyRange(std::string hunks, const char* wrong, const char* right) {
  const std::size_t at = hunks.find(wrong);
  if (at < hunks.find('\n')) hunks.replace(at, std::strlen(wrong), right);
  return hunks;
}

std::string label(const std::optional<Row>& row, const std::string& remark) {
  if (!row) return "/dev/null";
  return displayText(row->key) + remark;
}

}  // namespace

std::string unifiedDiff(const std::vector<std::string>& before,
                        const std::vector<std::string>& after, const std::string& oldLabel,
                        const std::string& newLabel) {
  dtl::Diff<std::string> difference(before, after);
  difference.compose();
  difference.composeUnifiedHunks();
  std::ostringstream printed;
  difference.printUnifiedFormat(printed);
  std::string hunks = printed.str();
  if (hunks.empty()) return {};
  if (before.empty()) hunks = withEmptyRange(std::move(hunks), "-1,0 ", "-0,0 ");
  if (after.empty()) hunks = withEmptyRange(std::move(hunks), "+1,0 ", "+0,0 ");
  return fmt::format("--- {}\n+++ {}\n{}", oldLabel, newLabel, hunks);
}

std::string recordDiff(const Noun& noun, const std::optional<Row>& before,
                       const std::optional<Row>& after, const std::string& newRemark) {
  return unifiedDiff(recordLines(noun, before), recordLines(noun, after), label(before, ""),
                     label(after, newRemark));
}

std::string colorDiff(const std::string& diff) {
  std::string colored;
  for (const std::string& text : split(diff, '\n')) {
    const char* color = nullptr;
    if (text.rfind('-', 0) == 0) color = "\033[31m";
    if (text.rfind('+', 0) == 0) color = "\033[32m";
    if (text.rfind("@@", 0) == 0) color = "\033[36m";
    colored += color == nullptr ? text : color + text + "\033[0m";
    colored += '\n';
  }
  colored.pop_back();
  return colored;
}

}  // namespace cli
