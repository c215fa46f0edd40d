// SPDX-License-Identifier: Apache-2.0
// What the instance and the service directory share: bounded copies between public structures and
// records, and the road of a set, a lookup, a removal and a list with its codes as data. Which
// field goes where is the business of each directory.
#pragma once

#include <cstddef>
#include <cstring>

#include "genreg/internal/operation.h"
#include "globalreg/global_reg.h"
#include "oss/directory.h"

namespace ossdir {

// Copies text of at most `limit` bytes into an array: cut at its width less one, terminated, and
// zero up to its end.
template <std::size_t width>
void copyText(char (&to)[width], const char* from, std::size_t limit = width) {
  const std::size_t length = strnlen(from, limit < width ? limit : width - 1);
  std::memcpy(to, from, length);
  std::memset(to + length, 0, width - length);
}

// The same from an array, which need not be terminated.
template <std::size_t width, std::size_t given>
void copyArray(char (&to)[width], const char (&from)[given]) {
  copyText(to, from, given);
}

// Copies a text that was given, empty or not, and marks its field as present.
template <std::size_t width>
void giveText(GlobalRegRecord& record, unsigned long long bit, char (&to)[width],
              const char* from) {
  if (from == nullptr) return;
  copyText(to, from);
  record.FieldMask |= bit;
}

// Copies a text and marks its field as present; an empty one leaves the field absent.
template <std::size_t width, std::size_t given>
void putText(GlobalRegRecord& record, unsigned long long bit, char (&to)[width],
             const char (&from)[given]) {
  if (from[0] == '\0') return;
  copyArray(to, from);
  record.FieldMask |= bit;
}

inline bool isMissing(const char* text) {
  return text == nullptr || *text == '\0';
}

// The codes under which one directory reports what the store refuses.
struct SetCodes {
  GenRegStatus notAdded;
  GenRegStatus notChanged;
};

// Adds the record, or replaces the one that agrees with it on `keyMask`.
GenRegStatus setRecord(genreg::Operation& op, genreg::FunctionId function,
                       unsigned long long keyMask, GlobalRegRecord& record, const SetCodes& codes);

// The first record that agrees with `key` in the fields that the key has. *found is valid on 0.
GenRegStatus findRecord(genreg::Operation& op, GlobalRegRecord& key, GlobalRegRecord* found,
                        GenRegStatus notFound);

// Removes the record that agrees with `key` in the fields that the key has.
GenRegStatus removeRecord(genreg::Operation& op, genreg::FunctionId function, GlobalRegRecord& key,
                          GenRegStatus notRemoved);

// Opens a list: *handle receives a GlobalReg with an open scan, and is untouched on failure.
// `filter` is kept, not copied. `notOpened` is the code of a scan that cannot be opened; ok stands
// for the scan's own code.
GenRegStatus openList(genreg::Operation& op, void** handle, bool hostWideOnly, const char* filter,
                      GenRegStatus notOpened);

// The next record of the list that agrees with `key` in the fields that the key has. `found`
// receives it in the form that the list's image slots give, or as a record.
inline GenRegStatus nextRecord(genreg::Operation& op, void* handle, GlobalRegRecord& key,
                               void* found, GenRegStatus notRead) {
  auto* const list = static_cast<GlobalReg*>(handle);
  const GenRegStatus rc = genreg::statusOf(list->GetNext(key.FieldMask, &key, found));
  if (rc == genreg::status::ok || rc == genreg::status::end_of_registry) return op.conclude(rc);
  return op.fail(17, notRead, rc);
}

// Closes and frees a list.
GenRegStatus closeList(genreg::Operation& op, void* handle);

}  // namespace ossdir
