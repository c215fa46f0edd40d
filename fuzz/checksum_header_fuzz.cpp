// SPDX-License-Identifier: Apache-2.0
// A hostile file of a format with the checksum header: recognised or not, read, added to and
// stamped by an object that knows nothing of it; then put back for the object that has stamped it
// and requires its own. The first byte chooses whether the file is given a header that agrees, and
// a byte of it to spoil; the rest is the file.
#include <cstring>

#include "fuzz/file_support.h"
#include "fuzz/plain_rules.h"

namespace {

using vrxfuzz::require;
using vrxtest::PlainRecord;
using vrxtest::PlainRegistry;

constexpr std::size_t kHeader = 32;

// Words from the beginning, and what remains as signed bytes.
std::int32_t checksumOf(const std::string& body) {
  std::uint32_t sum = 0;
  std::size_t at = 0;
  for (; at + 4 <= body.size(); at += 4) {
    std::uint32_t word = 0;
    std::memcpy(&word, body.data() + at, sizeof word);
    sum ^= word;
  }
  for (; at < body.size(); ++at)
    sum ^= static_cast<std::uint32_t>(static_cast<signed char>(body[at]));
  return static_cast<std::int32_t>(sum);
}

std::string headerFor(const std::string& body) {
  std::string header = std::to_string(checksumOf(body));
  header.resize(kHeader, '\0');
  return header;
}

// What stands behind the text's NUL does not count.
bool hasHeader(const std::string& bytes) {
  if (bytes.size() < kHeader) return false;
  const std::string given = bytes.substr(0, kHeader);
  const std::size_t end = given.find('\0');
  return end != std::string::npos &&
         given.substr(0, end) == std::to_string(checksumOf(bytes.substr(kHeader)));
}

// One lookup, beside the model's.
void lookUp(PlainRegistry& registry, const vrxfuzz::PlainModel& model,
            const vrxfuzz::Bounded& bounded) {
  PlainRecord key = vrxtest::plainRecord("aa", 0);
  PlainRecord found = vrxtest::plainRecord("rubbish", -1);
  std::string wanted = vrxfuzz::bytesOfRecord(found);
  const unsigned status = model.get(vrxtest::kPlainName, vrxfuzz::bytesOfRecord(key), &wanted);
  const unsigned rc = bounded.call([&] { return registry.Get(vrxtest::kPlainName, &key, &found); });
  require(rc == status, "status of a lookup", std::to_string(rc));
  require(vrxfuzz::bytesOfRecord(found) == wanted, "record of a lookup");
}

void scan(PlainRegistry& registry, const vrxfuzz::PlainModel& model, std::size_t first,
          const vrxfuzz::Bounded& bounded) {
  require(bounded.call([&] { return registry.OpenScan(); }) == 0, "scan not opened");
  std::size_t at = first;
  for (unsigned status = 0; status == 0;) {
    PlainRecord anything{};
    PlainRecord found = vrxtest::plainRecord("rubbish", -1);
    std::string wanted = vrxfuzz::bytesOfRecord(found);
    status = model.next(0, vrxfuzz::bytesOfRecord(anything), &at, &wanted);
    const unsigned rc = bounded.call([&] { return registry.GetNext(0, &anything, &found); });
    require(rc == status, "status of a scan", std::to_string(rc));
    require(vrxfuzz::bytesOfRecord(found) == wanted, "record of a scan");
  }
  require(registry.CloseScan() == 0, "scan not closed");
}

// The object that has stamped the file: another file in its place is refused unless it agrees.
void requireOwn(PlainRegistry& registry, const std::string& path, const std::string& bytes) {
  vrxtest::putBytes(path, bytes);
  const vrxfuzz::Bounded bounded(bytes.size());
  const bool agrees = bytes.empty() || hasHeader(bytes);
  PlainRecord key = vrxtest::plainRecord("none", 0);
  PlainRecord found{};
  const unsigned rc = bounded.call([&] { return registry.Get(vrxtest::kPlainName, &key, &found); });
  require((rc == vrxfuzz::kNotOpened) == !agrees, "opened or not", std::to_string(rc));
  const unsigned removed = bounded.call([&] { return registry.Delete(0, &key); });
  require(agrees || removed == vrxfuzz::kNotOpened, "updated", std::to_string(removed));
  if (removed != 0) require(vrxtest::bytesAt(path) == bytes, "changed by what failed");
}

void run(const std::string& bytes) {
  const std::string path = vrxfuzz::scratchFile("checksummed");
  vrxtest::putBytes(path, bytes);
  const std::size_t first = hasHeader(bytes) ? kHeader : 0;
  const vrxfuzz::Bounded bounded(bytes.size());
  PlainRegistry registry(path, kGenRegChecksumHeader);
  vrxfuzz::PlainModel model(vrxfuzz::plainRules(), bytes, first);
  lookUp(registry, model, bounded);
  scan(registry, model, first, bounded);
  PlainRecord added = vrxtest::plainRecord("new", 7);
  const unsigned status = model.add(vrxtest::kPlainName, vrxfuzz::bytesOfRecord(added));
  const unsigned rc = bounded.call([&] { return registry.Add(vrxtest::kPlainName, &added); });
  require(rc == status, "status of an update", std::to_string(rc));
  const std::string body = model.bytes.substr(first);
  const std::string wanted = rc == 0 ? headerFor(body) + body : bytes;
  require(vrxtest::bytesAt(path) == wanted, "file");
  if (rc == 0) requireOwn(registry, path, bytes);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::string bytes = vrxfuzz::bytesOf(data + 1, size - 1);
  if ((data[0] & 1) != 0) {
    bytes = headerFor(bytes) + bytes;
    const std::size_t spoilt = data[0] / 2;
    if (spoilt < bytes.size()) bytes[spoilt] = static_cast<char>(bytes[spoilt] ^ 1);
  }
  const vrxfuzz::DroppedOutput dropped;  // every stamping prints a line
  run(bytes);
  return 0;
}
