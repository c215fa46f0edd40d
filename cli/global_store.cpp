// SPDX-License-Identifier: Apache-2.0
// Rows out of global registry records and back, and updates that replace only what was read.
#include "cli/global_store.h"

#include <algorithm>
#include <cstring>

#include "cli/location.h"
#include "platform/osse/memory.h"

namespace cli {

namespace {

namespace status = genreg::status;

constexpr std::size_t kPackedHeaderSize = 20;
constexpr unsigned kLastFieldBit = 62;

const unsigned char* place(const GlobalRegRecord& record, const GlobalSlot& slot) {
  return reinterpret_cast<const unsigned char*>(&record) + slot.offset;
}

unsigned char* place(GlobalRegRecord* record, const GlobalSlot& slot) {
  return reinterpret_cast<unsigned char*>(record) + slot.offset;
}

template <typename T>
T wordAt(const unsigned char* bytes) {
  T word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// A stored boolean other than 0 and 1 is shown as the number that it is.
Value valueAt(const Field& field, const GlobalSlot& slot, const GlobalRegRecord& record) {
  if ((record.FieldMask & slot.bit) == 0) return {};
  const unsigned char* bytes = place(record, slot);
  if (field.kind == Kind::text) {
    const auto* text = reinterpret_cast<const char*>(bytes);
    return std::string(text, strnlen(text, slot.width));
  }
  if (field.kind == Kind::version) return Version{wordAt<std::uint64_t>(bytes)};
  const std::uint64_t number = wordAt<std::uint32_t>(bytes);
  if (field.kind == Kind::byte) return number & 0xFF;
  if (field.kind == Kind::boolean && number <= 1) return number == 1;
  return number;
}

std::uint64_t numberOf(const Value& value) {
  if (const auto* version = std::get_if<Version>(&value)) return version->code;
  if (const auto* yes = std::get_if<bool>(&value)) return *yes ? 1 : 0;
  return std::get<std::uint64_t>(value);
}

// Texts fit: parseValue has seen to it.
void putValue(const GlobalSlot& slot, const Value& value, GlobalRegRecord* record) {
  unsigned char* bytes = place(record, slot);
  std::memset(bytes, 0, slot.width);
  record->FieldMask &= ~slot.bit;
  if (isAbsent(value)) return;
  record->FieldMask |= slot.bit;
  if (const auto* text = std::get_if<std::string>(&value)) {
    std::memcpy(bytes, text->data(), std::min(text->size(), slot.width - 1));
    return;
  }
  const std::uint64_t wide = numberOf(value);
  const auto narrow = static_cast<std::uint32_t>(wide);
  std::memcpy(bytes, slot.width == sizeof wide ? static_cast<const void*>(&wide) : &narrow,
              slot.width);
}

std::uint64_t fieldsBeyondKey(std::uint32_t recordType) {
  if (recordType == kGlobalRegInstance) return kInstanceKnown & ~std::uint64_t{kInstanceKey};
  if (recordType == kGlobalRegService) return kServiceKnown & ~std::uint64_t{kServiceKey};
  if (recordType == kGlobalRegVariable) return kVariableKnown & ~std::uint64_t{kVariableKey};
  return 0;
}

GlobalRegRecord imageOf(const Record& record) {
  GlobalRegRecord image{};
  std::memcpy(&image, record.image.data(), std::min(record.image.size(), sizeof image));
  return image;
}

// The store answers invalid_record for every rule; the rule itself is what people need to know.
GenRegStatus brokenRule(GlobalRegRecord* record) {
  return genreg::statusOf(GlobalReg::ValidateRecord(record->FieldMask, record));
}

// The entries of fields that this revision does not know, from a record's packed image.
std::vector<UnknownField> entriesBeyond(std::uint64_t known, const unsigned char* image,
                                        std::size_t length) {
  std::vector<UnknownField> unknown;
  if (length < kPackedHeaderSize) return unknown;
  const auto mask = wordAt<std::uint64_t>(image + offsetof(GlobalRegRecord, FieldMask));
  std::size_t at = kPackedHeaderSize;
  for (unsigned bit = 0; bit <= kLastFieldBit; ++bit) {
    const std::uint64_t field = std::uint64_t{1} << bit;
    if ((mask & field) == 0) continue;
    if (length - at < sizeof(std::uint16_t)) return unknown;
    const std::size_t size = wordAt<std::uint16_t>(image + at);
    at += sizeof(std::uint16_t);
    if (length - at < size) return unknown;
    if ((known & field) == 0) {
      unknown.push_back({bit, std::string(reinterpret_cast<const char*>(image + at), size)});
    }
    at += size;
  }
  return unknown;
}

}  // namespace

ExactGlobalReg::ExactGlobalReg(bool hostWideOnly) : GlobalReg(hostWideOnly) {
  matchRecord = &matchExactly;
  validateRecord = &validatePresent;
}

int ExactGlobalReg::matchExactly(unsigned long long mask, void* stored, void* given) {
  if (GlobalReg::MatchRecord(mask, stored, given) != 1) return 0;
  const auto* a = static_cast<const GlobalRegRecord*>(stored);
  const auto* b = static_cast<const GlobalRegRecord*>(given);
  return ((a->FieldMask ^ b->FieldMask) & mask & fieldsBeyondKey(a->RecordType)) == 0 ? 1 : 0;
}

int ExactGlobalReg::validatePresent(unsigned long long mask, void* record) {
  const auto* given = static_cast<const GlobalRegRecord*>(record);
  return GlobalReg::ValidateRecord(mask & given->FieldMask, record);
}

std::unique_ptr<Store> openGlobalStore(const Noun& noun, const GlobalLayout& layout,
                                       const Arguments& arguments, const std::string& path,
                                       SideEffects effects) {
  const std::string& wanted = path.empty() ? arguments.registry.value_or("") : path;
  if (!wanted.empty()) useRegistry(wanted);
  auto store = std::make_unique<GlobalStore>(noun, layout, arguments, effects);
  if (!wanted.empty() && store->path() != wanted) {
    throw Failure(Exit::refused, wanted + ": a set-user-id program does not choose its registry");
  }
  return store;
}

GlobalStore::GlobalStore(const Noun& noun, const GlobalLayout& layout, const Arguments& arguments,
                         SideEffects effects)
    : noun_(noun),
      layout_(layout),
      registry_(arguments.hostWide),
      path_(registryPathOf(registry_)) {
  registry_.CallerArgCount = arguments.count;
  registry_.CallerArgs = arguments.strings;
  if (effects == SideEffects::wanted) return;
  // Both are set by every global registry, so there is nothing that could fail.
  (void)registry_.unsetFeature(kGenRegChangeLog);
  (void)registry_.unsetFeature(kGenRegNotify);
}

std::string GlobalStore::path() const {
  return path_;
}

std::string GlobalStore::lockPath() const {
  return registry_.lockPath;
}

Row GlobalStore::rowOf(const GlobalRegRecord& record) const {
  Row row;
  for (std::size_t i = 0; i < noun_.fields.size(); ++i) {
    row.values.push_back(valueAt(noun_.fields[i], layout_.slots[i], record));
  }
  row.key = keyOf(noun_, row);
  return row;
}

// The scan stands behind the record; its frame is read once more for what unpacking leaves out.
std::vector<UnknownField> GlobalStore::unknownFields(const GlobalRegRecord& record,
                                                     long long offset) {
  std::vector<UnknownField> unknown;
  if ((record.FieldMask & ~layout_.knownMask) == 0) return unknown;
  unsigned long size = 0;
  unsigned long length = 0;
  void* frame = nullptr;
  if (GlobalReg::GetMaxRecordSize(&size) != 0 ||
      ossMemAlloc(&frame, size, __FILE__, __LINE__) != status::ok) {
    return unknown;
  }
  if (registry_.setRegFilePosition(&offset) == status::ok &&
      registry_.ReadRecord(registry_.registryStream, &frame, &length) == 0) {
    unknown = entriesBeyond(layout_.knownMask, static_cast<unsigned char*>(frame), length);
  }
  (void)ossMemFree(frame, __FILE__, __LINE__);  // the block is ours and whole
  return unknown;
}

GenRegStatus GlobalStore::readNext(std::vector<Record>* records, long long offset) {
  GlobalRegRecord anything{};
  GlobalRegRecord found{};
  const GenRegStatus rc = genreg::statusOf(registry_.GetNext(0, &anything, &found));
  if (rc != status::ok || found.RecordType != layout_.type) return rc;
  Record record{rowOf(found), std::string(reinterpret_cast<const char*>(&found), sizeof found)};
  record.row.unknown = unknownFields(found, offset);
  records->push_back(std::move(record));
  return rc;
}

GenRegStatus GlobalStore::readAll(std::vector<Record>* records, long long* offset) {
  GenRegStatus rc = registry_.OpenScan();
  while (rc == status::ok) {
    rc = registry_.getRegFilePosition(offset);
    if (rc == status::ok) rc = readNext(records, *offset);
  }
  const GenRegStatus closed = registry_.CloseScan();
  return rc == status::end_of_registry ? closed : rc;
}

GenRegStatus GlobalStore::add(const Row& row) {
  GlobalRegRecord record{};
  record.RecordType = layout_.type;
  for (std::size_t i = 0; i < layout_.slots.size(); ++i) {
    putValue(layout_.slots[i], row.values[i], &record);
  }
  const GenRegStatus broken = brokenRule(&record);
  if (broken != status::ok) return broken;
  return genreg::statusOf(registry_.Add(layout_.keyMask, &record));
}

// Every known field is compared, absent ones too, so that a field which somebody else has added
// meanwhile is noticed rather than lost.
GenRegStatus GlobalStore::change(const Record& old, const Row& row) {
  GlobalRegRecord key = imageOf(old);
  GlobalRegRecord record = key;
  for (std::size_t i = 0; i < layout_.slots.size(); ++i) {
    if (!(old.row.values[i] == row.values[i])) putValue(layout_.slots[i], row.values[i], &record);
  }
  const GenRegStatus broken = brokenRule(&record);
  if (broken != status::ok) return broken;
  return genreg::statusOf(registry_.Change(layout_.knownMask, &key, &record));
}

GenRegStatus GlobalStore::remove(const Record& old) {
  GlobalRegRecord key = imageOf(old);
  return genreg::statusOf(registry_.Delete(layout_.keyMask, &key));
}

GenRegStatus GlobalStore::probeLock() {
  constexpr unsigned kHow = kGenRegLockExclusive | kGenRegLockNoWait | kGenRegLockCreateDirectory;
  const GenRegStatus rc = registry_.Lock(kHow, 0);
  if (rc != status::ok) return rc;
  return registry_.UnLock();
}

}  // namespace cli
