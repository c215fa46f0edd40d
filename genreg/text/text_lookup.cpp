// SPDX-License-Identifier: Apache-2.0
// Get and GetNext of the text store: the loop over lines until one matches.
#include <cstring>
#include <optional>

#include "genreg/internal/lookup.h"
#include "genreg/internal/record_checks.h"
#include "genreg/internal/scan_reader.h"
#include "genreg/text/internal/line_filter.h"
#include "genreg/text/internal/line_record.h"
#include "genreg/text/text_store.h"

using namespace genreg;

namespace {

template <LookupKind kind>
class TextSearch {
 public:
  TextSearch(GenRegText& store, unsigned long long mask, void* key, void* result)
      : store_(store), mask_(mask), key_(key), result_(result) {}

  void checkKey(Operation& op);
  void measure(Operation& op) { maxRecord_ = measureMaxRecord(op, store_); }
  void allocate(Operation& op);
  void release();
  void clearResult() { std::memset(result_, 0, maxRecord_); }
  BlockCursor& cursor() { return stored_->cursor(); }
  Found find(Operation& op);

 private:
  bool wantsEveryLine() const { return kind == LookupKind::kGetNext && mask_ == 0; }
  bool isTaken(Operation& op, const LineFilter& filter);
  // A copied record's strings would lie in the scratch record, so the line is parsed into the
  // caller's. One that does not parse is handed out, too, as far as it goes in an empty record.
  void handOut(Operation& op) {
    if (maxRecord_ < kMinResultSize) {
      op.fail(520, status::record_too_large);
      return;
    }
    if (stored_->parseInto(op, result_)) return;
    (void)store_.parseLine(result_, stored_->text().line());  // as it did a moment ago
  }

  GenRegText& store_;
  const unsigned long long mask_;
  void* const key_;
  void* const result_;
  unsigned long maxRecord_ = 0;
  LineRecord* stored_ = nullptr;
  std::optional<LineRecord> own_;
};

template <LookupKind kind>
void TextSearch<kind>::allocate(Operation& op) {
  if (kind == LookupKind::kGetNext) {
    stored_ = scanReaderOf<LineRecord>(op, store_);
  } else {
    stored_ = &own_.emplace(op, store_, status::no_scratch_memory, status::scratch_not_released);
  }
  if (stored_ != nullptr) stored_->allocate(500, maxRecord_);
}

// A lookup's outcome is not spoilt by memory that cannot be given back.
template <LookupKind kind>
void TextSearch<kind>::release() {
  if (own_.has_value()) {
    own_->releaseLoggedOnly();
  } else if (stored_ != nullptr) {
    stored_->reportTo(nullptr);
  }
}

// A search for every line has no key to check.
template <LookupKind kind>
void TextSearch<kind>::checkKey(Operation& op) {
  if (!wantsEveryLine()) return checkRecord(op, store_, mask_, key_);
  if (store_.validateRecord == nullptr) op.fail(510, status::no_validate_slot);
}

template <LookupKind kind>
Found TextSearch<kind>::find(Operation& op) {
  const LineFilter filter(store_, mask_, wantsEveryLine() ? nullptr : key_);
  for (;;) {
    while (filter.passOver(stored_->text()).length > 0)
      continue;
    const LineStep step = stored_->next(op, status::read_failed);
    if (step == LineStep::kEnd) return Found::kEnd;
    const bool taken = step == LineStep::kLine && (wantsEveryLine() || isTaken(op, filter));
    if (taken) handOut(op);
    if (op.failed()) return Found::kFailed;
    if (taken) return Found::kMatch;
  }
}

template <LookupKind kind>
bool TextSearch<kind>::isTaken(Operation& op, const LineFilter& filter) {
  if (!filter.mayAgree(stored_->text())) return false;
  stored_->parse(op);
  return stored_->isParsed() && matches(op, store_, mask_, stored_->record(), key_);
}

}  // namespace

GenRegStatus GenRegText::Get(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegTextGet, registryPath);
  TextSearch<LookupKind::kGet> search(*this, mask, key, result);
  runGet(op, *this, search);
  return op.status();
}

GenRegStatus GenRegText::GetNext(unsigned long long mask, void* key, void* result) {
  Operation op(kGenRegTextGetNext, registryPath);
  TextSearch<LookupKind::kGetNext> search(*this, mask, key, result);
  runGetNext(op, *this, search);
  return op.status();
}
