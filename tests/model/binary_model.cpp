// SPDX-License-Identifier: Apache-2.0
// The binary model's updates and lookups.
#include "tests/model/binary_model.h"

namespace vrxtest::model {
namespace {

enum Status : unsigned {
  kDone = 0,
  kNotOpened = 0x900001C5,
  kDuplicate = 0x900001F1,
  kNoMatch = 0x900001F6,
  kUnchanged = 0x900001F7,
  kSeveral = 0x900001F8,
  kBadRecord = 0x900001FC,
  kNoRegistry = 0x90000513
};

constexpr unsigned long long kEverything = ~0ULL;

// The value that counts; an absent field is empty or zero.
std::string valueOf(const BinaryField& field, unsigned bit, const BinaryRecord& record) {
  const auto at = record.fields.find(bit);
  if (at == record.fields.end()) return field.kind == FieldKind::kText ? "" : "0";
  if (field.kind != FieldKind::kLowByte) return at->second;
  return std::to_string(std::stoul(at->second) & 0xFF);
}

bool isSound(const BinaryField& field, const std::string& value) {
  if (field.kind == FieldKind::kText) return !value.empty();
  return field.kind != FieldKind::kSwitch || value == "0" || value == "1";
}

}  // namespace

bool BinaryModel::isAcceptable(unsigned long long mask, const BinaryRecord& record) const {
  if (!rules_.validates) return true;
  if (record.fields.empty()) return false;
  const std::vector<BinaryField>& fields = rules_.types.at(record.type);
  for (unsigned bit = 0; bit < fields.size(); ++bit) {
    const auto at = record.fields.find(bit);
    const bool present = at != record.fields.end();
    if (present && !isSound(fields[bit], at->second)) return false;
    if (!present && fields[bit].mayBeRequired && (mask >> bit & 1) != 0) return false;
  }
  return true;
}

bool BinaryModel::matches(unsigned long long mask, const BinaryRecord& a,
                          const BinaryRecord& b) const {
  if (a.type != b.type) return false;
  const std::vector<BinaryField>& fields = rules_.types.at(a.type);
  for (unsigned bit = 0; bit < fields.size(); ++bit) {
    if ((mask >> bit & 1) == 0 || !fields[bit].compared) continue;
    if (valueOf(fields[bit], bit, a) != valueOf(fields[bit], bit, b)) return false;
  }
  return true;
}

BinaryRecord BinaryModel::stored(BinaryRecord record) const {
  const std::vector<BinaryField>& fields = rules_.types.at(record.type);
  for (auto& [bit, value] : record.fields)
    value = valueOf(fields[bit], bit, record);
  return record;
}

unsigned BinaryModel::add(unsigned long long mask, const BinaryRecord& record) {
  if (!isAcceptable(mask, record)) return kBadRecord;
  exists = true;
  for (const BinaryRecord& each : records) {
    if (!rules_.duplicates && matches(mask, each, record)) return kDuplicate;
  }
  records.push_back(stored(record));
  return kDone;
}

unsigned BinaryModel::change(unsigned long long mask, const BinaryRecord& key,
                             const BinaryRecord& record) {
  if (!isAcceptable(mask, record)) return kBadRecord;
  if (!exists) return kNotOpened;
  std::vector<BinaryRecord*> found;
  for (BinaryRecord& each : records) {
    if (!matches(mask, each, key)) continue;
    if (matches(kEverything, each, record)) return kUnchanged;
    if (!found.empty() && !rules_.duplicates) return kSeveral;
    found.push_back(&each);
  }
  for (BinaryRecord* each : found)
    *each = stored(record);
  return found.empty() ? kNoMatch : kDone;
}

unsigned BinaryModel::remove(unsigned long long mask, const BinaryRecord& key) {
  if (!isAcceptable(mask, key)) return kBadRecord;
  if (!exists) return kNotOpened;
  std::vector<BinaryRecord> left;
  for (const BinaryRecord& each : records) {
    if (!matches(mask, each, key)) left.push_back(each);
  }
  const std::size_t count = records.size() - left.size();
  if (count == 0) return kNoMatch;
  if (count > 1 && !rules_.duplicates) return kSeveral;
  records = left;
  return kDone;
}

unsigned BinaryModel::get(unsigned long long mask, const BinaryRecord& key,
                          const BinaryRecord** found) const {
  if (!isAcceptable(mask, key)) return kBadRecord;
  if (!exists) return kNoRegistry;
  for (const BinaryRecord& each : records) {
    if (!matches(mask, each, key)) continue;
    *found = &each;
    return kDone;
  }
  return kNoMatch;
}

}  // namespace vrxtest::model
