// SPDX-License-Identifier: Apache-2.0
// The init table format's slots on a hostile line.
#include "fuzz/parser_fuzz.h"
#include "genreg/formats/init_tab.h"

namespace {

void compare(const GenRegInitTabRecord& got, const vrxtest::model::Record& wanted) {
  vrxfuzz::requireText(got.id, wanted.name, "id");
  vrxfuzz::requireText(got.runlevel, wanted.runlevel, "run levels");
  vrxfuzz::requireText(got.action, wanted.value, "action");
  vrxfuzz::requireText(got.command, wanted.command, "command");
  vrxfuzz::requireText(got.comment, wanted.note, "comment");
  const unsigned flags =
      (wanted.comment ? kInitTabHasComment : 0U) | (wanted.entry ? kInitTabHasEntry : 0U);
  vrxfuzz::require(got.flags == flags, "flags");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vrxfuzz::runParser<GenRegInitTab, GenRegInitTabRecord>(vrxtest::model::Format::kInitTable,
                                                         vrxfuzz::bytesOf(data, size), compare);
  return 0;
}
