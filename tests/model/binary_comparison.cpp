// SPDX-License-Identifier: Apache-2.0
// The binary formats beside binary_model.h: the status of every operation, every record of a scan.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "genreg/formats/bin_var_val.h"
#include "tests/model/binary_model.h"
#include "tests/model/comparison.h"
#include "tests/support/plain_registry.h"
#include "tests/support/quiet_global_reg.h"
#include "tests/support/record_text.h"
#include "tests/support/text_model_driver.h"

namespace vrxtest::model {
namespace {

using std::string;
using Words = std::vector<string>;

constexpr unsigned kEnd = 0x900001BE;
constexpr std::size_t kMostRecords = 12;
constexpr unsigned kNoFileEvery = 100;

constexpr auto kText = FieldKind::kText;
constexpr auto kNumber = FieldKind::kNumber;
constexpr auto kSwitch = FieldKind::kSwitch;

// --- formats

struct GlobalTraits {
  using Record = GlobalRegRecord;
  using Registry = QuietGlobalReg;
  static BinaryRules rules() {
    BinaryRules rules;
    rules.types["instance"] = {{"Service", kText},       {"VersionCode", kNumber},
                               {"InstanceName", kText},  {"InstancePath", kText},
                               {"Usage", kText},         {"StartAtBoot", kSwitch},
                               {"Maintenance", kSwitch}, {"AuxPath", kText},
                               {"AuxName", kText},       {"Comment", kText}};
    rules.types["service"] = {{"Service", kText}, {"VersionCode", kNumber},
                              {"Text1", kText},   {"Text2", kText},
                              {"Text3", kText},   {"FixpackNumber", kNumber, false},
                              {"Num2", kNumber},  {"Flag", FieldKind::kLowByte},
                              {"Num3", kNumber},  {"Num4", kNumber}};
    rules.types["variable"] = {
        {"Service", kText}, {"Variable", kText}, {"Value", kText}, {"Comment", kText}};
    return rules;
  }
  static Record recordOf(const BinaryRules& rules, const BinaryRecord& given) {
    Words words{given.type};
    for (const auto& [bit, value] : given.fields)
      words.push_back(string(rules.types.at(given.type)[bit].name) + "=" + value);
    Record record{};
    string problem;
    if (!parseRecord(words, &record, &problem)) std::abort();
    return record;
  }
  static string shown(const Record& record) { return recordText(record); }
};

// Formats of a name, a number and perhaps a note.
template <class StoredRecord, bool hasNote>
struct SmallTraits {
  using Record = StoredRecord;
  static Record recordOf(const BinaryRules&, const BinaryRecord& given) {
    Record record{};
    char* const bytes = reinterpret_cast<char*>(&record);
    const auto value = [&](unsigned bit) {
      const auto at = given.fields.find(bit);
      return at != given.fields.end() ? at->second : string();
    };
    const int number = std::atoi(value(1).c_str());
    std::memcpy(bytes, value(0).c_str(), value(0).size());
    std::memcpy(bytes + kNameSize, &number, sizeof number);
    if (hasNote) std::memcpy(bytes + kNoteOffset, value(2).c_str(), value(2).size());
    return record;
  }
  static string shown(const Record& record) {
    return escaped({reinterpret_cast<const char*>(&record), sizeof record});
  }

 private:
  static constexpr std::size_t kNameSize = 16;
  static constexpr std::size_t kNoteOffset = 20;
};

struct BinVarTraits : SmallTraits<GenRegBinVarValRecord, true> {
  struct Registry : GenRegBinVarVal {
    explicit Registry(string path) : GenRegBinVarVal(path.data(), nullptr) {}
  };
  static BinaryRules rules() {
    BinaryRules rules;
    rules.types[""] = {{"variable", kText}, {"value", kNumber}, {"comment", kText, false, false}};
    rules.duplicates = true;
    rules.validates = false;
    return rules;
  }
};

template <unsigned chosen>
struct PlainTraits : SmallTraits<PlainRecord, false> {
  struct Registry : PlainRegistry {
    explicit Registry(const string& path) : PlainRegistry(path, chosen) {}
  };
  static BinaryRules rules() {
    BinaryRules rules;
    rules.types[""] = {{"name", kText}, {"value", kNumber}};
    rules.validates = false;
    return rules;
  }
};

// --- random records

class Random {
 public:
  explicit Random(unsigned long seed) : random_(static_cast<std::mt19937::result_type>(seed)) {}
  unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
  bool oneIn(unsigned n) { return below(n) == 0; }

  BinaryRecord record(const BinaryRules& rules) {
    auto type = rules.types.begin();
    std::advance(type, below(static_cast<unsigned>(rules.types.size())));
    BinaryRecord record{type->first, {}};
    for (unsigned bit = 0; bit < type->second.size(); ++bit) {
      const bool present = !rules.validates || (bit < 3 ? !oneIn(12) : oneIn(3));
      if (present) record.fields[bit] = value(type->second[bit].kind, rules.validates);
    }
    return record;
  }

 private:
  // Few values, so that records agree often; some that validation refuses.
  string value(FieldKind kind, bool validated) {
    if (kind == FieldKind::kNumber) return std::to_string(below(3));
    if (kind == FieldKind::kLowByte) return std::to_string(44 + 256 * below(2) + below(2));
    if (kind == FieldKind::kSwitch) return std::to_string(oneIn(30) ? 2 : below(2));
    if (validated && oneIn(40)) return "";
    static const char* const kTexts[] = {"a", "b", "ab", "longer text"};
    return kTexts[below(4)];
  }

  std::mt19937 random_;
};

// --- the comparison

template <class Traits>
class BinaryComparison : public Comparison {
 public:
  BinaryComparison(string path, unsigned long seed)
      : path_(std::move(path)), random_(seed), model_(rules_) {}

  string step() override {
    if (random_.oneIn(kNoFileEvery)) {
      (void)unlink(path_.c_str());  // it may be missing already
      model_.exists = false;
      model_.records.clear();
    }
    const BinaryRecord key = randomKey();
    const BinaryRecord record = random_.record(rules_);
    const unsigned long long mask = randomMask();
    const unsigned verb = model_.records.size() >= kMostRecords ? 2 : random_.below(4);
    const string complaint = run(verb, mask, key, record);
    if (complaint.empty()) return complaintAboutScan();
    return complaint + " (verb " + std::to_string(verb) + ", mask " + std::to_string(mask) +
           ", key " + shown(key) + ", record " + shown(record) + ")";
  }

 private:
  using Record = typename Traits::Record;

  // Often the key of a record that is there.
  BinaryRecord randomKey() {
    if (model_.records.empty() || random_.oneIn(3)) return random_.record(rules_);
    return model_.records[random_.below(static_cast<unsigned>(model_.records.size()))];
  }
  unsigned long long randomMask() {
    static constexpr unsigned long long kMasks[] = {7, 3, 1, 2, 4, 0xF, 0x23, 0x83, 0x3FF, 0x100};
    return kMasks[random_.below(random_.oneIn(2) ? 2 : 10)];
  }
  Record recordOf(const BinaryRecord& record) const { return Traits::recordOf(rules_, record); }
  string shown(const BinaryRecord& record) const { return Traits::shown(recordOf(record)); }

  string run(unsigned verb, unsigned long long mask, const BinaryRecord& key,
             const BinaryRecord& record) {
    typename Traits::Registry registry(path_);
    Record given = recordOf(record);
    Record wanted = recordOf(key);
    if (verb == 0) return compared(registry.Add(mask, &given), model_.add(mask, record));
    if (verb == 1) {
      return compared(registry.Change(mask, &wanted, &given), model_.change(mask, key, record));
    }
    if (verb == 2) return compared(registry.Delete(mask, &wanted), model_.remove(mask, key));
    const BinaryRecord* stored = nullptr;
    Record found{};
    const unsigned expected = model_.get(mask, key, &stored);
    const string complaint = compared(registry.Get(mask, &wanted, &found), expected);
    if (!complaint.empty() || stored == nullptr) return complaint;
    return Traits::shown(found) == readBack(*stored) ? "" : "found " + Traits::shown(found);
  }

  static string compared(int got, unsigned wanted) {
    if (static_cast<unsigned>(got) == wanted) return "";
    char text[64];
    std::snprintf(text, sizeof text, "status 0x%08X for 0x%08X", static_cast<unsigned>(got),
                  wanted);
    return text;
  }

  // A stored record as lookups give it: with what it lacks, where the format tells.
  string readBack(const BinaryRecord& record) const {
    Record stored = recordOf(record);
    if constexpr (std::is_same_v<Record, GlobalRegRecord>) {
      const std::size_t count = rules_.types.at(record.type).size();
      stored.MissingFieldMask = ((1ULL << count) - 1) & ~stored.FieldMask;
    }
    return Traits::shown(stored);
  }

  string complaintAboutScan() {
    typename Traits::Registry registry(path_);
    Record key{};
    Record found{};
    const unsigned opened = registry.OpenScan();
    if (opened != 0) return compared(static_cast<int>(opened), 0);
    model_.exists = true;  // a scan creates what is missing
    for (const BinaryRecord& record : model_.records) {
      const string complaint = compared(registry.GetNext(0, &key, &found), 0);
      if (!complaint.empty()) return "scan: " + complaint;
      if (Traits::shown(found) != readBack(record)) {
        return "scan: " + Traits::shown(found) + " instead of " + readBack(record);
      }
    }
    const string complaint = compared(registry.GetNext(0, &key, &found), kEnd);
    return complaint.empty() ? compared(static_cast<int>(registry.CloseScan()), 0) : complaint;
  }

  const string path_;
  const BinaryRules rules_ = Traits::rules();
  Random random_;
  BinaryModel model_;
};

}  // namespace

std::unique_ptr<Comparison> binaryComparison(const string& format, const string& path,
                                             unsigned long seed) {
  if (format == "global") return std::make_unique<BinaryComparison<GlobalTraits>>(path, seed);
  if (format == "binvar") return std::make_unique<BinaryComparison<BinVarTraits>>(path, seed);
  if (format == "bigendian") {
    using BigEndian = PlainTraits<kGenRegVerifyCommit | kGenRegBigEndian>;
    return std::make_unique<BinaryComparison<BigEndian>>(path, seed);
  }
  return std::make_unique<BinaryComparison<PlainTraits<kGenRegChecksumHeader>>>(path, seed);
}

}  // namespace vrxtest::model
