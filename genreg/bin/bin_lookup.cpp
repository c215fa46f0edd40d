// SPDX-License-Identifier: Apache-2.0
// Get and GetNext of the binary store: the loop over frames until one matches.
#include <cstring>

#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/internal/lookup.h"
#include "genreg/internal/record_checks.h"

using namespace genreg;

namespace {

// What a damaged packed record does to the caller's result.
enum class OnDamage { kKeepResult, kClearResult };

class BinSearch {
 public:
  BinSearch(Operation& op, GenRegBin& store, unsigned long long mask, void* key, void* result,
            OnDamage onDamage)
      : store_(store),
        reader_(op, store, status::no_scratch_memory, status::scratch_not_released),
        mask_(mask),
        key_(key),
        result_(result),
        onDamage_(onDamage) {}

  void checkKey(Operation& op) { checkRecord(op, store_, mask_, key_); }
  void measure(Operation& op) { maxRecord_ = measureMaxRecord(op, store_); }
  void allocate(Operation&) { reader_.allocate(500, maxRecord_); }
  void release() { reader_.release(); }
  void clearResult() { std::memset(result_, 0, maxRecord_); }
  Found find(Operation& op);

 private:
  bool isMatch(Operation& op);
  void copyOut(Operation& op);

  GenRegBin& store_;
  FrameReader reader_;
  const unsigned long long mask_;
  void* const key_;
  void* const result_;
  const OnDamage onDamage_;
  unsigned long maxRecord_ = 0;
};

Found BinSearch::find(Operation& op) {
  reader_.readFrom(store_.registryStream, store_.registrySize);
  for (;;) {
    const GenRegStatus rc = reader_.next();
    if (rc == status::end_of_registry) return Found::kEnd;
    if (rc != status::ok) op.fail(510, status::read_failed, rc);
    const bool match = !op.failed() && isMatch(op);
    if (match) copyOut(op);
    if (op.failed()) return Found::kFailed;
    if (match) return Found::kMatch;
  }
}

bool BinSearch::isMatch(Operation& op) {
  reader_.unpack(op);
  if (!op.failed()) return matches(op, store_, mask_, reader_.record(), key_);
  if (onDamage_ == OnDamage::kClearResult) clearResult();
  return false;
}

void BinSearch::copyOut(Operation& op) {
  if (maxRecord_ < kMinResultSize) {
    op.fail(520, status::record_too_large);
    return;
  }
  std::memcpy(result_, reader_.record(), maxRecord_);
}

}  // namespace

int GenRegBin::Get(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegBinGet, registryPath);
  BinSearch search(op, *this, mask, key, result, OnDamage::kKeepResult);
  runGet(op, *this, search);
  return op.result();
}

int GenRegBin::GetNext(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegBinGetNext, registryPath);
  BinSearch search(op, *this, mask, key, result, OnDamage::kClearResult);
  runGetNext(op, *this, search);
  return op.result();
}
