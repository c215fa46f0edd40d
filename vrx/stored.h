// SPDX-License-Identifier: Apache-2.0
// Records as they were read, and the lines of a file as they stand.
//
// A value type (Instance, ProfileEntry, Port ...) says what a program means. A Stored one is such a
// value that came out of a file, with what the value does not show: fields of later revisions, the
// text of its line. Handing it to replace() or remove() makes the change on exactly that record,
// or not at all.
//
//     auto old = profile.find("DIAG");
//     vrx::ProfileEntry next = *old;
//     next.value = "4";
//     vrx::Status status = profile.replace(*old, next);  // notFound() when it is no longer as read
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "globalreg/record.h"

namespace vrx {

// A value of type T as it was read. It owns all it holds and outlives the registry object. Programs
// look at `image` when they want more than the value tells, and leave it as it is.
template <class T>
struct Stored : T {
  Stored() : T(), image() {}
  typename T::Image image;
};

// A field of a record that a later revision of the format has added.
struct LaterField {
  unsigned bit;       // its place in the field mask
  std::string bytes;  // as they lie in the file
};

// Of a record of the global registry: the library's own record, and the fields that it does not
// know. A field is present while its bit of record.FieldMask is set.
struct GlobalImage {
  GlobalRegRecord record;
  std::vector<LaterField> laterFields;
};

namespace detail {

inline std::string withoutLineEnd(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace detail

// Of a record that is a line.
struct LineImage {
  std::size_t line = 0;    // the number of the first physical line, from 1
  std::string text;        // the bytes of the line, line ends included
  std::string logical;     // as the library reads it: continuation lines joined
  bool understood = true;  // false: the entry is shown, and refused by every change

  // The line as it is shown, without its last line end.
  std::string shown() const { return detail::withoutLineEnd(text); }
};

// What a line is: a record, a remark, nothing, or something that the syntax does not allow.
enum class LineKind { entry, comment, blank, unparsed };

// One logical line of a file.
struct Line {
  std::size_t number;  // of its first physical line, from 1
  LineKind kind;
  std::string text;  // as it stands, without the last line end
};

// What becomes of text of a line that no field shows (words behind the closing quote of a profile's
// value, a port written as "021") when a change would drop it.
enum class Loss { refused, accepted };

}  // namespace vrx
