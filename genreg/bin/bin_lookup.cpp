// SPDX-License-Identifier: Apache-2.0
// Get and GetNext of the binary store: the loop over frames until one matches.
#include <cstring>
#include <optional>

#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/bin/internal/image_view.h"
#include "genreg/internal/lookup.h"
#include "genreg/internal/record_checks.h"
#include "genreg/internal/scan_reader.h"

using namespace genreg;

namespace {

template <LookupKind kind>
class BinSearch {
 public:
  BinSearch(GenRegBin& store, unsigned long long mask, void* key, void* result)
      : store_(store), images_(store), mask_(mask), key_(key), result_(result) {}

  void checkKey(Operation& op) { checkRecord(op, store_, mask_, key_); }
  void measure(Operation& op) { maxRecord_ = measureMaxRecord(op, store_); }
  void allocate(Operation& op);
  void release();
  void clearResult() { std::memset(result_, 0, maxRecord_); }
  BlockCursor& cursor() { return reader_->cursor(); }
  Found find(Operation& op);

 private:
  bool isTaken(Operation& op);
  bool isMatch(Operation& op, ImageEnd imageEnd);
  bool isLargeEnough(Operation& op);

  GenRegBin& store_;
  const ImageView images_;
  const unsigned long long mask_;
  void* const key_;
  void* const result_;
  unsigned long maxRecord_ = 0;
  FrameReader* reader_ = nullptr;
  std::optional<FrameReader> own_;
};

// Where records can be told apart as they lie, the scratch record is taken when one cannot.
template <LookupKind kind>
void BinSearch<kind>::allocate(Operation& op) {
  if (kind == LookupKind::kGetNext) {
    reader_ = scanReaderOf<FrameReader>(op, store_);
  } else {
    reader_ = &own_.emplace(op, store_, status::no_scratch_memory, status::scratch_not_released);
  }
  if (reader_ == nullptr) return;
  reader_->prepare(maxRecord_);
  if (!images_.isAvailable()) reader_->allocate(500, ImageEnd::kUnknown);
}

template <LookupKind kind>
void BinSearch<kind>::release() {
  if (own_.has_value()) {
    own_->release();
  } else if (reader_ != nullptr) {
    reader_->reportTo(nullptr);
  }
}

template <LookupKind kind>
Found BinSearch<kind>::find(Operation& op) {
  for (;;) {
    const GenRegStatus rc = reader_->next();
    if (rc == status::end_of_registry) return Found::kEnd;
    if (rc != status::ok) op.fail(510, status::read_failed, rc);
    const bool taken = !op.failed() && isTaken(op);
    if (op.failed()) return Found::kFailed;
    if (taken) return Found::kMatch;
  }
}

// Whether the frame's record agrees with the key; the caller has then got it. A damaged frame ends
// the lookup even where what is left of it would differ, so each must be seen to be whole.
template <LookupKind kind>
bool BinSearch<kind>::isTaken(Operation& op) {
  constexpr unsigned kWanted = kGenRegImageWhole | kGenRegImageDiffers | kGenRegImageAgrees;
  const unsigned found =
      images_.examine(kWanted, reader_->frame(), reader_->frameLength(), mask_, key_);
  const bool whole = (found & kGenRegImageWhole) != 0;
  if (whole && (found & kGenRegImageDiffers) != 0) return false;
  // Unreached: a whole image is always found to differ or to agree, and its record is never too
  // small.
  if (whole && (found & kGenRegImageAgrees) != 0) {
    // Unreached: likewise.
    if (isLargeEnough(op)) images_.unpackTo(reader_->frame(), result_);
    return true;
  }
  // Unreached: likewise.
  if (!isMatch(op, whole ? ImageEnd::kKnown : ImageEnd::kUnknown)) return false;
  if (isLargeEnough(op)) std::memcpy(result_, reader_->record(), maxRecord_);
  return true;
}

template <LookupKind kind>
bool BinSearch<kind>::isMatch(Operation& op, ImageEnd imageEnd) {
  reader_->load(op, status::read_failed, imageEnd);
  if (op.failed()) return false;
  reader_->unpack(op);
  if (!op.failed()) return matches(op, store_, mask_, reader_->record(), key_);
  if (kind == LookupKind::kGetNext) clearResult();
  return false;
}

template <LookupKind kind>
bool BinSearch<kind>::isLargeEnough(Operation& op) {
  if (maxRecord_ < kMinResultSize) op.fail(520, status::record_too_large);
  return !op.failed();
}

}  // namespace

int GenRegBin::Get(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegBinGet, registryPath);
  BinSearch<LookupKind::kGet> search(*this, mask, key, result);
  runGet(op, *this, search);
  return op.result();
}

int GenRegBin::GetNext(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegBinGetNext, registryPath);
  BinSearch<LookupKind::kGetNext> search(*this, mask, key, result);
  runGetNext(op, *this, search);
  return op.result();
}
