// SPDX-License-Identifier: Apache-2.0
// The text store's slots.
#include "genreg/text/text_store.h"

#include "genreg/internal/operation.h"

using namespace genreg;

GenRegText::GenRegText() {
  storeType = kGenRegTextStore;
}

GenRegText::~GenRegText() = default;

GenRegStatus GenRegText::CheckFuncPtrs() {
  Operation op(kGenRegTextCheckFuncPtrs);
  if (validateRecord == nullptr) return op.fail(1, status::no_validate_slot);
  if (getMaxRecordSize == nullptr) return op.fail(2, status::no_max_size_slot);
  if (parseLine == nullptr) return op.fail(3, status::no_parse_slot);
  if (matchRecord == nullptr) return op.fail(4, status::no_match_slot);
  if (formatLine == nullptr) return op.fail(5, status::no_format_slot);
  return op.status();
}

GenRegStatus GenRegText::OpenReg(unsigned int mode) {
  return GenRegFile::OpenReg(mode);
}

GenRegStatus GenRegText::CloseReg(unsigned int mode) {
  return GenRegFile::CloseReg(mode);
}
