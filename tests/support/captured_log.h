// SPDX-License-Identifier: Apache-2.0
// The diagnostic log's entries, kept for a test to look at while the object lives.
#pragma once

#include <vector>

#include "platform/osse/log.h"

namespace vrxtest {

class CapturedLog {
 public:
  struct Entry {
    unsigned int function;
    OSSStatus code;
    OSSStatus inner;
  };

  CapturedLog() { (void)ossSetLogCallback(keep, this); }  // a callback cannot be refused
  ~CapturedLog() { (void)ossSetLogSink(OSSLogSink::none); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  // How many entries `function` has made with `code`, whatever the inner code.
  int count(unsigned int function, OSSStatus code) const {
    int found = 0;
    for (const Entry& entry : entries_) {
      if (entry.function == function && entry.code == code) ++found;
    }
    return found;
  }
  // The entries that `function` has made.
  int count(unsigned int function) const {
    int found = 0;
    for (const Entry& entry : entries_)
      found += entry.function == function ? 1 : 0;
    return found;
  }

 private:
  static void keep(const OSSLogEntry* entry, void* context) {
    static_cast<CapturedLog*>(context)->entries_.push_back(
        {entry->function, entry->code, entry->inner});
  }

  std::vector<Entry> entries_;
};

}  // namespace vrxtest
