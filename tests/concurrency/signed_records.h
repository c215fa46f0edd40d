// SPDX-License-Identifier: Apache-2.0
// Records that tell who wrote them, in which of its updates, and whether they are whole: each has a
// writer and a slot in its name, a sequence number in another field, and for a comment a checksum
// over all of its other fields. The objects behind the formats stand in tests/support.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/any_registry.h"

namespace vrxtest {

// What a record says of itself. A writer has a few slots, of which each is one record or none.
struct Claim {
  unsigned writer = 0;
  unsigned slot = 0;
  unsigned sequence = 0;  // from 1 to 65535
};

// A format and how its records are signed.
struct SignedFormat {
  const char* name;
  unsigned long long (*mask)(const Claim& claim);  // finds the record by its writer and slot
  // All fields but the comment, as the words that Format::parse takes; longer and shorter by the
  // sequence number, so that records rarely fall into the places of others.
  std::vector<std::string> (*words)(const Claim& claim);
  // The same words read off a record, and its comment.
  std::vector<std::string> (*fields)(const void* record, std::string* comment);
  // The claim that the fields make; false when they make none.
  bool (*claimed)(const std::vector<std::string>& fields, Claim* claim);
  // As Format::use.
  void (*use)(char* path, const std::function<void(AnyRegistry&)>& work);

  std::shared_ptr<void> blank() const { return findFormat(name)->blank(); }
  std::shared_ptr<void> record(const Claim& claim) const;
  std::shared_ptr<void> key(
      const Claim& claim) const;  // without a comment, which would be compared
  // False when the record is nobody's, or its checksum is not that of its fields.
  bool read(const void* record, Claim* claim) const;
};

// The five formats: global, profile, services, inittab, binvar. The objects of global take their
// path from the environment.
const std::vector<SignedFormat>& signedFormats();

// Profiles whose objects each lock a file of their own, one object a process, so that no update
// waits for another: what a judge of contending updates must find fault with.
const SignedFormat& unserialisedFormat();

}  // namespace vrxtest
