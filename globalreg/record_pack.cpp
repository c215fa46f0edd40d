// SPDX-License-Identifier: Apache-2.0
// Records to packed images and back; docs/packed-record-format.md tells how an image lies.
//
// An image is the record's header, one entry (a 16-bit length and that many bytes) per present
// field in bit order, and the checksum. Fields of later revisions of the format, whose bits are not
// in the table, are entries like any other: they are stepped over when reading and carried over
// when writing. Framing, and the proof that an image ends within its frame, belong to the store.
#include <algorithm>

#include "genreg/internal/operation.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/copy_short.h"
#include "globalreg/internal/fields.h"
#include "globalreg/internal/image.h"
#include "platform/osse/memory.h"

namespace {

using namespace globalreg;
namespace status = genreg::status;

// Every image of known fields, and of a good many unknown ones, is built here without an
// allocation.
constexpr std::size_t kStackImage = 4096;

// Writes an image into a buffer. From the first piece that does not fit nothing more is written.
class ImageWriter {
 public:
  ImageWriter(unsigned char* buffer, std::size_t size) : at_(buffer), left_(size) {}

  void put(const void* bytes, std::size_t count) {
    overrun_ = overrun_ || count > left_;
    if (overrun_) return;
    std::memcpy(at_, bytes, count);
    at_ += count;
    left_ -= count;
  }
  void putEntry(const void* bytes, std::size_t count) {
    const auto length = static_cast<std::uint16_t>(count);
    put(&length, sizeof length);
    put(bytes, count);
  }
  void putNul() { put("", 1); }
  // Whether everything fitted and the buffer is full.
  bool filled() const { return !overrun_ && left_ == 0; }

 private:
  unsigned char* at_;
  std::size_t left_;
  bool overrun_ = false;
};

// What goes into an image: the record's own known fields, and unknown entries of a previous image.
struct Plan {
  const unsigned char* record;
  const unsigned char* previous;  // null when nothing is carried
  const Layout* layout;           // null for a type without fields
  std::uint64_t own;
  std::uint64_t carried;
};

// The bytes of a text that are stored before its terminator: one less than its width at most, so
// that even an unterminated field reads back terminated.
std::size_t storedTextLength(const unsigned char* record, const Field& field) {
  return std::min<std::size_t>(fieldLength(record, field), field.width - std::size_t{1});
}

std::size_t storedLength(const unsigned char* record, const Field& field) {
  switch (field.kind) {
    case FieldKind::text:
      return storedTextLength(record, field) + 1;
    case FieldKind::lowByte:
      return 1;
    case FieldKind::number64:
    case FieldKind::number32:
      break;
  }
  return field.width;
}

// Unknown entries are carried only between records of one type: in another type's image the same
// bits stand for other fields.
Plan makePlan(const unsigned char* record, const unsigned char* previous) {
  Plan plan{record, nullptr, layoutOf(recordType(record)), 0, 0};
  if (plan.layout == nullptr) return plan;
  plan.own = fieldMask(record) & plan.layout->known;
  if (previous == nullptr || recordType(previous) != plan.layout->type) return plan;
  plan.previous = previous;
  plan.carried = fieldMask(previous) & ~plan.layout->known & (bitAt(kFieldBits) - 1);
  return plan;
}

// Calls visit(entry) for each entry that is carried, and for none without need.
template <typename Visit>
void forEachCarried(const Plan& plan, Visit visit) {
  if (plan.carried == 0) return;
  EntryReader entry(plan.previous);
  for (unsigned index = 0; index < kFieldBits; ++index) {
    if (!entry.has(index)) continue;
    if ((plan.carried & bitAt(index)) != 0) visit(entry);
    entry.next();
  }
}

std::size_t plannedSize(const Plan& plan) {
  std::size_t size = kBodyOffset + kTrailerSize;
  if (plan.layout == nullptr) return size;
  for (const Field& field : *plan.layout) {
    const bool present = (plan.own & plan.layout->bit(field)) != 0;
    if (present) size += kLengthSize + storedLength(plan.record, field);
  }
  forEachCarried(plan, [&size](const EntryReader& entry) { size += entry.rawSize(); });
  return size;
}

void putField(ImageWriter& out, const unsigned char* record, const Field& field) {
  if (field.kind == FieldKind::text) {
    const std::size_t length = storedTextLength(record, field);
    const auto entryLength = static_cast<std::uint16_t>(length + 1);
    out.put(&entryLength, sizeof entryLength);
    out.put(record + field.offset, length);
    out.putNul();
    return;
  }
  if (field.kind == FieldKind::lowByte) {
    const auto byte = static_cast<unsigned char>(fieldNumber(record, field));
    out.putEntry(&byte, sizeof byte);
    return;
  }
  out.putEntry(record + field.offset, field.width);
}

// The known bits are the lowest of every type, so the carried entries come after the record's own.
void putImage(ImageWriter& out, const Plan& plan) {
  const std::uint64_t mask = plan.own | plan.carried;
  out.put(plan.record, kMaskOffset);
  out.put(&mask, sizeof mask);
  out.put(plan.record + kMissingOffset, sizeof(std::uint64_t));
  if (plan.layout != nullptr) {
    for (const Field& field : *plan.layout) {
      if ((plan.own & plan.layout->bit(field)) != 0) putField(out, plan.record, field);
    }
  }
  forEachCarried(plan, [&out](const EntryReader& entry) { out.put(entry.raw(), entry.rawSize()); });
  out.put(plan.record + kCheckSumOffset, kTrailerSize);
}

// Builds the image in `work`, which holds exactly `size` bytes, then lays it over the record.
GenRegStatus packThrough(unsigned char* work, std::size_t size, const Plan& plan,
                         unsigned char* record) {
  ImageWriter out(work, size);
  putImage(out, plan);
  if (!out.filled()) return status::packed_length_differs;
  std::memcpy(record, work, size);
  return status::ok;
}

// An image too large for the stack: only carried entries make one.
void packLarge(genreg::Operation& op, std::size_t size, const Plan& plan, unsigned char* record) {
  void* work = nullptr;
  if (const GenRegStatus rc = ossMemAlloc(&work, size, __FILE__, __LINE__); rc != status::ok) {
    op.fail(2, status::no_packing_memory, rc);
    return;
  }
  const GenRegStatus packed = packThrough(static_cast<unsigned char*>(work), size, plan, record);
  if (packed != status::ok) op.fail(3, packed);
  if (const GenRegStatus rc = ossMemFree(work, __FILE__, __LINE__); rc != status::ok) {
    op.fail(4, status::packing_memory_not_released, rc);
  }
}

// Copies an entry into its field, with the length that the entry states: one that is longer than
// its field runs on into the next ones, but never past the body.
void takeEntry(unsigned char* record, const Field& field, const EntryReader& entry) {
  const std::size_t room = kCheckSumOffset - field.offset;
  copyShort(record + field.offset, entry.bytes(), std::min(entry.length(), room));
}

}  // namespace

void globalreg::readImage(const unsigned char* image, const Layout& layout, unsigned char* record) {
  std::memcpy(record, image, kBodyOffset);
  EntryReader entry(image);
  unsigned index = 0;
  for (std::uint64_t rest = fieldMask(image) & kFieldMask; rest != 0; rest >>= 1, ++index) {
    if ((rest & 1) == 0) continue;
    if (index < layout.count) takeEntry(record, layout.fields[index], entry);
    entry.next();
  }
  const std::uint64_t missing =
      readNumber<std::uint64_t>(image + kMissingOffset) | (layout.known & ~fieldMask(image));
  std::memcpy(record + kMissingOffset, &missing, sizeof missing);
  std::memcpy(record + kCheckSumOffset, entry.raw(), kTrailerSize);
}

int GlobalReg::PackRecord(void** record, void* previous) {
  genreg::Operation op(genreg::kGlobalRegPackRecord);
  auto* bytes = static_cast<unsigned char*>(*record);
  const Plan plan = makePlan(bytes, static_cast<const unsigned char*>(previous));
  const std::size_t size = plannedSize(plan);
  if (size > kStackImage) {
    packLarge(op, size, plan, bytes);
    return op.result();
  }
  unsigned char work[kStackImage];
  if (const GenRegStatus rc = packThrough(work, size, plan, bytes); rc != status::ok) {
    return genreg::statusInt(op.fail(1, rc));
  }
  return op.result();
}

int GlobalReg::UnpackRecord(void** packed) {
  genreg::Operation op(genreg::kGlobalRegUnpackRecord);
  const auto* image = static_cast<const unsigned char*>(*packed);
  const Layout* layout = layoutOf(recordType(image));
  if (layout == nullptr) {
    op.explain(1, status::unknown_record_type, "type", recordType(image));
    return genreg::statusInt(op.fail(2, status::unknown_record_type));
  }
  unsigned char work[kRecordSize] = {};
  readImage(image, *layout, work);
  std::memcpy(*packed, work, sizeof work);
  return op.result();
}

int GlobalReg::GetPackedRecordSize(void* packed, unsigned long* size) {
  EntryReader entry(static_cast<const unsigned char*>(packed));
  std::size_t total = kBodyOffset + kTrailerSize;
  for (unsigned index = 0; index < kFieldBits; ++index) {
    if (!entry.has(index)) continue;
    total += entry.rawSize();
    entry.next();
  }
  *size = static_cast<unsigned long>(total);
  return 0;
}

int GlobalReg::GetRecordSize(void*, unsigned long* size) {
  return GetMaxRecordSize(size);
}

int GlobalReg::GetMaxRecordSize(unsigned long* size) {
  *size = kRecordSize;
  return 0;
}
