// SPDX-License-Identifier: Apache-2.0
// A hostile file of binary variables: looked up, scanned and updated beside the model of frames.
// The first bytes choose the operations; the rest is the file.
#include <string_view>

#include "fuzz/file_support.h"
#include "fuzz/plain_rules.h"

namespace {

using vrxfuzz::Bounded;
using vrxfuzz::ByteChoices;
using vrxfuzz::bytesOfRecord;
using vrxfuzz::require;
using Record = GenRegBinVarValRecord;

constexpr std::size_t kHead = 40;
constexpr unsigned kMostOperations = 5;

// Any bytes may stand in a record: names that fill their array, and what is behind a NUL.
Record recordChoice(ByteChoices& choices) {
  constexpr std::string_view kNames[] = {"a", "aa", "sixteen-bytes-..", "", {"a\0b", 3}};
  Record record{};
  const std::string_view name = kNames[choices.below(5)];
  std::memcpy(record.variable, name.data(), name.size());
  record.value = static_cast<std::int32_t>(choices.below(3));
  record.comment[0] = static_cast<char>(choices.below(256));
  return record;
}

void search(GenRegBinVarVal& registry, const vrxfuzz::PlainModel& model, const Bounded& bounded,
            unsigned long long mask, Record key) {
  Record found;
  std::memset(&found, '#', sizeof found);
  std::string wanted = bytesOfRecord(found);
  const unsigned status = model.get(mask, bytesOfRecord(key), &wanted);
  const unsigned rc = bounded.call([&] { return registry.Get(mask, &key, &found); });
  require(bytesOfRecord(found) == wanted, "found");
  require(rc == status, "status of a lookup", std::to_string(rc));
  require(bounded.call([&] { return registry.OpenScan(); }) == 0, "scan not opened");
  unsigned last = 0;
  for (std::size_t at = 0; last == 0;) {
    last = model.next(mask, bytesOfRecord(key), &at, &wanted);
    const unsigned next = bounded.call([&] { return registry.GetNext(mask, &key, &found); });
    require(next == last, "status of a scan", std::to_string(next));
    require(bytesOfRecord(found) == wanted, "found by a scan");
  }
  require(registry.CloseScan() == 0, "scan not closed");
}

void step(GenRegBinVarVal& registry, vrxfuzz::PlainModel& model, const Bounded& bounded,
          ByteChoices& choices) {
  const unsigned verb = choices.below(4);
  const unsigned long long mask = choices.below(4);
  Record key = recordChoice(choices);
  Record record = recordChoice(choices);
  unsigned wanted = 0;
  unsigned rc = 0;
  if (verb == 0) {
    wanted = model.add(mask, bytesOfRecord(record));
    rc = bounded.call([&] { return registry.Add(mask, &record); });
  } else if (verb == 1) {
    wanted = model.change(mask, bytesOfRecord(key), bytesOfRecord(record));
    rc = bounded.call([&] { return registry.Change(mask, &key, &record); });
  } else if (verb == 2) {
    wanted = model.remove(mask, bytesOfRecord(key));
    rc = bounded.call([&] { return registry.Delete(mask, &key); });
  } else {
    search(registry, model, bounded, mask, key);
  }
  const std::string story = "verb " + std::to_string(verb) + " mask " + std::to_string(mask) +
                            " status " + std::to_string(rc) + " wanted " + std::to_string(wanted);
  require(rc == wanted, "status", story);
  require(vrxtest::bytesAt(registry.registryPath) == model.bytes, "file", story);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return 0;
  ByteChoices choices(vrxfuzz::bytesOf(data, kHead));
  const std::string bytes = vrxfuzz::bytesOf(data + kHead, size - kHead);
  std::string path = vrxfuzz::scratchFile("variables");
  vrxtest::putBytes(path, bytes);
  const Bounded bounded(bytes.size() + kMostOperations * (4 + sizeof(Record)));
  unsigned status = 0;
  GenRegBinVarVal registry(path.data(), &status);
  require(status == 0, "no paths");
  vrxfuzz::PlainModel model(vrxfuzz::binaryVariableRules(), bytes);
  for (unsigned i = choices.below(kMostOperations) + 1; i > 0; --i)
    step(registry, model, bounded, choices);
  return 0;
}
