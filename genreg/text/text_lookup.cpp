// SPDX-License-Identifier: Apache-2.0
// Get and GetNext of the text store: the loop over lines until one matches.
#include <cstring>

#include "genreg/internal/lookup.h"
#include "genreg/internal/record_checks.h"
#include "genreg/text/internal/line_record.h"
#include "genreg/text/text_store.h"

using namespace genreg;

namespace {

// Which lines a search takes.
enum class Choice { kMatching, kEveryLine };

// What becomes of scratch memory that cannot be released once a lookup has its outcome.
enum class ReleaseFailure { kIsResult, kIsLogged };

class TextSearch {
 public:
  TextSearch(Operation& op, GenRegText& store, unsigned long long mask, void* key, void* result,
             Choice choice, ReleaseFailure releaseFailure)
      : store_(store),
        stored_(op, store, status::no_scratch_memory, status::scratch_not_released),
        mask_(mask),
        key_(key),
        result_(result),
        choice_(choice),
        releaseFailure_(releaseFailure) {}

  void checkKey(Operation& op);
  void measure(Operation& op) { maxRecord_ = measureMaxRecord(op, store_); }
  void allocate(Operation&) { stored_.allocate(500, maxRecord_); }
  void release() {
    if (releaseFailure_ == ReleaseFailure::kIsLogged) return stored_.releaseLoggedOnly();
    stored_.release();
  }
  void clearResult() { std::memset(result_, 0, maxRecord_); }
  Found find(Operation& op);

 private:
  bool isTaken(Operation& op);
  void copyOut(Operation& op);

  GenRegText& store_;
  LineRecord stored_;
  const unsigned long long mask_;
  void* const key_;
  void* const result_;
  const Choice choice_;
  const ReleaseFailure releaseFailure_;
  unsigned long maxRecord_ = 0;
};

// A search for every line has no key to check.
void TextSearch::checkKey(Operation& op) {
  if (choice_ == Choice::kMatching) return checkRecord(op, store_, mask_, key_);
  if (store_.validateRecord == nullptr) op.fail(510, status::no_validate_slot);
}

Found TextSearch::find(Operation& op) {
  stored_.readFrom(store_.registryStream);
  for (;;) {
    const LineStep step = stored_.next(op, status::read_failed);
    if (step == LineStep::kEnd) return Found::kEnd;
    const bool taken = step == LineStep::kLine && isTaken(op);
    if (taken) copyOut(op);
    if (op.failed()) return Found::kFailed;
    if (taken) return Found::kMatch;
  }
}

bool TextSearch::isTaken(Operation& op) {
  if (choice_ == Choice::kEveryLine) return true;
  return stored_.isParsed() && matches(op, store_, mask_, stored_.record(), key_);
}

// A copied record's strings would lie in the scratch record, so the line is parsed once more into
// the caller's.
void TextSearch::copyOut(Operation& op) {
  if (maxRecord_ < kMinResultSize) {
    op.fail(520, status::record_too_large);
    return;
  }
  std::memcpy(result_, stored_.record(), maxRecord_);
  (void)store_.parseLine(result_, stored_.text().line());  // as it did a moment ago
}

}  // namespace

GenRegStatus GenRegText::Get(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegTextGet, registryPath);
  TextSearch search(op, *this, mask, key, result, Choice::kMatching, ReleaseFailure::kIsLogged);
  runGet(op, *this, search);
  return op.status();
}

GenRegStatus GenRegText::GetNext(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegTextGetNext, registryPath);
  const Choice choice = mask == 0 ? Choice::kEveryLine : Choice::kMatching;
  TextSearch search(op, *this, mask, key, result, choice, ReleaseFailure::kIsResult);
  runGetNext(op, *this, search);
  return op.status();
}
