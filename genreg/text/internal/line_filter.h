// SPDX-License-Identifier: Apache-2.0
// Which lines need not be parsed: those that lack the text of the key that they are compared with.
#pragma once

#include <cstring>
#include <functional>
#include <optional>

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
    if (text_ == nullptr) return;
    const auto* bytes = reinterpret_cast<const unsigned char*>(text_);
    search_.emplace(bytes, bytes + std::strlen(text_));
  }

  // False when the line's record would not agree with the key.
  bool mayAgree(const char* line) const {
    return text_ == nullptr || std::strstr(line, text_) != nullptr;
  }

  // Steps over lines in memory whose records would not agree, and gives them.
  Passage passOver(LineReader& reader) const {
    return search_.has_value() ? reader.passOver(*search_) : Passage{};
  }

 private:
  using Search = std::boyer_moore_horspool_searcher<const unsigned char*>;

  const char* text_ = nullptr;
  std::optional<Search> search_;
};

}  // namespace genreg
