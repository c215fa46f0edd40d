// SPDX-License-Identifier: Apache-2.0
// What the three faces of text files share beyond the verbs: opening, and the lines themselves.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vrx/detail/text_store.h"
#include "vrx/records.h"

namespace vrx {
namespace detail {

template <class Format>
class TextRecords : public Records<TextStore<Format>> {
 public:
  using Base = Records<TextStore<Format>>;

  // Every line of the file as it stands: entries, comments, blanks, and what does not parse.
  Result<std::vector<Line>> lines() const {
    LineScan<Format> scan(this->store());
    std::vector<Line> lines;
    TextLine line;
    bool ended = false;
    Status status = scan.open();
    while (status && !ended) {
      status = scan.nextLine(&line, &ended);
      if (status && !ended) {
        lines.push_back({line.number, scan.kindOf(line), withoutLineEnd(line.raw)});
      }
    }
    const Status closed = scan.close();
    if (!status) return status;
    if (!closed) return closed;
    return lines;
  }

  // Text of the line of `old` that no field shows, and that would go when `next` takes its place;
  // empty when nothing is lost.
  static std::string lostText(const Stored<typename Format::Record>& old,
                              const typename Format::Record& next) {
    return TextStore<Format>::lostText(old, next);
  }

 protected:
  explicit TextRecords(std::string path)
      : Base(TextStore<Format>(std::make_shared<Opened<typename Format::Registry>>(path, path))) {}
};

}  // namespace detail
}  // namespace vrx
