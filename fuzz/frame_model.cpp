// SPDX-License-Identifier: Apache-2.0
// The walk over frames, and what an operation makes of it.
#include "fuzz/frame_model.h"

#include <cstdint>
#include <cstring>

namespace vrxfuzz {
namespace {

constexpr std::size_t kField = 4;
constexpr unsigned long long kEverything = ~0ULL;

std::string reordered(std::string field, ByteOrder order) {
  return order == ByteOrder::kHost ? field : std::string(field.rbegin(), field.rend());
}

std::uint32_t lengthFrom(const std::string& field, ByteOrder order) {
  std::uint32_t length = 0;
  std::memcpy(&length, reordered(field, order).data(), kField);
  return length;
}

}  // namespace

StoredFrame frameAt(const std::string& bytes, std::size_t offset, ByteOrder order) {
  if (offset >= bytes.size()) return {kEnd, offset, ""};
  if (bytes.size() - offset < kField) return {kPastEnd, bytes.size(), ""};
  const std::size_t body = offset + kField;
  const std::uint32_t length = lengthFrom(bytes.substr(offset, kField), order);
  if (length > bytes.size() - body) return {kPastEnd, body, ""};
  return {kDone, body + length, bytes.substr(body, length)};
}

std::string framed(const std::string& body, ByteOrder order) {
  const auto length = static_cast<std::uint32_t>(body.size());
  std::string field(kField, '\0');
  std::memcpy(field.data(), &length, kField);
  return reordered(field, order) + body;
}

// Shorter bodies are filled up with zeros; of longer ones the first bytes count.
std::string PlainModel::recordOf(const std::string& body) const {
  std::string record = body;
  record.resize(rules_.size, '\0');
  return record;
}

unsigned PlainModel::add(unsigned long long mask, const std::string& record) {
  if (!rules_.isAcceptable(mask, record)) return kBadRecord;
  std::size_t at = firstRecord_;
  while (!rules_.appendsInPlace) {
    const StoredFrame frame = frameAt(bytes, at, rules_.order);
    if (frame.status == kEnd) break;
    if (frame.status != kDone) return kNotRead;
    if (!rules_.duplicates && rules_.agree(mask, recordOf(frame.body), record)) return kDuplicate;
    at = frame.next;
  }
  bytes += framed(record, rules_.order);
  return kDone;
}

unsigned PlainModel::change(unsigned long long mask, const std::string& key,
                            const std::string& record) {
  if (!rules_.isAcceptable(mask, record)) return kBadRecord;
  std::string copy = bytes.substr(0, firstRecord_);
  unsigned count = 0;
  for (std::size_t at = firstRecord_;;) {
    const StoredFrame frame = frameAt(bytes, at, rules_.order);
    if (frame.status == kEnd) break;
    if (frame.status != kDone) return kNotRead;
    const std::string stored = recordOf(frame.body);
    const bool agrees = rules_.agree(mask, stored, key);
    if (agrees && rules_.agree(kEverything, stored, record)) return kUnchanged;
    if (agrees && ++count > 1 && !rules_.duplicates) return kSeveral;
    copy += agrees ? framed(record, rules_.order) : bytes.substr(at, frame.next - at);
    at = frame.next;
  }
  if (count == 0) return kNoMatch;
  bytes = copy;
  return kDone;
}

unsigned PlainModel::remove(unsigned long long mask, const std::string& key) {
  if (!rules_.isAcceptable(mask, key)) return kBadRecord;
  std::string copy = bytes.substr(0, firstRecord_);
  unsigned count = 0;
  for (std::size_t at = firstRecord_;;) {
    const StoredFrame frame = frameAt(bytes, at, rules_.order);
    if (frame.status == kEnd) break;
    if (frame.status != kDone) return kNotRead;
    const bool agrees = rules_.agree(mask, recordOf(frame.body), key);
    if (agrees && ++count > 1 && !rules_.duplicates) return kSeveral;
    if (!agrees) copy += bytes.substr(at, frame.next - at);
    at = frame.next;
  }
  if (count == 0) return kNoMatch;
  bytes = copy;
  return kDone;
}

unsigned PlainModel::get(unsigned long long mask, const std::string& key,
                         std::string* found) const {
  std::size_t at = firstRecord_;
  const unsigned status = next(mask, key, &at, found);
  return status == kEnd ? unsigned{kNoMatch} : status;
}

unsigned PlainModel::next(unsigned long long mask, const std::string& key, std::size_t* offset,
                          std::string* found) const {
  if (!rules_.isAcceptable(mask, key)) return kBadRecord;
  for (;;) {
    const StoredFrame frame = frameAt(bytes, *offset, rules_.order);
    *offset = frame.next;
    if (frame.status == kEnd) found->assign(rules_.size, '\0');
    if (frame.status != kDone) return frame.status == kEnd ? unsigned{kEnd} : unsigned{kNotRead};
    if (!rules_.agree(mask, recordOf(frame.body), key)) continue;
    *found = recordOf(frame.body);
    return kDone;
  }
}

}  // namespace vrxfuzz
