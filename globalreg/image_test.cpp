// SPDX-License-Identifier: Apache-2.0
// What is told of an image without unpacking it is what unpacking, packing and matching would tell.
#include "globalreg/internal/image.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "globalreg/global_reg.h"

namespace {

using globalreg::kImageSlots;

constexpr unsigned kEverything =
    kGenRegImageWhole | kGenRegImageStable | kGenRegImageDiffers | kGenRegImageAgrees;
// What unpacking in place needs behind an image whose end is not yet known.
constexpr std::size_t kSlack = 0x12000;

using Bytes = std::vector<unsigned char>;

// A block that an image can be unpacked in.
Bytes roomy(const Bytes& image) {
  Bytes block(image);
  block.resize(std::max<std::size_t>(image.size(), sizeof(GlobalRegRecord)) + kSlack);
  return block;
}

bool unpacks(const Bytes& image, Bytes* record) {
  *record = roomy(image);
  void* at = record->data();
  unsigned long size = 0;
  if (image.size() < 24 || GlobalReg::GetPackedRecordSize(at, &size) != 0) return false;
  return size <= image.size() && GlobalReg::UnpackRecord(&at) == 0;
}

bool staysTheSame(const Bytes& image) {
  Bytes record;
  if (!unpacks(image, &record)) return false;
  Bytes previous = roomy(image);
  void* at = record.data();
  unsigned long size = 0;
  EXPECT_EQ(GlobalReg::PackRecord(&at, previous.data()), 0);
  EXPECT_EQ(GlobalReg::GetPackedRecordSize(at, &size), 0);
  return size == image.size() && std::memcmp(at, image.data(), size) == 0;
}

// A small alphabet, so that records agree often enough.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  GlobalRegRecord record() {
    GlobalRegRecord made{};
    made.RecordType = 1U << below(3);
    const globalreg::Layout& layout = *globalreg::layoutOf(made.RecordType);
    made.FieldMask = random_() & layout.known;
    if (below(3) > 0) made.FieldMask |= 0x7;
    made.MissingFieldMask = below(4) > 0 ? layout.known & ~made.FieldMask : 0;
    made.CheckSum = static_cast<std::uint32_t>(random_());
    auto* bytes = reinterpret_cast<unsigned char*>(&made);
    for (const globalreg::Field& field : layout)
      fill(bytes + field.offset, field);
    return made;
  }

  // The record's image, now and then with fields of a later revision.
  Bytes image(GlobalRegRecord made) {
    Bytes block(sizeof made + 4096);
    std::memcpy(block.data(), &made, sizeof made);
    void* at = block.data();
    unsigned long size = 0;
    EXPECT_EQ(GlobalReg::PackRecord(&at, nullptr), 0);
    EXPECT_EQ(GlobalReg::GetPackedRecordSize(at, &size), 0);
    block.resize(size);
    if (below(4) == 0) addLaterField(block);
    return block;
  }

  void damage(Bytes& image) {
    const unsigned kind = below(5);
    if (kind == 0) image.resize(below(static_cast<unsigned>(image.size()) + 1));
    if (kind == 1) image.insert(image.end(), below(40), 'x');
    for (unsigned i = below(4); i > 0 && !image.empty(); --i) {
      const unsigned header = below(2) == 0 ? 100 : static_cast<unsigned>(image.size());
      image[below(std::min(header, static_cast<unsigned>(image.size())))] =
          static_cast<unsigned char>(below(3) == 0 ? random_() : below(12));
    }
  }

 private:
  void fill(unsigned char* to, const globalreg::Field& field) {
    if (field.kind != globalreg::FieldKind::text) {
      *to = static_cast<unsigned char>(below(3));
      return;
    }
    const unsigned length = below(20) == 0 ? field.width : below(4);
    for (unsigned i = 0; i < length; ++i)
      to[i] = static_cast<unsigned char>('a' + below(2));
  }

  static void addLaterField(Bytes& image) {
    const unsigned char entry[] = {3, 0, 'n', 'e', 'w'};
    image.insert(image.end() - 4, std::begin(entry), std::end(entry));
    image[5] = static_cast<unsigned char>(image[5] | 0x40);  // bit 14 of the mask
  }

  std::mt19937_64 random_;
};

void expectTruth(const Bytes& image, unsigned long long mask, GlobalRegRecord key) {
  const unsigned found = kImageSlots.examine(kEverything, image.data(), image.size(), mask, &key);
  Bytes record;
  const bool whole = unpacks(image, &record);
  EXPECT_EQ((found & kGenRegImageWhole) != 0, whole);
  EXPECT_TRUE((found & kGenRegImageStable) == 0 || staysTheSame(image));
  EXPECT_NE(found & (kGenRegImageDiffers | kGenRegImageAgrees),
            unsigned{kGenRegImageDiffers | kGenRegImageAgrees});
  if (!whole) return;
  const int matches = GlobalReg::MatchRecord(mask, record.data(), &key);
  EXPECT_TRUE((found & kGenRegImageDiffers) == 0 || matches == 0);
  EXPECT_TRUE((found & kGenRegImageAgrees) == 0 || matches == 1);
  GlobalRegRecord elsewhere;
  std::memset(&elsewhere, 'x', sizeof elsewhere);
  kImageSlots.unpackTo(image.data(), &elsewhere);
  EXPECT_EQ(std::memcmp(&elsewhere, record.data(), sizeof elsewhere), 0);
}

TEST(GlobalRegImage, NothingIsToldThatUnpackingWouldNotTell) {
  Generator random(20260217);
  for (int i = 0; i < 60000 && !testing::Test::HasFailure(); ++i) {
    SCOPED_TRACE(i);
    Bytes image = random.image(random.record());
    if (random.below(2) == 0) random.damage(image);
    image.shrink_to_fit();  // so that a sanitizer sees a byte too many
    const unsigned long long mask = random.below(4) == 0 ? ~0ULL : random.below(1024);
    GlobalRegRecord key = random.record();
    if (random.below(8) == 0) key.RecordType = 0;
    expectTruth(image, mask, key);
  }
}

TEST(GlobalRegImage, EverythingIsToldOfAnImageAsItIsPacked) {
  Generator random(3);
  for (int i = 0; i < 2000; ++i) {
    GlobalRegRecord made = random.record();
    made.MissingFieldMask = globalreg::layoutOf(made.RecordType)->known & ~made.FieldMask;
    const Bytes image = random.image(made);
    const GlobalRegRecord key = random.record();
    const unsigned found = kImageSlots.examine(kEverything, image.data(), image.size(), 0x7, &key);
    EXPECT_EQ(found & (kGenRegImageWhole | kGenRegImageStable),
              unsigned{kGenRegImageWhole | kGenRegImageStable});
    EXPECT_NE(found & (kGenRegImageDiffers | kGenRegImageAgrees), 0U);
  }
}

TEST(GlobalRegImage, OfAnUnknownTypeNothingIsTold) {
  Bytes image(24);
  image[0] = 3;
  const GlobalRegRecord key{};
  EXPECT_EQ(kImageSlots.examine(kEverything, image.data(), image.size(), 0, &key), 0U);
}

}  // namespace
