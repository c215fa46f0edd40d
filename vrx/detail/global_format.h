// SPDX-License-Identifier: Apache-2.0
// How the fields of instances, services and variables lie in the library's record. Not for
// programs.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "globalreg/global_reg.h"
#include "platform/osse/memory.h"
#include "vrx/detail/binary_store.h"
#include "vrx/version.h"

namespace vrx {
namespace detail {

// The global registry as the face changes it: a record is replaced only while it is exactly as it
// was read. Two records agree when their values do and, beyond the key, when the same fields are
// present: a record whose "maintenance" is "no" differs from one that has no such field.
class ExactGlobalReg : public GlobalReg {
 public:
  // The file that the environment chooses.
  ExactGlobalReg(bool hostWideOnly, unsigned int* status) : GlobalReg(hostWideOnly) {
    assignSlots();
    *status = (state & kGenRegStatePathsSet) != 0 ? GenRegStatus{genreg::status::ok}
                                                  : GenRegStatus{genreg::status::paths_not_set};
  }
  // The file at `path`, whatever the environment says.
  ExactGlobalReg(const std::string& path, unsigned int* status) : GlobalReg(true) {
    assignSlots();
    *status = setRegistryPaths(path.c_str());
  }

  static int matchExactly(unsigned long long mask, void* stored, void* given) {
    if (GlobalReg::MatchRecord(mask, stored, given) != 1) return 0;
    const auto* a = static_cast<const GlobalRegRecord*>(stored);
    const auto* b = static_cast<const GlobalRegRecord*>(given);
    return ((a->FieldMask ^ b->FieldMask) & mask & fieldsBeyondKey(a->RecordType)) == 0 ? 1 : 0;
  }

  // Content rules for every field present; a field that is absent may be compared all the same.
  static int validatePresent(unsigned long long mask, void* record) {
    const auto* given = static_cast<const GlobalRegRecord*>(record);
    return GlobalReg::ValidateRecord(mask & given->FieldMask, record);
  }

 private:
  void assignSlots() {
    matchRecord = &matchExactly;
    validateRecord = &validatePresent;
  }

  static std::uint64_t fieldsBeyondKey(std::uint32_t recordType) {
    if (recordType == kGlobalRegInstance) return kInstanceKnown & ~std::uint64_t{kInstanceKey};
    if (recordType == kGlobalRegService) return kServiceKnown & ~std::uint64_t{kServiceKey};
    if (recordType == kGlobalRegVariable) return kVariableKnown & ~std::uint64_t{kVariableKey};
    return 0;
  }
};

// Where a field lies in the record, in bytes. The n-th field of a kind has the n-th bit.
struct Place {
  std::size_t offset;
  std::size_t width;  // of the stored word or array, terminator included
};

#define VRX_PLACE(body, member) \
  { offsetof(GlobalRegRecord, body.member), sizeof(GlobalRegRecord::body.member) }

constexpr Place kInstancePlaces[] = {
    VRX_PLACE(Instance, Service),      VRX_PLACE(Instance, VersionCode),
    VRX_PLACE(Instance, InstanceName), VRX_PLACE(Instance, InstancePath),
    VRX_PLACE(Instance, Usage),        VRX_PLACE(Instance, StartAtBoot),
    VRX_PLACE(Instance, Maintenance),  VRX_PLACE(Instance, AuxPath),
    VRX_PLACE(Instance, AuxName),      VRX_PLACE(Instance, Comment)};

constexpr Place kServicePlaces[] = {
    VRX_PLACE(Services, Service), VRX_PLACE(Services, VersionCode),
    VRX_PLACE(Services, Text1),   VRX_PLACE(Services, Text2),
    VRX_PLACE(Services, Text3),   VRX_PLACE(Services, FixpackNumber),
    VRX_PLACE(Services, Num2),    VRX_PLACE(Services, Flag),
    VRX_PLACE(Services, Num3),    VRX_PLACE(Services, Num4)};

constexpr Place kVariablePlaces[] = {VRX_PLACE(Variable, Service), VRX_PLACE(Variable, Variable),
                                     VRX_PLACE(Variable, Value), VRX_PLACE(Variable, Comment)};

#undef VRX_PLACE

template <class Word>
Word wordAt(const void* bytes) {
  Word word{};
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// Reads the fields of a record, one call a field in the order of their bits.
class FieldReader {
 public:
  FieldReader(const GlobalRegRecord& record, const Place* places)
      : record_(record), place_(places) {}

  void operator()(const char*, std::string& text) { text = isPresent() ? takeText() : ""; }
  void operator()(const char*, Version& version) {
    version.code = isPresent() ? wordAt<std::uint64_t>(bytes()) : 0;
  }
  void operator()(const char*, std::optional<std::string>& text) {
    text.reset();
    if (isPresent()) text = takeText();
  }
  // A number other than 0 and 1, which only a foreign program writes, is neither.
  void operator()(const char*, std::optional<bool>& yes) {
    const std::uint32_t word = wordAt<std::uint32_t>(bytes());
    yes.reset();
    if (isPresent() && word <= 1) yes = word == 1;
  }
  template <class Number>
  void operator()(const char*, std::optional<Number>& number) {
    number.reset();
    if (isPresent()) number = static_cast<Number>(wordAt<std::uint32_t>(bytes()));
  }
  // Goes on to the next field; after each call.
  void step() {
    ++place_;
    bit_ <<= 1;
  }

 private:
  bool isPresent() const { return (record_.FieldMask & bit_) != 0; }
  const char* bytes() const { return reinterpret_cast<const char*>(&record_) + place_->offset; }
  std::string takeText() const { return {bytes(), strnlen(bytes(), place_->width)}; }

  const GlobalRegRecord& record_;
  const Place* place_;
  std::uint64_t bit_ = 1;
};

// Writes the fields of a record, likewise. Texts fit: refuseLonger has seen to it.
class FieldWriter {
 public:
  FieldWriter(GlobalRegRecord* record, const Place* places) : record_(record), place_(places) {}

  void operator()(const char*, const std::string& text) { put(text.data(), text.size()); }
  void operator()(const char*, const Version& version) { put(&version.code, sizeof version.code); }
  void operator()(const char* name, const std::optional<std::string>& text) {
    if (text) (*this)(name, *text);
  }
  template <class Number>
  void operator()(const char*, const std::optional<Number>& number) {
    const auto word = static_cast<std::uint32_t>(number.value_or(Number{}));
    if (number) put(&word, sizeof word);
  }
  void step() {
    ++place_;
    bit_ <<= 1;
  }

 private:
  void put(const void* bytes, std::size_t length) {
    std::memcpy(reinterpret_cast<char*>(record_) + place_->offset, bytes,
                std::min(length, place_->width));
    record_->FieldMask |= bit_;
  }

  GlobalRegRecord* record_;
  const Place* place_;
  std::uint64_t bit_ = 1;
};

// Copies the fields that differ between `from` and `to`, presence included, into `into`.
inline void copyDifferences(const GlobalRegRecord& from, const GlobalRegRecord& to,
                            const Place* places, std::size_t count, GlobalRegRecord* into) {
  std::uint64_t bit = 1;
  for (std::size_t i = 0; i < count; ++i, bit <<= 1) {
    const auto at = [&](const GlobalRegRecord& record) {
      return reinterpret_cast<const char*>(&record) + places[i].offset;
    };
    const bool samePresence = ((from.FieldMask ^ to.FieldMask) & bit) == 0;
    if (samePresence && std::memcmp(at(from), at(to), places[i].width) == 0) continue;
    std::memcpy(reinterpret_cast<char*>(into) + places[i].offset, at(to), places[i].width);
    into->FieldMask = (into->FieldMask & ~bit) | (to.FieldMask & bit);
  }
}

constexpr std::size_t kPackedHeaderSize = 20;
constexpr unsigned kLastFieldBit = 62;

// The entries of fields that this revision does not know, from a record's packed image.
inline std::vector<LaterField> entriesBeyond(std::uint64_t known, const char* image,
                                             std::size_t length) {
  std::vector<LaterField> later;
  if (length < kPackedHeaderSize) return later;
  const auto mask = wordAt<std::uint64_t>(image + offsetof(GlobalRegRecord, FieldMask));
  std::size_t at = kPackedHeaderSize;
  for (unsigned bit = 0; bit <= kLastFieldBit; ++bit) {
    const std::uint64_t field = std::uint64_t{1} << bit;
    if ((mask & field) == 0) continue;
    if (length - at < sizeof(std::uint16_t)) return later;
    const std::size_t size = wordAt<std::uint16_t>(image + at);
    at += sizeof(std::uint16_t);
    if (length - at < size) return later;
    if ((known & field) == 0) later.push_back({bit, std::string(image + at, size)});
    at += size;
  }
  return later;
}

// Reads the frame at `offset` of the open scan once more, for what unpacking leaves out; the scan
// then stands behind it, as before.
inline std::vector<LaterField> readLaterFields(GlobalReg& registry, long long offset,
                                               std::uint64_t known) {
  std::vector<LaterField> later;
  unsigned long size = 0;
  unsigned long length = 0;
  void* frame = nullptr;
  if (GlobalReg::GetMaxRecordSize(&size) != 0 ||
      ossMemAlloc(&frame, size, __FILE__, __LINE__) != genreg::status::ok) {
    return later;
  }
  if (registry.setRegFilePosition(&offset) == genreg::status::ok &&
      registry.ReadRecord(registry.registryStream, &frame, &length) == 0) {
    later = entriesBeyond(known, static_cast<const char*>(frame), length);
  }
  (void)ossMemFree(frame, __FILE__, __LINE__);  // the block is ours and whole
  return later;
}

// One kind of record. `Kind` gives Record, Key, keyOf, kType, kKeyMask, kAllMask and kPlaces.
template <class Kind>
struct GlobalFormat : Kind {
  using Record = typename Kind::Record;
  using Registry = ExactGlobalReg;
  using Native = GlobalRegRecord;
  static constexpr std::size_t kCount = std::size(Kind::kPlaces);

  static bool isOne(const Native& native) { return native.RecordType == Kind::kType; }
  static const Native& native(const GlobalImage& image) { return image.record; }

  static void read(Registry& registry, long long at, const Native& native, Stored<Record>* stored) {
    FieldReader reader(native, Kind::kPlaces);
    Record::visitFields(static_cast<Record&>(*stored), [&](const char* name, auto& field) {
      reader(name, field);
      reader.step();
    });
    stored->image.record = native;
    if ((native.FieldMask & ~std::uint64_t{Kind::kAllMask}) == 0) return;
    stored->image.laterFields = readLaterFields(registry, at, Kind::kAllMask);
  }

  static void put(const Stored<Record>* old, const Record& next, Native* native) {
    const Native to = packed(next);
    if (old == nullptr) {
      *native = to;
      return;
    }
    copyDifferences(packed(*old), to, Kind::kPlaces, kCount, native);
  }

  static Status refuse(const Record& next) {
    Refusals refusals;
    const Place* place = Kind::kPlaces;
    Record::visitFields(next, [&](const char* name, const auto& field) {
      refusals << refuseTooLong(name, field, place++->width);
    });
    return refusals.status();
  }

  // The store answers invalid_record for every rule; the rule itself is what people need to know.
  static GenRegStatus rule(Native* native) {
    return genreg::statusOf(GlobalReg::ValidateRecord(native->FieldMask, native));
  }

 private:
  static Native packed(const Record& record) {
    Native native{};
    native.RecordType = Kind::kType;
    FieldWriter writer(&native, Kind::kPlaces);
    Record::visitFields(record, [&](const char* name, const auto& field) {
      writer(name, field);
      writer.step();
    });
    return native;
  }

  static Status refuseTooLong(const char* name, const std::string& text, std::size_t width) {
    return refuseLonger(name, text, width - 1);
  }
  static Status refuseTooLong(const char* name, const std::optional<std::string>& text,
                              std::size_t width) {
    return refuseLonger(name, text.value_or(""), width - 1);
  }
  template <class Word>
  static Status refuseTooLong(const char*, const Word&, std::size_t) {
    return {};
  }
};

}  // namespace detail
}  // namespace vrx
