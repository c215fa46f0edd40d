// SPDX-License-Identifier: Apache-2.0
// The nouns of the global registry, and the store that keeps all three of them.
#pragma once

#include <vector>

#include "cli/noun.h"
#include "globalreg/global_reg.h"

namespace cli {

// instance, service, variable.
std::vector<Noun> globalNouns();

// Where one field lies in a GlobalRegRecord.
struct GlobalSlot {
  std::uint64_t bit;
  std::size_t offset;
  std::size_t width;  // of the stored word or array, terminator included
};

// One kind of record: its type, its masks and its fields' places, parallel to the noun's fields.
struct GlobalLayout {
  GlobalRegRecordType type;
  std::uint64_t keyMask;
  std::uint64_t knownMask;
  std::vector<GlobalSlot> slots;
};

// The global registry as the command line changes it: a record is replaced only while it is exactly
// as it was read. Two records agree when their values do and, beyond the key, when the same fields
// are present: a record whose "maintenance" is "no" differs from one that has no such field.
class ExactGlobalReg : public GlobalReg {
 public:
  explicit ExactGlobalReg(bool hostWideOnly);

  static int matchExactly(unsigned long long mask, void* stored, void* given);
  // Content rules for every field present; a field that is absent may be compared all the same.
  static int validatePresent(unsigned long long mask, void* record);
};

class GlobalStore : public Store {
 public:
  GlobalStore(const Noun& noun, const GlobalLayout& layout, const Arguments& arguments,
              SideEffects effects);

  std::string path() const override;
  std::string lockPath() const override;
  [[nodiscard]] GenRegStatus readAll(std::vector<Record>* records, long long* offset) override;
  [[nodiscard]] GenRegStatus add(const Row& row) override;
  [[nodiscard]] GenRegStatus change(const Record& old, const Row& row) override;
  [[nodiscard]] GenRegStatus remove(const Record& old) override;
  [[nodiscard]] GenRegStatus probeLock() override;

 private:
  GenRegStatus readNext(std::vector<Record>* records, long long offset);
  std::vector<UnknownField> unknownFields(const GlobalRegRecord& record, long long offset);
  Row rowOf(const GlobalRegRecord& record) const;

  const Noun& noun_;
  const GlobalLayout& layout_;
  ExactGlobalReg registry_;
  std::string path_;  // as it was chosen; an update may follow a link from there
};

// Opens the store of one noun; the parameters after the layout are those of Noun::open.
std::unique_ptr<Store> openGlobalStore(const Noun& noun, const GlobalLayout& layout,
                                       const Arguments& arguments, const std::string& path,
                                       SideEffects effects);

}  // namespace cli
