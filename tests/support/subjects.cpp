// SPDX-License-Identifier: Apache-2.0
// The formats' records made of items, and their objects.
#include "tests/support/subjects.h"

#include <ostream>

#include "genreg/formats/bin_var_val.h"
#include "globalreg/global_reg.h"
#include "tests/support/global_records.h"
#include "tests/support/plain_registry.h"
#include "tests/support/record_text.h"
#include "tests/support/text_lines.h"

namespace vrxtest {
namespace {

using std::string;

constexpr unsigned kEnd = 0x900001BE;

Text noteOf(const Item& item) {
  if (item.note.empty()) return {};
  return item.note;
}

// A record without pointers, held as the line classes hold theirs.
template <class Record>
class Held {
 public:
  explicit Held(const Record& record) : record_(record) {}
  Record* record() { return &record_; }

 private:
  Record record_;
};

template <class Record>
string bytesOfRecord(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

void show(string& out, const char* text) {
  out += text != nullptr ? "|" + string(text) : "|-";
}

// --- formats: their objects, the mask that finds a record by its name, records from and to text

struct GlobalTraits {
  using Record = GlobalRegRecord;
  class Registry : public GlobalReg {
   public:
    // Writes no change log and notifies nobody: both are the host's.
    Registry(const string& path, unsigned* status) : GlobalReg(true) {
      *status = setRegistryPaths(path.c_str());
      features = kGenRegVerifyCommit | kGenRegPacked;
    }
  };
  static unsigned long long maskOf(const string& name) {
    return name[0] == 'i' ? kInstanceMask : kOtherMask;
  }
  static Held<Record> keyOf(const string& name) {
    if (name[0] == 'i') return Held<Record>(instanceRecord("V", name));
    if (name[0] == 's') return Held<Record>(serviceRecord(name));
    Record record = variableRecord("V", name, "");
    record.FieldMask = kVariableKey;
    return Held<Record>(record);
  }
  static Held<Record> recordOf(const Item& item) {
    Held<Record> held = keyOf(item.name);
    Record& record = *held.record();
    const string number = std::to_string(item.number);
    if (record.RecordType == kGlobalRegInstance) {
      record.FieldMask |= kInstancePath | kInstanceMaintenance | noteBit(item, kInstanceComment);
      setText(record.Instance.InstancePath, "/" + number);
      record.Instance.Maintenance = item.number % 2;
      setText(record.Instance.Comment, item.note);
    } else if (record.RecordType == kGlobalRegService) {
      record.FieldMask |= kServiceFixpackNumber | kServiceFlag | kServiceText1;
      record.Services.FixpackNumber = item.number;
      record.Services.Flag = item.number & 0xFF;
      setText(record.Services.Text1, "t" + item.note);
    } else {
      record.FieldMask |= kVariableValue | noteBit(item, kVariableComment);
      setText(record.Variable.Value, number);
      setText(record.Variable.Comment, item.note);
    }
    return held;
  }
  // Bit 63 stands for no field, and of a flag the low byte alone is stored: neither is a
  // difference.
  static string shown(Record record) {
    record.FieldMask &= ~(std::uint64_t{1} << 63);
    if (record.RecordType == kGlobalRegService) record.Services.Flag &= 0xFF;
    return recordText(record);
  }

 private:
  static constexpr unsigned long long kInstanceMask = kInstanceKey;
  static constexpr unsigned long long kOtherMask = kServiceKey;
  static_assert(kOtherMask == kVariableKey);
  static std::uint64_t noteBit(const Item& item, std::uint64_t bit) {
    return item.note.empty() ? 0 : bit;
  }
};

struct ProfileTraits {
  using Record = GenRegVarValRecord;
  struct Registry : GenRegVarVal {
    Registry(const string& path, unsigned* status) : GenRegVarVal(path.c_str(), status) {}
  };
  static unsigned long long maskOf(const string&) { return kVarValVariable; }
  static ProfileLine keyOf(const string& name) { return ProfileLine(name); }
  static ProfileLine recordOf(const Item& item) {
    return ProfileLine(item.name, std::to_string(item.number), noteOf(item));
  }
  static string shown(const Record& record) {
    string out = std::to_string(record.contents);
    for (const char* text : {record.variable, record.value, record.comment})
      show(out, text);
    return out;
  }
};

struct ServicesTraits {
  using Record = GenRegServicesRecord;
  struct Registry : GenRegServices {
    Registry(string path, unsigned* status) : GenRegServices(path.data(), status) {}
  };
  static unsigned long long maskOf(const string&) { return kServicesName; }
  static ServiceLine keyOf(const string& name) { return ServiceLine(name); }
  static ServiceLine recordOf(const Item& item) {
    return ServiceLine(item.name, static_cast<int>(item.number), "tcp", {}, noteOf(item));
  }
  static string shown(const Record& record) {
    string out = std::to_string(record.flags) + ":" + std::to_string(record.port);
    for (const char* text : {record.name, record.protocol, record.comment})
      show(out, text);
    for (char** alias = record.aliases; alias != nullptr && *alias != nullptr; ++alias)
      show(out, *alias);
    return out;
  }
};

struct InitTraits {
  using Record = GenRegInitTabRecord;
  struct Registry : GenRegInitTab {
    Registry(string path, unsigned* status) { *status = setPaths(path.data()); }
  };
  static unsigned long long maskOf(const string&) { return kInitTabId; }
  static InitLine keyOf(const string& name) { return InitLine(name); }
  static InitLine recordOf(const Item& item) {
    return InitLine(item.name, "2", "once", "/bin/" + std::to_string(item.number), noteOf(item));
  }
  static string shown(const Record& record) {
    string out = std::to_string(record.flags);
    for (const char* text :
         {record.id, record.runlevel, record.action, record.command, record.comment})
      show(out, text);
    return out;
  }
};

struct BinVarTraits {
  using Record = GenRegBinVarValRecord;
  struct Registry : GenRegBinVarVal {
    Registry(string path, unsigned* status) : GenRegBinVarVal(path.data(), status) {}
  };
  static unsigned long long maskOf(const string&) { return kBinVarValVariable; }
  static Held<Record> keyOf(const string& name) { return recordOf({name, 1, ""}); }
  static Held<Record> recordOf(const Item& item) {
    Record record{};
    setText(record.variable, item.name);
    record.value = static_cast<std::int32_t>(item.number);
    setText(record.comment, item.note);
    return Held<Record>(record);
  }
  static string shown(const Record& record) { return bytesOfRecord(record); }
};

template <unsigned chosen>
struct PlainTraits {
  using Record = PlainRecord;
  struct Registry : PlainRegistry {
    Registry(const string& path, unsigned* status) : PlainRegistry(path, chosen) {
      *status = pathStatus;
    }
  };
  static unsigned long long maskOf(const string&) { return kPlainName; }
  static Held<Record> keyOf(const string& name) { return recordOf({name, 1, ""}); }
  static Held<Record> recordOf(const Item& item) {
    return Held<Record>(plainRecord(item.name, static_cast<int>(item.number)));
  }
  static string shown(const Record& record) { return bytesOfRecord(record); }
};

// Updates of a format with both a checksum header and verification are refused.
using BigEndianTraits = PlainTraits<kGenRegVerifyCommit | kGenRegBigEndian>;
using ChecksumTraits = PlainTraits<kGenRegChecksumHeader>;

// --- objects

template <class Traits>
class RegistryOf : public SubjectRegistry {
 public:
  RegistryOf(const string& path, unsigned* status) : registry_(path, status) {}

  unsigned add(const Item& item) override {
    auto record = Traits::recordOf(item);
    return static_cast<unsigned>(registry_.Add(Traits::maskOf(item.name), record.record()));
  }
  unsigned change(const string& name, const Item& item) override {
    auto key = Traits::keyOf(name);
    auto record = Traits::recordOf(item);
    return static_cast<unsigned>(
        registry_.Change(Traits::maskOf(name), key.record(), record.record()));
  }
  unsigned remove(const string& name) override {
    auto key = Traits::keyOf(name);
    return static_cast<unsigned>(registry_.Delete(Traits::maskOf(name), key.record()));
  }
  unsigned get(const string& name, string* found) override {
    auto key = Traits::keyOf(name);
    const auto rc =
        static_cast<unsigned>(registry_.Get(Traits::maskOf(name), key.record(), &found_));
    return told(rc, found);
  }
  unsigned openScan() override { return static_cast<unsigned>(registry_.OpenScan()); }
  unsigned next(string* found) override {
    typename Traits::Record any{};
    return told(static_cast<unsigned>(registry_.GetNext(0, &any, &found_)), found);
  }
  unsigned nextNamed(const string& name, string* found) override {
    auto key = Traits::keyOf(name);
    const auto rc =
        static_cast<unsigned>(registry_.GetNext(Traits::maskOf(name), key.record(), &found_));
    return told(rc, found);
  }
  unsigned closeScan() override { return static_cast<unsigned>(registry_.CloseScan()); }

 private:
  unsigned told(unsigned rc, string* found) const {
    if (rc == 0) *found = Traits::shown(found_);
    return rc;
  }

  typename Traits::Registry registry_;
  typename Traits::Record found_{};
};

template <class Traits>
std::unique_ptr<SubjectRegistry> openOne(const string& path, unsigned* status) {
  auto registry = std::make_unique<RegistryOf<Traits>>(path, status);
  if (*status != 0) return nullptr;
  return registry;
}

template <class Step>
Contents scanned(const Subject& subject, const string& path, Step step) {
  Contents contents;
  const auto registry = subject.open(path, &contents.status);
  if (contents.status == 0) contents.status = registry->openScan();
  if (contents.status != 0) return contents;
  string found;
  while ((contents.status = step(*registry, &found)) == 0)
    contents.records.push_back(found);
  const unsigned closed = registry->closeScan();
  if (contents.status == kEnd && closed != 0) contents.status = closed;
  return contents;
}

}  // namespace

const std::vector<Subject>& subjects() {
  static const std::vector<Subject> all = {
      {"global", openOne<GlobalTraits>},     {"profile", openOne<ProfileTraits>},
      {"services", openOne<ServicesTraits>}, {"inittab", openOne<InitTraits>},
      {"binvar", openOne<BinVarTraits>},     {"bigendian", openOne<BigEndianTraits>},
      {"checksum", openOne<ChecksumTraits>}};
  return all;
}

const Subject* findSubject(const string& name) {
  for (const Subject& subject : subjects()) {
    if (name == subject.name) return &subject;
  }
  return nullptr;
}

void PrintTo(const Subject& subject, std::ostream* out) {
  *out << subject.name;
}

Contents contentsOf(const Subject& subject, const string& path) {
  return scanned(subject, path,
                 [](SubjectRegistry& registry, string* found) { return registry.next(found); });
}

Contents contentsNamed(const Subject& subject, const string& path, const string& name) {
  return scanned(subject, path, [&](SubjectRegistry& registry, string* found) {
    return registry.nextNamed(name, found);
  });
}

}  // namespace vrxtest
