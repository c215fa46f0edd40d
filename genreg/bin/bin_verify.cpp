// SPDX-License-Identifier: Apache-2.0
// What the binary store brings to verification: frames, unpacked and compared in every field.
#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/internal/verification.h"

using namespace genreg;

namespace {

class FrameComparison {
 public:
  static constexpr SeveralChanged kSeveralChanged = SeveralChanged::kAbandon;

  FrameComparison(Operation& op, GenRegBin& store, unsigned long long mask, void* newRecord,
                  void* key)
      : store_(store),
        mask_(mask),
        newRecord_(newRecord),
        key_(key),
        earlier_(op, store, status::no_first_buffer, status::first_buffer_not_released),
        current_(op, store, status::no_second_buffer, status::second_buffer_not_released) {}

  void allocate(Operation& op, unsigned long maxRecord) {
    earlier_.allocate(200, maxRecord);
    if (!op.failed()) current_.allocate(201, maxRecord);
  }
  void begin() {
    earlier_.readFrom(store_.registryStream, store_.registrySize);
    current_.readFrom(store_.temporaryStream, store_.temporarySize);
  }
  bool readEarlier(Operation& op) { return read(op, earlier_, status::read_failed); }
  bool readCurrent(Operation& op) { return read(op, current_, status::verify_read_failed); }
  bool isLastEarlier() const { return false; }  // the frames that follow tell
  bool isSelected(Operation& op) { return matches(op, store_, mask_, earlier_.record(), key_); }
  bool isSame(Operation& op) { return areEqual(op, earlier_.record(), current_.record()); }
  bool isGiven(Operation& op) { return areEqual(op, current_.record(), newRecord_); }

 private:
  bool read(Operation& op, FrameReader& reader, GenRegStatus failure);
  bool areEqual(Operation& op, void* a, void* b);

  GenRegBin& store_;
  const unsigned long long mask_;
  void* const newRecord_;
  void* const key_;
  FrameReader earlier_;
  FrameReader current_;
};

bool FrameComparison::read(Operation& op, FrameReader& reader, GenRegStatus failure) {
  const GenRegStatus rc = reader.next();
  if (rc == status::end_of_registry) return false;
  if (rc != status::ok) {
    op.fail(210, failure, rc);
    return false;
  }
  reader.unpack(op);
  return !op.failed();
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
