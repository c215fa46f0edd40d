// SPDX-License-Identifier: Apache-2.0
// Unified diffs of lines that are safe to show: the difference by dtl, the hunks as diff -u has
// them.
#include <dtl/dtl.hpp>
#include <fmt/format.h>

#include <algorithm>

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
  for (const UnknownField& field : row->unknown)
    lines.push_back(fmt::format("unknown field {}={}", field.bit, hexText(field.bytes)));
  return lines;
}

constexpr std::size_t kContext = 3;

// One line of a script that leads from the old lines to the new ones.
struct Step {
  char sign;  // ' ' in both, '-' in the old ones only, '+' in the new ones only
  std::string text;
};

// Within a run of changes the lines that go stand before those that come.
void removalsFirst(std::vector<Step>* steps) {
  const auto isCommon = [](const Step& step) { return step.sign == ' '; };
  const auto isRemoval = [](const Step& step) { return step.sign == '-'; };
  for (auto at = steps->begin(); at != steps->end();) {
    const auto begin = std::find_if_not(at, steps->end(), isCommon);
    at = std::find_if(begin, steps->end(), isCommon);
    std::stable_partition(begin, at, isRemoval);
  }
}

std::vector<Step> stepsBetween(const std::vector<std::string>& before,
                               const std::vector<std::string>& after) {
  dtl::Diff<std::string> difference(before, after);
  difference.compose();
  std::vector<Step> steps;
  for (const auto& [text, info] : difference.getSes().getSequence()) {
    const bool common = info.type == dtl::SES_COMMON;
    steps.push_back({common ? ' ' : (info.type == dtl::SES_DELETE ? '-' : '+'), text});
  }
  removalsFirst(&steps);
  return steps;
}

// A stretch of steps: changes no further apart than their context, and the context around them.
struct Hunk {
  std::size_t begin;
  std::size_t end;
};

std::vector<Hunk> hunksOf(const std::vector<Step>& steps) {
  std::vector<Hunk> hunks;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (steps[i].sign == ' ') continue;
    const std::size_t begin = i - std::min(i, kContext);
    const std::size_t end = std::min(i + 1 + kContext, steps.size());
    if (hunks.empty() || begin > hunks.back().end) {
      hunks.push_back({begin, end});
    } else {
      hunks.back().end = end;
    }
  }
  return hunks;
}

// "START,COUNT" of the steps of a hunk that are lines of one side; `other` is the other side's
// sign. A range without lines stands behind the line before it.
std::string rangeOf(const std::vector<Step>& steps, const Hunk& hunk, char other) {
  const auto isLine = [other](const Step& step) { return step.sign != other; };
  const auto at = [&steps](std::size_t i) { return steps.begin() + static_cast<long>(i); };
  const auto before = std::count_if(steps.begin(), at(hunk.begin), isLine);
  const auto count = std::count_if(at(hunk.begin), at(hunk.end), isLine);
  const auto start = count == 0 ? before : before + 1;
  return count == 1 ? fmt::format("{}", start) : fmt::format("{},{}", start, count);
}

// Lines as they are shown, tabs and all; of a last line without a line end that is said too, so
// that it differs from the same line with one.
std::vector<std::string> fileLines(const std::optional<std::string>& contents) {
  std::vector<std::string> lines;
  if (!contents || contents->empty()) return lines;
  for (const std::string& line : split(*contents, '\n')) {
    std::vector<std::string> cells;
    for (const std::string& cell : split(line, '\t'))
      cells.push_back(displayText(cell));
    lines.push_back(join(cells, "\t"));
  }
  if (lines.back().empty()) {
    lines.pop_back();
  } else {
    lines.back() += "\n\\ No newline at end of file";
  }
  return lines;
}

std::string label(const std::optional<Row>& row, const std::string& remark) {
  if (!row) return "/dev/null";
  return displayText(row->key) + remark;
}

}  // namespace

std::string unifiedDiff(const std::vector<std::string>& before,
                        const std::vector<std::string>& after, const std::string& oldLabel,
                        const std::string& newLabel) {
  const std::vector<Step> steps = stepsBetween(before, after);
  std::string text;
  for (const Hunk& hunk : hunksOf(steps)) {
    text += fmt::format("@@ -{} +{} @@\n", rangeOf(steps, hunk, '+'), rangeOf(steps, hunk, '-'));
    for (std::size_t i = hunk.begin; i < hunk.end; ++i)
      text += fmt::format("{}{}\n", steps[i].sign, steps[i].text);
  }
  return text.empty() ? text : fmt::format("--- {}\n+++ {}\n{}", oldLabel, newLabel, text);
}

std::string recordDiff(const Noun& noun, const std::optional<Row>& before,
                       const std::optional<Row>& after, const std::string& newRemark) {
  return unifiedDiff(recordLines(noun, before), recordLines(noun, after), label(before, ""),
                     label(after, newRemark));
}

std::string fileDiff(const std::string& path, const std::optional<std::string>& before,
                     const std::optional<std::string>& after, const std::string& newRemark) {
  const std::string name = displayText(path);
  return unifiedDiff(fileLines(before), fileLines(after), before ? name : "/dev/null",
                     after ? name + newRemark : "/dev/null");
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
