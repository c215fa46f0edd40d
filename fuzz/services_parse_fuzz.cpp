// SPDX-License-Identifier: Apache-2.0
// The services format's slots on a hostile line.
#include <arpa/inet.h>

#include "fuzz/parser_fuzz.h"
#include "genreg/formats/services.h"

namespace {

void compareAliases(const GenRegServicesRecord& got, const vrxtest::model::Record& wanted) {
  vrxfuzz::require((got.aliases == nullptr) == wanted.aliases.empty(), "aliases or none");
  if (got.aliases == nullptr) return;
  for (unsigned long i = 0; i < wanted.aliases.size(); ++i)
    vrxfuzz::requireText(got.aliases[i], wanted.aliases[i], "alias");
  vrxfuzz::require(got.aliases[wanted.aliases.size()] == nullptr, "end of the aliases");
}

void compare(const GenRegServicesRecord& got, const vrxtest::model::Record& wanted) {
  vrxfuzz::requireText(got.name, wanted.name, "name");
  vrxfuzz::requireText(got.protocol, wanted.value, "protocol");
  vrxfuzz::requireText(got.comment, wanted.note, "comment");
  vrxfuzz::require(got.port == htons(static_cast<std::uint16_t>(wanted.port)), "port");
  const unsigned flags = (wanted.comment ? kServicesHasComment : 0U) |
                         (wanted.entry ? kServicesHasEntry : 0U) |
                         (wanted.notKnown ? kServicesNotUnderstood : 0U);
  vrxfuzz::require(got.flags == flags, "flags");
  compareAliases(got, wanted);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vrxfuzz::runParser<GenRegServices, GenRegServicesRecord>(vrxtest::model::Format::kServices,
                                                           vrxfuzz::bytesOf(data, size), compare);
  return 0;
}
