// SPDX-License-Identifier: Apache-2.0
// A hostile file of plain records, read in every way: looked up, scanned, read frame by frame, and
// entered at a position. The first byte chooses byte order and repetition, the next three a key and
// a position; the rest is the file.
#include "fuzz/file_support.h"
#include "fuzz/plain_rules.h"

namespace {

using vrxfuzz::Bounded;
using vrxfuzz::ByteOrder;
using vrxfuzz::require;
using vrxtest::PlainRecord;
using vrxtest::PlainRegistry;

constexpr std::size_t kHead = 4;
constexpr std::size_t kEntered = 8;      // records that a scan is put back to
constexpr std::size_t kMostSteps = 600;  // of a scan: thousands of empty records show no more

// What a call gave, beside what it should have given.
struct Answer {
  unsigned status;
  PlainRecord record;
};

class Reading {
 public:
  Reading(const std::string& path, const std::string& bytes, ByteOrder order)
      : order_(order),
        model_(rulesWith(order), bytes),
        bounded_(bytes.size()),
        registry_(path, kGenRegVerifyCommit | (order == ByteOrder::kBig ? kGenRegBigEndian : 0U)) {
    vrxtest::putBytes(path, bytes);
  }

  void lookUp(unsigned long long mask, PlainRecord key) {
    Answer got = rubbish();
    got.status = bounded_.call([&] { return registry_.Get(mask, &key, &got.record); });
    std::string found = vrxfuzz::bytesOfRecord(rubbish().record);
    const unsigned wanted = model_.get(mask, vrxfuzz::bytesOfRecord(key), &found);
    compare(got, wanted, found, "get");
  }

  // From the first record to the end, over all damage; then once more from where some of them
  // began.
  void scan() {
    require(bounded_.call([&] { return registry_.OpenScan(); }) == 0, "scan not opened");
    std::vector<std::size_t> starts;
    for (std::size_t at = 0; starts.size() < kMostSteps && step(&at) != vrxfuzz::kEnd;)
      starts.push_back(at);
    require(registry_.Rewind() == 0, "not rewound");
    for (std::size_t i = 0; i < starts.size(); i += 1 + starts.size() / kEntered)
      readAt(starts[i]);
    require(registry_.CloseScan() == 0, "scan not closed");
  }

  // A position that no scan gave.
  void enter(std::size_t position) {
    require(registry_.OpenScan() == 0, "scan not opened");
    readAt(position);
    require(registry_.CloseScan() == 0, "scan not closed");
  }

  // As a program does that holds a stream itself.
  void readFrames() {
    FILE* file = std::fopen(registry_.registryPath, "r");
    require(file != nullptr, "not opened");
    void* buffer = nullptr;
    require(ossMemAlloc(&buffer, sizeof(PlainRecord), __FILE__, __LINE__) == 0, "no memory");
    std::size_t at = 0;
    for (std::size_t steps = 0; steps < kMostSteps; ++steps) {
      unsigned long length = 0;
      const unsigned rc =
          bounded_.call([&] { return registry_.ReadRecord(file, &buffer, &length); });
      const vrxfuzz::StoredFrame wanted = vrxfuzz::frameAt(model_.bytes, at, order_);
      require(rc == wanted.status, "status of ReadRecord", std::to_string(at));
      if (rc != 0) break;
      require(length == wanted.body.size(), "length of ReadRecord");
      require(std::memcmp(buffer, wanted.body.data(), length) == 0, "body of ReadRecord");
      at = wanted.next;
    }
    (void)ossMemFree(buffer, __FILE__, __LINE__);  // a leak is found in the end
    (void)std::fclose(file);
  }

 private:
  static vrxfuzz::PlainRules rulesWith(ByteOrder order) {
    vrxfuzz::PlainRules rules = vrxfuzz::plainRules();
    rules.order = order;
    return rules;
  }
  static Answer rubbish() { return {0, vrxtest::plainRecord("rubbish", -1)}; }

  static void compare(const Answer& got, unsigned status, const std::string& found,
                      const std::string& what) {
    require(got.status == status, "status", what + " " + std::to_string(got.status));
    require(vrxfuzz::bytesOfRecord(got.record) == found, "record", what);
  }

  // One step of a scan for every record, and where it ends.
  unsigned step(std::size_t* at) {
    PlainRecord anything{};
    Answer got = rubbish();
    got.status = bounded_.call([&] { return registry_.GetNext(0, &anything, &got.record); });
    std::string found = vrxfuzz::bytesOfRecord(rubbish().record);
    const unsigned wanted = model_.next(0, vrxfuzz::bytesOfRecord(anything), at, &found);
    compare(got, wanted, found, "next at " + std::to_string(*at));
    long long position = 0;
    require(registry_.getRegFilePosition(&position) == 0, "no position");
    require(position == static_cast<long long>(*at), "position", std::to_string(position));
    return wanted;
  }

  void readAt(std::size_t start) {
    long long position = static_cast<long long>(start);
    require(registry_.setRegFilePosition(&position) == 0, "position refused");
    if (step(&start) == vrxfuzz::kEnd) require(registry_.Rewind() == 0, "not rewound");
  }

  const ByteOrder order_;
  const vrxfuzz::PlainModel model_;
  const Bounded bounded_;
  PlainRegistry registry_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return 0;
  // Repeated, so that frames meet the ends of the reader's blocks.
  const unsigned times = (data[0] & 2) != 0 ? 1U + data[0] / 32 : 1;
  std::string bytes;
  for (unsigned i = 0; i < times; ++i)
    bytes += vrxfuzz::bytesOf(data + kHead, size - kHead);
  Reading reading(vrxfuzz::scratchFile("frames"), bytes,
                  (data[0] & 1) != 0 ? ByteOrder::kBig : ByteOrder::kHost);
  const PlainRecord key = vrxtest::plainRecord(std::string(data[1] % 3, 'a'), data[1] / 64);
  for (const unsigned long long mask : {0ULL, 1ULL, 2ULL, 3ULL})
    reading.lookUp(mask, key);
  reading.scan();
  reading.enter(256U * data[2] + data[3]);
  reading.readFrames();
  return 0;
}
