// SPDX-License-Identifier: Apache-2.0
// Cutting bytes into entries.
#include "cli/log_cutter.h"

#include <algorithm>

namespace cli {

namespace {

constexpr std::string_view kBegin = "\nTS=\"";  // of an entry, with the line end before it

}  // namespace

void EntryCutter::add(std::string_view bytes) {
  bytes_.erase(0, taken_);
  taken_ = 0;
  bytes_ += bytes;
}

bool EntryCutter::next(LoggedText* entry) {
  const std::size_t size = left().size();
  const std::size_t at = left().find(kBegin, searched_);
  if (at <= kLongest) {
    takeFront(at + 1, true, entry);
  } else if (size > kLongest) {
    takeFront(kLongest, false, entry);
  } else {
    searched_ = size - std::min(size, kBegin.size() - 1);
    return false;
  }
  return true;
}

bool EntryCutter::last(bool unfinished, LoggedText* entry) {
  const bool finished = !left().empty() && left().back() == '\n';
  if (left().empty() || (!finished && !unfinished)) return false;
  takeFront(left().size(), finished, entry);
  return true;
}

void EntryCutter::takeFront(std::size_t size, bool whole, LoggedText* entry) {
  entry->line = line_;
  entry->whole = whole;
  entry->text = left().substr(0, size);
  line_ += static_cast<std::size_t>(std::count(entry->text.begin(), entry->text.end(), '\n'));
  if (whole) entry->text.pop_back();
  taken_ += size;
  searched_ = 0;
}

}  // namespace cli
