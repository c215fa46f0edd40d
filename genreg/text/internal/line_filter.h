// SPDX-License-Identifier: Apache-2.0
// Which lines need not be parsed: those that lack the text of the key that they are compared with.
#pragma once

#include <cstring>

#include "genreg/text/internal/line_reader.h"
#include "genreg/text/text_store.h"
#include "platform/osse/log.h"
#include "platform/osse/trace.h"

namespace genreg {

class LineFilter {
 public:
  // Nothing is passed over without a key, nor while somebody listens: what parsing finds strange is
  // logged.
  LineFilter(const GenRegText& store, unsigned long long mask, const void* key) {
    const GenRegLineSlots* slots = store.lineSlots;
    if (key == nullptr || slots == nullptr || slots->matchRecord != store.matchRecord ||
        slots->parseLine != store.parseLine || ossLogIsEnabled() || gtraceIsEnabled()) {
      return;
    }
    text_ = slots->requiredText(mask, key);
    if (text_ != nullptr) length_ = std::strlen(text_);
  }

  // False when the record of the reader's line would not agree with the key.
  bool mayAgree(const LineReader& reader) const {
    return text_ == nullptr || reader.mayHold(text_, length_);
  }

  // Steps over lines in memory whose records would not agree, and gives them.
  Passage passOver(LineReader& reader) const {
    return text_ != nullptr ? reader.passOver(text_, length_) : Passage{};
  }

 private:
  const char* text_ = nullptr;
  unsigned long length_ = 0;
};

}  // namespace genreg
