// SPDX-License-Identifier: Apache-2.0
// Where the entries of a change log begin and end. Not here: what an entry says (log_entry.h),
// where the bytes come from (log_file.h).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

// One entry: what stands from a line that begins like one to before the next such line, without the
// last line end. What stands before the first of them is an entry, too.
struct LoggedText {
  std::size_t line = 0;  // the number of its first line
  std::string text;
  bool ended = true;  // false: its last line end is missing, or it is a piece of something too long
  bool whole = true;  // false: not ended, or the rest of such a piece
};

// What becomes of an entry whose line end has not been seen.
enum class Unended { awaited, taken };

// Cuts bytes into entries, whatever pieces they come in.
class EntryCutter {
 public:
  // More than any entry that the library writes. What is longer is cut into pieces.
  static constexpr std::size_t kLongest = 64 * 1024;

  void add(std::string_view bytes);

  // The next entry of which the end has been seen; false when there is none.
  bool next(LoggedText* entry);

  // What is left, when nothing follows; false when that is nothing, or awaited.
  bool last(Unended unended, LoggedText* entry);

 private:
  enum class Front { entry, piece };
  void takeFront(std::size_t size, Front front, LoggedText* entry);
  std::string_view left() const { return std::string_view(bytes_).substr(taken_); }

  std::string bytes_;
  std::size_t taken_ = 0;     // what has been given away of them
  std::size_t searched_ = 0;  // no entry ends before this, counted from there
  std::size_t line_ = 1;
  bool inPieces_ = false;  // the last one was a piece
};

}  // namespace cli
