// SPDX-License-Identifier: Apache-2.0
// What the binary store does to a registry, told a second time with a vector of records: straight
// from the headers and docs/packed-record-format.md, sharing nothing with the library.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace vrxtest::model {

// A record as the name of its type (empty where a format has none) and its present fields, texts
// and decimal numbers, by bit number.
struct BinaryRecord {
  std::string type;
  std::map<unsigned, std::string> fields;
};

enum class FieldKind { kText, kNumber, kSwitch, kLowByte };

struct BinaryField {
  const char* name;
  FieldKind kind;
  bool mayBeRequired = true;  // the mask of an operation can ask for it
  bool compared = true;       // two records that differ in this field alone are the same
};

// What the store has to know of a format.
struct BinaryRules {
  std::map<std::string, std::vector<BinaryField>> types;  // fields in bit order
  bool duplicates = false;  // several records may match, and Add looks for none
  bool validates = true;    // records are looked at before anything else
};

class BinaryModel {
 public:
  explicit BinaryModel(const BinaryRules& rules) : rules_(rules) {}

  bool exists = false;
  std::vector<BinaryRecord> records;

  unsigned add(unsigned long long mask, const BinaryRecord& record);
  unsigned change(unsigned long long mask, const BinaryRecord& key, const BinaryRecord& record);
  unsigned remove(unsigned long long mask, const BinaryRecord& key);
  // *found is the first match.
  unsigned get(unsigned long long mask, const BinaryRecord& key, const BinaryRecord** found) const;

 private:
  bool isAcceptable(unsigned long long mask, const BinaryRecord& record) const;
  bool matches(unsigned long long mask, const BinaryRecord& a, const BinaryRecord& b) const;
  BinaryRecord stored(BinaryRecord record) const;

  const BinaryRules& rules_;
};

}  // namespace vrxtest::model
