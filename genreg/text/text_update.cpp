// SPDX-License-Identifier: Apache-2.0
// Add, Change and Delete of the text store: the loop over lines into the temporary copy, and what
// each operation does with a line. The steps around the loop are in genreg/internal/update.h.
#include <cstdio>
#include <cstring>

#include "genreg/internal/record_checks.h"
#include "genreg/internal/update.h"
#include "genreg/text/internal/line_filter.h"
#include "genreg/text/internal/line_record.h"
#include "genreg/text/text_store.h"
#include "platform/osse/files.h"
#include "platform/osse/trace.h"

using namespace genreg;

namespace {

void trace(FunctionId function, unsigned probe, const char* finding) {
  if (gtraceIsEnabled()) gtraceVar(function, probe, std::strlen(finding), finding);
}

// The bytes of the lines that end before the first NUL.
unsigned long linesBeforeNul(const Passage& lines) {
  const void* nul = std::memchr(lines.bytes, '\0', lines.length);
  if (nul == nullptr) return lines.length;
  auto length = static_cast<unsigned long>(static_cast<const unsigned char*>(nul) - lines.bytes);
  while (length > 0 && lines.bytes[length - 1] != '\n')
    --length;
  return length;
}

// What the three operations share: the caller's mask, the reader of stored lines, and the loop.
class TextEdit {
 public:
  TextEdit(Operation& op, GenRegText& store, unsigned long long mask)
      : store_(store),
        mask_(mask),
        stored_(op, store, status::no_scratch_memory, status::scratch_not_released) {}

  void allocate(Operation&) { stored_.allocate(600, maxRecord_); }
  void release() { stored_.release(); }
  // A line that holds the new values already is a finding, not the end of the update.
  bool keeps(const Operation&) const { return !stopped_; }

 protected:
  // Gives every stored line to `edit.treat(op)`, which writes it, or what replaces it, or nothing.
  // A line that cannot agree with `compared` is not parsed.
  template <class Edit>
  void treatLines(Operation& op, Edit& edit, void* compared);
  void carryLines(Operation& op, const LineFilter& filter);
  void prepareKeyed(Operation& op, void* key);
  // A byte that a line's string cannot hold would be lost on the way through.
  void stopAtNul(Operation& op) { stop(op, 620, status::read_failed); }
  bool storedMatches(Operation& op, void* key);
  bool isSelected(Operation& op, void* key);
  void countMatch(Operation& op);
  void checkAnyMatch(Operation& op) {
    if (!op.failed() && matchCount_ == 0) stop(op, 610, status::no_match);
  }
  void copyRaw(Operation& op) { write(op, stored_.text().raw(), stored_.text().rawLength()); }
  void write(Operation& op, const char* text, unsigned long length);
  void writeOut(Operation& op);
  void writeNow(Operation& op, const void* bytes, unsigned long length);
  void stop(Operation& op, unsigned probe, GenRegStatus code, GenRegStatus inner = status::ok);

  GenRegText& store_;
  const unsigned long long mask_;
  unsigned long maxRecord_ = 0;
  LineRecord stored_;
  unsigned long matchCount_ = 0;
  bool stopped_ = false;

 private:
  // Lines are gathered into large writes.
  static constexpr unsigned long kGatherSize = 16 * 1024;
  char gathered_[kGatherSize];
  unsigned long gatheredLength_ = 0;
};

void TextEdit::stop(Operation& op, unsigned probe, GenRegStatus code, GenRegStatus inner) {
  op.fail(probe, code, inner);
  stopped_ = true;
}

template <class Edit>
void TextEdit::treatLines(Operation& op, Edit& edit, void* compared) {
  stored_.cursor().readFrom(store_.registryStream, 0, store_.registrySize);
  const LineFilter filter(store_, mask_, compared);
  while (!stopped_) {
    if constexpr (Edit::carriesPieces()) carryLines(op, filter);
    if (stopped_) break;
    const LineStep step = stored_.next(op, status::read_failed);
    if (step == LineStep::kEnd) break;
    if (step == LineStep::kFailed) stopped_ = true;
    if (!stopped_ && stored_.text().hasNul()) stopAtNul(op);
    if (stopped_) break;
    if (filter.mayAgree(stored_.text())) stored_.parse(op);
    edit.treat(op);
  }
  writeOut(op);  // an abandoned copy, too, has what comes before the end
}

// Copies lines that are in memory and need no look but for a NUL: of them, too, those before it are
// copied.
void TextEdit::carryLines(Operation& op, const LineFilter& filter) {
  while (!stopped_) {
    const Passage lines = filter.passOver(stored_.text());
    if (lines.length == 0) return;
    writeOut(op);
    const unsigned long sound = linesBeforeNul(lines);
    if (!stopped_) writeNow(op, lines.bytes, sound);
    if (!stopped_ && sound < lines.length) stopAtNul(op);
  }
}

// Change and Delete check what they are given in the same order.
void TextEdit::prepareKeyed(Operation& op, void* key) {
  checkRecord(op, store_, mask_, key);
  if (!op.failed()) maxRecord_ = measureMaxRecord(op, store_);
}

bool TextEdit::storedMatches(Operation& op, void* key) {
  if (!stored_.isParsed()) return false;
  const bool match = matches(op, store_, mask_, stored_.record(), key);
  if (store_.matchRecord == nullptr) stopped_ = true;  // nothing can be told apart
  return match;
}

// Whether the line agrees with a key. What does must be a whole line.
bool TextEdit::isSelected(Operation& op, void* key) {
  const bool selected = storedMatches(op, key);
  if (selected && stored_.text().isPiece()) stop(op, 630, status::read_failed);
  return selected && !stopped_;
}

// Only one line may be edited unless the format allows several.
void TextEdit::countMatch(Operation& op) {
  if (matchCount_ > 0 && !store_.isFeatureSet(kGenRegDuplicates)) {
    return stop(op, 631, status::several_match);
  }
  ++matchCount_;
}

// Lines are shorter than the room for them.
void TextEdit::write(Operation& op, const char* text, unsigned long length) {
  if (gatheredLength_ + length > kGatherSize) writeOut(op);
  std::memcpy(gathered_ + gatheredLength_, text, length);
  gatheredLength_ += length;
}

void TextEdit::writeOut(Operation& op) {
  const unsigned long length = gatheredLength_;
  gatheredLength_ = 0;
  if (length > 0) writeNow(op, gathered_, length);
}

void TextEdit::writeNow(Operation& op, const void* bytes, unsigned long length) {
  if (std::fwrite(bytes, 1, length, store_.temporaryStream) == length) return;
  stop(op, 640, status::copy_write_failed);
}

class TextAdd : public TextEdit {
 public:
  TextAdd(Operation& op, GenRegText& store, unsigned long long mask, void* record)
      : TextEdit(op, store, mask), added_(record) {}

  void prepare(Operation& op);
  void rewrite(Operation& op);
  GenRegStatus verify(Operation&) { return store_.Verify(kGenRegAdd, mask_, nullptr, added_); }
  void treat(Operation& op);
  // A line of the length that an update cannot read back is refused, so each is looked at.
  static constexpr bool carriesPieces() { return false; }
  void* firstRecord() { return added_; }
  void* secondRecord() { return nullptr; }

 private:
  void append(Operation& op);

  void* const added_;
};

void TextAdd::prepare(Operation& op) {
  const GenRegStatus rc = store_.CheckFuncPtrs();
  if (rc != status::ok) {
    op.fail(700, status::slots_incomplete, rc);
    return;
  }
  prepareKeyed(op, added_);
}

void TextAdd::rewrite(Operation& op) {
  OSSFileInfo info{};
  const GenRegStatus rc = ossFileGetInfoV9(store_.registryPath, &info);
  if (rc != status::ok) return stop(op, 710, status::no_file_info, rc);
  const bool copies = store_.temporaryStream != nullptr;
  if (info.size != 0 && copies) treatLines(op, *this, added_);
  if (!stopped_) append(op);
}

void TextAdd::treat(Operation& op) {
  if (!store_.isFeatureSet(kGenRegDuplicates) && storedMatches(op, added_)) {
    trace(kGenRegTextAdd, 720, "Match found; duplicate record");
    return stop(op, 721, status::duplicate_record);
  }
  LineReader& text = stored_.text();
  if (text.isPiece()) return stop(op, 722, status::buffer_too_small);
  copyRaw(op);
  if (stopped_ || text.endsWithNewline()) return;
  // The line, its newline and a terminator are to fit where the next update will read them.
  if (text.rawLength() + 2 > kGenRegLineSize) return stop(op, 723, status::buffer_too_small);
  trace(kGenRegTextAdd, 724, "Added a newline");
  write(op, "\n", 1);
}

void TextAdd::append(Operation& op) {
  const bool inPlace = store_.temporaryStream == nullptr;
  FILE* output = inPlace ? store_.registryStream : store_.temporaryStream;
  // A copy stands at its end.
  if (inPlace && fseeko(output, 0, SEEK_END) != 0) return stop(op, 730, status::seek_end_failed);
  char line[kGenRegLineSize] = {};
  const GenRegStatus rc = statusOf(store_.formatLine(added_, line));
  if (rc != status::ok) return stop(op, 731, status::record_not_formatted, rc);
  const bool terminated = std::strchr(line, '\n') != nullptr;
  if (std::fprintf(output, terminated ? "%s" : "%s\n", line) <= 0) {
    stop(op, 732, status::record_write_failed);
  }
}

class TextChange : public TextEdit {
 public:
  TextChange(Operation& op, GenRegText& store, unsigned long long mask, void* key, void* newRecord)
      : TextEdit(op, store, mask), key_(key), newRecord_(newRecord) {}

  void prepare(Operation& op) {
    prepareKeyed(op, key_);
    // Validation is the key's; the slots are given the new record as it is.
    if (op.failed() || newRecord_ != nullptr) return;
    op.fail(801, status::invalid_record, status::null_argument);
  }
  void rewrite(Operation& op) {
    treatLines(op, *this, key_);
    if (!stopped_) checkAnyMatch(op);
  }
  GenRegStatus verify(Operation&) { return store_.Verify(kGenRegChange, mask_, key_, newRecord_); }
  void treat(Operation& op);
  static constexpr bool carriesPieces() { return true; }
  void* firstRecord() { return key_; }
  void* secondRecord() { return newRecord_; }

 private:
  void rewriteLine(Operation& op);
  bool lacksNewline();

  void* const key_;
  void* const newRecord_;
};

void TextChange::treat(Operation& op) {
  const bool selected = isSelected(op, key_);
  const bool differs = selected && !matches(op, store_, kAllFields, stored_.record(), newRecord_);
  if (selected && !differs) op.fail(800, status::unchanged);
  if (differs) return rewriteLine(op);
  if (!stopped_) copyRaw(op);
  if (!stopped_ && lacksNewline()) write(op, "\n", 1);
}

// Joined lines that end the file keep what they have: they hold a newline. A piece of a long line
// is not the end of anything.
bool TextChange::lacksNewline() {
  LineReader& text = stored_.text();
  return !text.isPiece() && std::memchr(text.raw(), '\n', text.rawLength()) == nullptr;
}

void TextChange::rewriteLine(Operation& op) {
  countMatch(op);
  if (stopped_) return;
  if (store_.formatLine == nullptr) return stop(op, 810, status::no_format_slot);
  char line[kGenRegLineSize];
  std::memcpy(line, stored_.text().raw(), stored_.text().rawLength());
  line[stored_.text().rawLength()] = '\0';
  const GenRegStatus rc = statusOf(store_.formatLine(newRecord_, line));
  if (rc != status::ok) return stop(op, 811, status::record_not_formatted, rc);
  write(op, line, std::strlen(line));
  if (!stopped_ && std::strchr(line, '\n') == nullptr) write(op, "\n", 1);
}

class TextDelete : public TextEdit {
 public:
  TextDelete(Operation& op, GenRegText& store, unsigned long long mask, void* key)
      : TextEdit(op, store, mask), key_(key) {}

  void prepare(Operation& op) { prepareKeyed(op, key_); }
  void rewrite(Operation& op) {
    treatLines(op, *this, key_);
    if (!stopped_) checkAnyMatch(op);
  }
  GenRegStatus verify(Operation&) { return store_.Verify(kGenRegDelete, mask_, key_, nullptr); }
  void treat(Operation& op) {
    if (isSelected(op, key_)) return countMatch(op);
    if (!stopped_) copyRaw(op);
  }
  static constexpr bool carriesPieces() { return true; }
  void* firstRecord() { return key_; }
  void* secondRecord() { return nullptr; }

 private:
  void* const key_;
};

}  // namespace

GenRegStatus GenRegText::Add(unsigned long long mask, void* record) {
  Operation op(kGenRegTextAdd, registryPath);
  TextAdd edit(op, *this, mask, record);
  runUpdate(op, *this, planOf(kGenRegAdd, ChangeLog::kNone), edit);
  return op.status();
}

GenRegStatus GenRegText::Change(unsigned long long mask, void* key, void* newRecord) {
  Operation op(kGenRegTextChange, registryPath);
  TextChange edit(op, *this, mask, key, newRecord);
  runUpdate(op, *this, planOf(kGenRegChange, ChangeLog::kNone), edit);
  return op.status();
}

GenRegStatus GenRegText::Delete(unsigned long long mask, void* key) {
  Operation op(kGenRegTextDelete, registryPath);
  TextDelete edit(op, *this, mask, key);
  runUpdate(op, *this, planOf(kGenRegDelete, ChangeLog::kNone), edit);
  return op.status();
}
