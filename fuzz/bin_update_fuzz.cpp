// SPDX-License-Identifier: Apache-2.0
// A hostile binary registry and a sequence of operations on it: lookups, scans, positions, updates.
// Plain records are held against the model of frames; the global registry against itself without
// its image slots, where every record is unpacked. The first byte chooses the registry, its
// features and whether the file is given a record longer than a reader's block, the second where;
// some more choose the operations; the rest is the file.
#include <memory>

#include "fuzz/file_support.h"
#include "fuzz/packed_image.h"
#include "fuzz/plain_rules.h"
#include "tests/support/global_records.h"

namespace {

using vrxfuzz::Bounded;
using vrxfuzz::ByteChoices;
using vrxfuzz::ByteOrder;
using vrxfuzz::require;
using vrxtest::PlainRecord;

constexpr std::size_t kHead = 64;
constexpr unsigned kMostOperations = 8;

enum class Verb {
  kAdd,
  kChange,
  kRemove,
  kGet,
  kOpenScan,
  kNext,
  kRewind,
  kGetPosition,
  kSetPosition,
  kCloseScan
};
constexpr unsigned kVerbs = 10;

// One operation, whatever the records are.
template <class Record>
struct Operation {
  Verb verb;
  unsigned long long mask;
  Record key;
  Record record;
  long long position;
};

// What an operation gave. Results begin as rubbish, so that an untouched one shows.
template <class Record>
struct Outcome {
  unsigned status = 0;
  Record found;
  long long position = -1;

  Outcome() { std::memset(static_cast<void*>(&found), '#', sizeof found); }
};

template <class Record>
Outcome<Record> perform(GenRegBin& registry, Operation<Record> operation, const Bounded& bounded) {
  Outcome<Record> outcome;
  const auto work = [&]() -> unsigned {
    const auto mask = operation.mask;
    switch (operation.verb) {
      case Verb::kAdd:
        return static_cast<unsigned>(registry.Add(mask, &operation.record));
      case Verb::kChange:
        return static_cast<unsigned>(registry.Change(mask, &operation.key, &operation.record));
      case Verb::kRemove:
        return static_cast<unsigned>(registry.Delete(mask, &operation.key));
      case Verb::kGet:
        return static_cast<unsigned>(registry.Get(mask, &operation.key, &outcome.found));
      case Verb::kNext:
        return static_cast<unsigned>(registry.GetNext(mask, &operation.key, &outcome.found));
      case Verb::kOpenScan:
        return registry.OpenScan();
      case Verb::kRewind:
        return registry.Rewind();
      case Verb::kGetPosition:
        return registry.getRegFilePosition(&outcome.position);
      case Verb::kSetPosition:
        return registry.setRegFilePosition(&operation.position);
      case Verb::kCloseScan:
        break;
    }
    return registry.CloseScan();
  };
  outcome.status = bounded.call(work);
  return outcome;
}

template <class Record>
std::string told(const Operation<Record>& operation, const Outcome<Record>& outcome) {
  char text[96];
  std::snprintf(text, sizeof text, "verb %d mask %llx status %x position %lld",
                static_cast<int>(operation.verb), operation.mask, outcome.status, outcome.position);
  return text;
}

// The file with a frame of the body among its own, so that others meet the end of a block.
std::string withFrame(const std::string& bytes, unsigned number, const std::string& body,
                      ByteOrder order) {
  std::size_t at = 0;
  for (; number > 0; --number) {
    const vrxfuzz::StoredFrame frame = vrxfuzz::frameAt(bytes, at, order);
    if (frame.status != 0) break;
    at = frame.next;
  }
  return bytes.substr(0, at) + vrxfuzz::framed(body, order) + bytes.substr(at);
}

// --- plain records

PlainRecord plainChoice(ByteChoices& choices) {
  static const char* const kNames[] = {"a", "aa", "b", ""};
  return vrxtest::plainRecord(kNames[choices.below(4)], static_cast<int>(choices.below(3)));
}

Operation<PlainRecord> plainOperation(ByteChoices& choices) {
  Operation<PlainRecord> operation{};
  operation.verb = static_cast<Verb>(choices.below(kVerbs));
  operation.mask = choices.below(4);
  operation.key = plainChoice(choices);
  operation.record = plainChoice(choices);
  operation.position = 24 * static_cast<long long>(choices.below(200)) + choices.below(3);
  return operation;
}

// The model's registry with its scan.
class PlainTwin {
 public:
  PlainTwin(const vrxfuzz::PlainRules& rules, const std::string& bytes, bool keepsPosition)
      : model_(rules, bytes), keepsPosition_(keepsPosition) {}

  const std::string& bytes() const { return model_.bytes; }

  Outcome<PlainRecord> perform(const Operation<PlainRecord>& operation) {
    Outcome<PlainRecord> outcome;
    const std::string key = vrxfuzz::bytesOfRecord(operation.key);
    const std::string record = vrxfuzz::bytesOfRecord(operation.record);
    std::string found = vrxfuzz::bytesOfRecord(outcome.found);
    switch (operation.verb) {
      case Verb::kAdd:
        outcome.status =
            update(operation.mask, record, [&] { return model_.add(operation.mask, record); });
        break;
      case Verb::kChange:
        outcome.status = update(operation.mask, record,
                                [&] { return model_.change(operation.mask, key, record); });
        break;
      case Verb::kRemove:
        outcome.status =
            update(operation.mask, key, [&] { return model_.remove(operation.mask, key); });
        break;
      case Verb::kGet:
        outcome.status = get(operation.mask, key, &found);
        break;
      case Verb::kNext:
        outcome.status = next(operation.mask, key, &found);
        break;
      default:
        outcome.status = scan(operation, &outcome.position);
    }
    std::memcpy(&outcome.found, found.data(), found.size());
    return outcome;
  }

 private:
  bool isRefused(unsigned long long mask, const std::string& record) const {
    return !vrxfuzz::plainRules().isAcceptable(mask, record);
  }

  // No update while a scan is open.
  template <class Work>
  unsigned update(unsigned long long mask, const std::string& checked, const Work& work) {
    if (isRefused(mask, checked)) return vrxfuzz::kBadRecord;
    return scanning_ ? unsigned{vrxfuzz::kNotOpened} : work();
  }
  // One that borrows the scan rewinds it, so that the end has to be found again.
  unsigned get(unsigned long long mask, const std::string& key, std::string* found) {
    if (isRefused(mask, key)) return vrxfuzz::kBadRecord;
    if (scanning_ && !keepsPosition_) return vrxfuzz::kNotOpened;
    atEnd_ = false;
    return model_.get(mask, key, found);
  }
  unsigned next(unsigned long long mask, const std::string& key, std::string* found) {
    if (!scanning_) return vrxfuzz::kNoScan;
    if (isRefused(mask, key)) return vrxfuzz::kBadRecord;
    if (atEnd_) return vrxfuzz::kEnd;
    const unsigned status = model_.next(mask, key, &at_, found);
    atEnd_ = status == vrxfuzz::kEnd;
    return status;
  }
  unsigned scan(const Operation<PlainRecord>& operation, long long* position) {
    constexpr unsigned kNoRewind = 0x900001E0;
    switch (operation.verb) {
      case Verb::kGetPosition:
        if (!scanning_) return vrxfuzz::kNoScan;
        *position = static_cast<long long>(at_);
        return 0;
      case Verb::kSetPosition:
        if (!scanning_) return vrxfuzz::kNoScan;
        at_ = static_cast<std::size_t>(operation.position);
        return 0;
      case Verb::kRewind:
        if (!scanning_) return kNoRewind;
        break;
      default:
        scanning_ = operation.verb == Verb::kOpenScan;
    }
    at_ = 0;
    atEnd_ = false;
    return 0;
  }

  vrxfuzz::PlainModel model_;
  const bool keepsPosition_;
  bool scanning_ = false;
  bool atEnd_ = false;
  std::size_t at_ = 0;
};

void runPlain(unsigned chosen, ByteChoices& choices, const std::string& bytes) {
  unsigned features = (chosen & 1) != 0 ? kGenRegVerifyCommit : 0U;
  if ((chosen & 2) != 0) features |= kGenRegDuplicates;
  if ((chosen & 4) != 0) features |= kGenRegBigEndian;
  if ((chosen & 8) != 0) features |= kGenRegKeepPosition;
  vrxfuzz::PlainRules rules = vrxfuzz::plainRules();
  rules.order = (chosen & 4) != 0 ? ByteOrder::kBig : ByteOrder::kHost;
  rules.duplicates = (chosen & 2) != 0;
  rules.appendsInPlace = rules.duplicates && (chosen & 1) == 0;
  const std::string path = vrxfuzz::scratchFile("plain");
  vrxtest::putBytes(path, bytes);
  const Bounded bounded(bytes.size() + kMostOperations * (4 + sizeof(PlainRecord)));
  vrxtest::PlainRegistry registry(path, features);
  PlainTwin twin(rules, bytes, (chosen & 8) != 0);
  for (unsigned i = choices.below(kMostOperations) + 1; i > 0; --i) {
    const Operation<PlainRecord> operation = plainOperation(choices);
    const auto got = perform(registry, operation, bounded);
    const auto wanted = twin.perform(operation);
    const std::string story = told(operation, got) + " wanted " + told(operation, wanted);
    require(got.status == wanted.status, "status", story);
    require(got.position == wanted.position, "position", story);
    require(got.found == wanted.found, "found", story);
    require(vrxtest::bytesAt(path) == twin.bytes(), "file", story);
  }
}

// --- the global registry

class QuietRegistry : public GlobalReg {
 public:
  QuietRegistry(const std::string& path, unsigned chosen) : GlobalReg(true) {
    require(setRegistryPaths(path.c_str()) == 0, "no paths");
    features = kGenRegPacked;
    if ((chosen & 1) != 0) features |= kGenRegVerifyCommit;
    if ((chosen & 2) != 0) features |= kGenRegDuplicates;
    if ((chosen & 4) != 0) features |= kGenRegBigEndian;
    if ((chosen & 8) != 0) features |= kGenRegKeepPosition;
  }
};

// A record of few words, or one that stands in the file.
GlobalRegRecord globalChoice(ByteChoices& choices, const std::vector<GlobalRegRecord>& stored) {
  static const char* const kWords[] = {"a", "b", "aa", ""};
  if (choices.below(3) == 0 && !stored.empty()) {
    GlobalRegRecord record = stored[choices.below(static_cast<unsigned>(stored.size()))];
    if (choices.below(2) == 0) record.FieldMask ^= 1ULL << choices.below(10);
    return record;
  }
  const char* const first = kWords[choices.below(4)];
  const char* const second = kWords[choices.below(4)];
  switch (choices.below(4)) {
    case 0:
      return vrxtest::instanceRecord(first, second);
    case 1:
      return vrxtest::serviceRecord(first);
    case 2:
      return vrxtest::variableRecord(first, second, kWords[choices.below(4)]);
    default:
      return {};
  }
}

std::vector<GlobalRegRecord> recordsOf(const std::string& bytes, ByteOrder order) {
  std::vector<GlobalRegRecord> records;
  for (std::size_t at = 0; records.size() < 16;) {
    const vrxfuzz::StoredFrame frame = vrxfuzz::frameAt(bytes, at, order);
    if (frame.status != 0) break;
    if (const auto record = vrxfuzz::unpacked(frame.body)) records.push_back(*record);
    at = frame.next;
  }
  return records;
}

Operation<GlobalRegRecord> globalOperation(ByteChoices& choices,
                                           const std::vector<GlobalRegRecord>& stored) {
  Operation<GlobalRegRecord> operation{};
  operation.verb = static_cast<Verb>(choices.below(kVerbs));
  operation.mask = choices.below(3) == 0 ? ~0ULL >> choices.below(64) : choices.below(8);
  operation.key = globalChoice(choices, stored);
  operation.record = globalChoice(choices, stored);
  operation.position = 4 * static_cast<long long>(choices.below(256)) + choices.below(4);
  return operation;
}

void runGlobal(unsigned chosen, ByteChoices& choices, const std::string& bytes) {
  const ByteOrder order = (chosen & 4) != 0 ? ByteOrder::kBig : ByteOrder::kHost;
  const std::string fastPath = vrxfuzz::scratchFile("fast");
  const std::string slowPath = vrxfuzz::scratchFile("slow");
  vrxtest::putBytes(fastPath, bytes);
  vrxtest::putBytes(slowPath, bytes);
  const Bounded bounded(bytes.size() + kMostOperations * sizeof(GlobalRegRecord));
  QuietRegistry fast(fastPath, chosen);
  QuietRegistry slow(slowPath, chosen);
  slow.imageSlots = nullptr;
  const std::vector<GlobalRegRecord> stored = recordsOf(bytes, order);
  std::string before = bytes;
  for (unsigned i = choices.below(kMostOperations) + 1; i > 0; --i) {
    const auto operation = globalOperation(choices, stored);
    const auto got = perform(fast, operation, bounded);
    const auto wanted = perform(slow, operation, bounded);
    const std::string story = told(operation, got) + " slow " + told(operation, wanted);
    require(got.status == wanted.status, "status", story);
    require(got.position == wanted.position, "position", story);
    require(std::memcmp(&got.found, &wanted.found, sizeof got.found) == 0, "found", story);
    const std::string after = vrxtest::bytesAt(fastPath);
    require(after == vrxtest::bytesAt(slowPath), "file", story);
    require(got.status == 0 || after == before, "changed by what failed", story);
    before = after;
  }
}

std::string longRecord(bool plain) {
  constexpr std::size_t kLonger = 33000;  // than a reader's block
  if (plain) return std::string(kLonger, 'l');
  const auto text = [](const char* value) { return vrxtest::entryOf(value + std::string(1, 0)); };
  return vrxtest::imageOf(kGlobalRegVariable, 0x4003,
                          {text("long"), text("x"), vrxtest::entryOf(std::string(kLonger, 'l'))},
                          kVariableKnown & ~kVariableKey);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return 0;
  ByteChoices choices(vrxfuzz::bytesOf(data + 2, kHead - 2));
  std::string bytes = vrxfuzz::bytesOf(data + kHead, size - kHead);
  const bool plain = (data[0] & 1) != 0;
  const unsigned chosen = data[0] >> 1;
  const ByteOrder order = (chosen & 4) != 0 ? ByteOrder::kBig : ByteOrder::kHost;
  if ((chosen & 16) != 0) bytes = withFrame(bytes, data[1], longRecord(plain), order);
  if (plain) {
    runPlain(chosen, choices, bytes);
  } else {
    runGlobal(chosen, choices, bytes);
  }
  return 0;
}
