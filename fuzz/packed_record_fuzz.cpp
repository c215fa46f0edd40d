// SPDX-License-Identifier: Apache-2.0
// One hostile packed image: unpacked, packed again, matched, validated, printed and written to a
// change-log line; and what is told of it without unpacking beside what unpacking tells. The first
// bytes choose a mask and a key; the rest is the image.
#include <array>
#include <memory>

#include "fuzz/file_support.h"
#include "fuzz/packed_image.h"
#include "globalreg/internal/change_line.h"
#include "globalreg/internal/image.h"

namespace {

using globalreg::kImageSlots;
using vrxfuzz::ByteChoices;
using vrxfuzz::imageLength;
using vrxfuzz::require;
using vrxfuzz::roomyBlock;
using vrxfuzz::unpacked;

constexpr std::size_t kHead = 16;
constexpr unsigned kEverything =
    kGenRegImageWhole | kGenRegImageStable | kGenRegImageDiffers | kGenRegImageAgrees;

bool isSame(const GlobalRegRecord& a, const GlobalRegRecord& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The image's own record with a few bytes changed, or one without fields.
GlobalRegRecord keyFor(const std::string& image, ByteChoices& choices) {
  GlobalRegRecord key = unpacked(image).value_or(GlobalRegRecord{});
  std::array<char, sizeof key> bytes;
  std::memcpy(bytes.data(), &key, sizeof key);
  for (unsigned i = choices.below(3); i > 0; --i) {
    const std::size_t at = 256 * choices.below(11) + choices.below(256);
    bytes[at % sizeof key] = static_cast<char>(choices.below(256));
  }
  std::memcpy(&key, bytes.data(), sizeof key);
  return key;
}

// Neither may be wrong; that something cannot be told is never wrong.
void judgeFindings(const std::string& image, unsigned long long mask, GlobalRegRecord key) {
  // Of exactly the image's size, so that the sanitizer sees a byte too many.
  const auto exact = std::make_unique<char[]>(image.size());
  std::memcpy(exact.get(), image.data(), image.size());
  const unsigned found = kImageSlots.examine(kEverything, exact.get(), image.size(), mask, &key);
  std::optional<GlobalRegRecord> record = unpacked(image);
  require(((found & kGenRegImageWhole) != 0) == record.has_value(), "whole");
  constexpr unsigned kBoth = kGenRegImageDiffers | kGenRegImageAgrees;
  require((found & kBoth) != kBoth, "differs and agrees");
  for (const unsigned wanted : {kGenRegImageWhole, kGenRegImageStable, kGenRegImageDiffers}) {
    const unsigned less = kImageSlots.examine(wanted, exact.get(), image.size(), mask, &key);
    require((less & wanted) == (found & wanted), "a finding that depends on what is asked");
  }
  if (!record) return require((found & kGenRegImageStable) == 0, "stable, but not whole");
  const int matches = GlobalReg::MatchRecord(mask, &*record, &key);
  require((found & kGenRegImageDiffers) == 0 || matches == 0, "differs");
  require((found & kGenRegImageAgrees) == 0 || matches == 1, "agrees");
  GlobalRegRecord elsewhere;
  std::memset(&elsewhere, '#', sizeof elsewhere);
  kImageSlots.unpackTo(exact.get(), &elsewhere);
  require(isSame(elsewhere, *record), "unpacked elsewhere");
}

// Packs the record over the image that it came from; empty when that is refused.
std::string packedAgain(const GlobalRegRecord& record, const std::string& image) {
  std::vector<char> block = roomyBlock(image);
  std::vector<char> previous = block;
  std::memcpy(block.data(), &record, sizeof record);
  void* at = block.data();
  if (GlobalReg::PackRecord(&at, previous.data()) != 0) return "";
  unsigned long size = 0;
  require(GlobalReg::GetPackedRecordSize(at, &size) == 0, "no size");
  require(size <= block.size(), "larger than its block");
  const std::string packed(static_cast<const char*>(at), size);
  require(imageLength(packed) == size, "the length of what was packed");
  return packed;
}

// What is packed a second time stays as it is, and is told to.
void judgePacking(const std::string& image, const GlobalRegRecord& record) {
  const bool stable =
      (kImageSlots.examine(kGenRegImageStable, image.data(), image.size(), 0, nullptr) &
       kGenRegImageStable) != 0;
  const std::string once = packedAgain(record, image);
  require(!once.empty(), "not packed");
  require(!stable || once == image, "stable, but packed otherwise");
  const std::optional<GlobalRegRecord> again = unpacked(once);
  require(again.has_value(), "not unpacked again");
  const std::string twice = packedAgain(*again, once);
  const std::optional<GlobalRegRecord> last = unpacked(twice);
  require(last && isSame(*last, *again), "a record that packing changes twice");
  const unsigned told =
      kImageSlots.examine(kGenRegImageStable, twice.data(), twice.size(), 0, nullptr);
  const bool hasBit63 = (last->FieldMask >> 63) != 0;
  require(hasBit63 || (told & kGenRegImageStable) != 0, "packed twice, but not stable");
}

// Outputs for people take whatever fields hold.
void show(GlobalRegRecord record, unsigned long long mask) {
  require(GlobalReg::PrintRecord(&record) == 0, "not printed");
  const auto line = std::make_unique<globalreg::LineBuffer>();
  globalreg::appendRecord(*line, &record);
  line->endLine();
  require(line->size() <= globalreg::LineBuffer::kCapacity, "line too long");
  (void)GlobalReg::ValidateRecord(mask, &record);  // either answer is right
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return 0;
  unsigned long long mask = 0;
  std::memcpy(&mask, data, sizeof mask);
  ByteChoices choices(vrxfuzz::bytesOf(data + sizeof mask, kHead - sizeof mask));
  const std::string image = vrxfuzz::bytesOf(data + kHead, size - kHead);
  const vrxfuzz::DroppedOutput dropped;
  const vrxfuzz::Bounded bounded(image.size());
  judgeFindings(image, mask, keyFor(image, choices));
  std::vector<char> block = roomyBlock(image);
  unsigned long measured = 0;
  (void)GlobalReg::GetPackedRecordSize(block.data(), &measured);  // always 0
  require((measured <= image.size()) == imageLength(image).has_value() || image.size() < 24,
          "measured");
  if (const std::optional<GlobalRegRecord> record = unpacked(image)) {
    judgePacking(image, *record);
    show(*record, mask);
  }
  return 0;
}
