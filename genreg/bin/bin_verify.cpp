// SPDX-License-Identifier: Apache-2.0
// What the binary store brings to verification: frames, unpacked and compared in every field.
#include <cstring>

#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/bin/internal/image_view.h"
#include "genreg/internal/verification.h"

using namespace genreg;

namespace {

// One of the two files: its frames, the one read last unpacked when it had to be.
struct Side {
  FrameReader reader;
  GenRegStatus failure;  // when it cannot be read
  bool whole = false;    // the frame would unpack
  bool unpacked = false;
};

class FrameComparison {
 public:
  static constexpr SeveralChanged kSeveralChanged = SeveralChanged::kAbandon;

  FrameComparison(Operation& op, GenRegBin& store, unsigned long long mask, void* newRecord,
                  void* key)
      : store_(store),
        images_(store),
        mask_(mask),
        newRecord_(newRecord),
        key_(key),
        earlier_{{op, store, status::no_first_buffer, status::first_buffer_not_released},
                 status::read_failed},
        current_{{op, store, status::no_second_buffer, status::second_buffer_not_released},
                 status::verify_read_failed} {}

  void allocate(Operation& op, unsigned long maxRecord) {
    earlier_.reader.prepare(maxRecord);
    current_.reader.prepare(maxRecord);
    if (images_.isAvailable()) return;
    earlier_.reader.allocate(200, ImageEnd::kUnknown);
    if (!op.failed()) current_.reader.allocate(201, ImageEnd::kUnknown);
  }
  void begin() {
    earlier_.reader.cursor().readFrom(store_.registryStream, store_.firstRecord,
                                      store_.registrySize);
    current_.reader.cursor().readFrom(store_.temporaryStream, 0, store_.temporarySize);
  }
  void passOverSame() {}  // every frame has to be seen to be whole
  bool readEarlier(Operation& op);
  bool readCurrent(Operation& op);
  bool isLastEarlier() const { return false; }  // the frames that follow tell
  bool isSelected(Operation& op) {
    return isUnpacked(op, earlier_) && matches(op, store_, mask_, earlier_.reader.record(), key_);
  }
  bool isSame(Operation& op) {
    if (hasSameBytes()) return true;
    return isUnpacked(op, earlier_) && isUnpacked(op, current_) &&
           areEqual(op, earlier_.reader.record(), current_.reader.record());
  }
  bool isGiven(Operation& op) {
    return isUnpacked(op, current_) && areEqual(op, current_.reader.record(), newRecord_);
  }

 private:
  bool step(Operation& op, Side& side);
  bool hasSameBytes() const;
  void takeStock(Operation& op, Side& side);
  bool isUnpacked(Operation& op, Side& side);
  bool areEqual(Operation& op, void* a, void* b);

  GenRegBin& store_;
  const ImageView images_;
  const unsigned long long mask_;
  void* const newRecord_;
  void* const key_;
  Side earlier_;
  Side current_;
};

bool FrameComparison::step(Operation& op, Side& side) {
  side.whole = side.unpacked = false;
  const GenRegStatus rc = side.reader.next();
  if (rc != status::ok && rc != status::end_of_registry) op.fail(210, side.failure, rc);
  return rc == status::ok;
}

// Frames of the same bytes are the same record, if they are one at all.
bool FrameComparison::hasSameBytes() const {
  const FrameReader& earlier = earlier_.reader;
  const FrameReader& current = current_.reader;
  return earlier_.whole && earlier.frameLength() == current.frameLength() &&
         std::memcmp(earlier.frame(), current.frame(), earlier.frameLength()) == 0;
}

// A frame is unpacked at once only where nothing else can tell whether it is damaged.
void FrameComparison::takeStock(Operation& op, Side& side) {
  const unsigned found =
      images_.examine(kGenRegImageWhole, side.reader.frame(), side.reader.frameLength());
  side.whole = (found & kGenRegImageWhole) != 0;
  if (!side.whole) (void)isUnpacked(op, side);  // reported to the operation
}

bool FrameComparison::readEarlier(Operation& op) {
  if (!step(op, earlier_)) return false;
  takeStock(op, earlier_);
  return !op.failed();
}

bool FrameComparison::readCurrent(Operation& op) {
  if (!step(op, current_)) return false;
  if (hasSameBytes()) {
    current_.whole = true;
  } else {
    takeStock(op, current_);
  }
  return !op.failed();
}

bool FrameComparison::isUnpacked(Operation& op, Side& side) {
  if (side.unpacked) return true;
  side.reader.load(op, side.failure, side.whole ? ImageEnd::kKnown : ImageEnd::kUnknown);
  if (!op.failed()) side.reader.unpack(op);
  side.unpacked = !op.failed();
  return side.unpacked;
}

// One record may have fields that the other's kind does not compare, so both are asked.
bool FrameComparison::areEqual(Operation& op, void* a, void* b) {
  return matches(op, store_, kAllFields, a, b) && matches(op, store_, kAllFields, b, a);
}

}  // namespace

int GenRegBin::Verify(unsigned int mode, unsigned long long mask, void* newRecord, void* key) {
  Operation op(kGenRegBinVerify, registryPath);
  runVerification(op, *this, mode, statusOf(CheckFuncPtrs()),
                  [&] { return FrameComparison(op, *this, mask, newRecord, key); });
  return op.result();
}
