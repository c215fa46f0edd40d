// SPDX-License-Identifier: Apache-2.0
// The profile format's slots on a hostile line.
#include "fuzz/parser_fuzz.h"
#include "genreg/formats/var_val.h"

namespace {

void compare(const GenRegVarValRecord& got, const vrxtest::model::Record& wanted) {
  vrxfuzz::requireText(got.variable, wanted.name, "variable");
  vrxfuzz::requireText(got.value, wanted.value, "value");
  vrxfuzz::requireText(got.comment, wanted.note, "comment");
  const unsigned contents =
      (wanted.comment ? kVarValHasComment : 0U) | (wanted.entry ? kVarValHasValue : 0U);
  vrxfuzz::require(got.contents == contents, "contents");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vrxfuzz::runParser<GenRegVarVal, GenRegVarValRecord>(vrxtest::model::Format::kProfile,
                                                       vrxfuzz::bytesOf(data, size), compare);
  return 0;
}
