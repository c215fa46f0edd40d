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
    takeFront(at + 1, Front::entry, entry);
  } else if (size > kLongest) {
    takeFront(kLongest, Front::piece, entry);
  } else {
    searched_ = size - std::min(size, kBegin.size() - 1);
    return false;
  }
  return true;
}

bool EntryCutter::last(Unended unended, LoggedText* entry) {
  const bool ended = !left().empty() && left().back() == '\n';
  if (left().empty() || (!ended && unended == Unended::awaited)) return false;
  takeFront(left().size(), Front::entry, entry);
  return true;
}

void EntryCutter::takeFront(std::size_t size, Front front, LoggedText* entry) {
  entry->line = line_;
  entry->text = left().substr(0, size);
  line_ += static_cast<std::size_t>(std::count(entry->text.begin(), entry->text.end(), '\n'));
  entry->ended = front == Front::entry && entry->text.back() == '\n';
  entry->whole = entry->ended && !inPieces_;
  inPieces_ = front == Front::piece;
  if (entry->ended) entry->text.pop_back();
  taken_ += size;
  searched_ = 0;
}

}  // namespace cli
