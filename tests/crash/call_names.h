// SPDX-License-Identifier: Apache-2.0
// The system calls that a traced program of either word size makes, under one name each.
#pragma once

namespace crash {

enum class WordSize { k32, k64 };

struct CallRow {
  const char* name;
  int number64;  // -1 where that word size has no such call
  int number32;
  const char* arguments;  // one letter each: p path, f descriptor, - anything else
};

// The row of a call, or null for one that the table lacks.
const CallRow* findCall(WordSize size, int number);

}  // namespace crash
