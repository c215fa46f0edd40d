// SPDX-License-Identifier: Apache-2.0
// Add, Change and Delete of the binary store: the loop over frames into the temporary copy, and
// what each operation does with a frame. The steps around the loop are in genreg/internal/update.h.
#include <cstdio>
#include <cstring>

#include "genreg/bin/bin_store.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/bin/internal/image_view.h"
#include "genreg/internal/record_checks.h"
#include "genreg/internal/update.h"
#include "platform/osse/files.h"
#include "platform/osse/trace.h"

using namespace genreg;

namespace {

// What becomes of a stored record.
enum class Verdict { kKeep, kReplace, kDrop };

// What the three operations share: the caller's mask, the reader of stored frames, and the loop.
//
// A frame that stays as it is stays where it lies in memory, too, until the run of such frames is
// written in one piece.
class BinEdit {
 public:
  BinEdit(Operation& op, GenRegBin& store, unsigned long long mask)
      : store_(store),
        images_(store),
        mask_(mask),
        reader_(op, store, status::no_scratch_memory, status::scratch_not_released),
        given_(op, store, status::no_scratch_memory, status::scratch_not_released) {}

  bool keeps(const Operation& op) const { return !op.failed(); }
  void release() {
    given_.release();
    reader_.release();
  }

 protected:
  // Copies every stored frame into the temporary copy, as `edit.judge(op)` decides for each that
  // may agree with `compared`; null when none is compared.
  template <class Edit>
  void copyFrames(Operation& op, Edit& edit, void* compared);
  void allocateReader(unsigned probe);
  bool stepToStored(Operation& op);
  bool isCarried(void* compared) const;
  void loadStored(Operation& op);
  void carry();
  void writeRun(Operation& op);
  void writeVerdict(Operation& op, Verdict verdict, void* replacement);
  void prepareGiven(Operation& op, void* record);
  bool storedMatches(Operation& op, void* record) {
    return matches(op, store_, mask_, reader_.record(), record);
  }
  void checkOnlyMatch(Operation& op);
  void checkAnyMatch(Operation& op) {
    if (!op.failed() && matchCount_ == 0) op.fail(600, status::no_match);
  }

  GenRegBin& store_;
  const ImageView images_;
  const unsigned long long mask_;
  unsigned long maxRecord_ = 0;
  FrameReader reader_;
  RecordBlock given_;  // the caller's record, which itself is never written to
  unsigned long givenSize_ = 0;
  unsigned long matchCount_ = 0;

 private:
  const unsigned char* run_ = nullptr;  // frames to be written, length fields included
  unsigned long runLength_ = 0;
};

void BinEdit::allocateReader(unsigned probe) {
  reader_.prepare(maxRecord_);
  if (!images_.isAvailable()) reader_.allocate(probe, ImageEnd::kUnknown);
}

// Steps to the next stored frame. False at the end, or on a failure.
bool BinEdit::stepToStored(Operation& op) {
  if (!reader_.isNextInMemory()) writeRun(op);
  if (op.failed()) return false;
  const GenRegStatus rc = reader_.next();
  if (rc != status::ok && rc != status::end_of_registry) op.fail(610, status::read_failed, rc);
  return rc == status::ok;
}

// Whether the frame is not concerned, and would come out of unpacking and packing as it is. One
// that is too long to be written again is left to the writing to refuse.
bool BinEdit::isCarried(void* compared) const {
  if (reader_.frameLength() > kMaxRecordSize) return false;
  const unsigned needed =
      kGenRegImageStable | (compared != nullptr ? kGenRegImageDiffers : GenRegImageFinding{});
  const unsigned found =
      images_.examine(needed, reader_.frame(), reader_.frameLength(), mask_, compared);
  return (found & needed) == needed;
}

void BinEdit::loadStored(Operation& op) {
  reader_.load(op, status::read_failed, images_.endOf(reader_.frame(), reader_.frameLength()));
  if (!op.failed()) reader_.unpack(op);
}

template <class Edit>
void BinEdit::copyFrames(Operation& op, Edit& edit, void* compared) {
  reader_.cursor().readFrom(store_.registryStream, store_.firstRecord, store_.registrySize);
  while (stepToStored(op)) {
    if (isCarried(compared)) {
      carry();
      continue;
    }
    loadStored(op);
    const Verdict verdict = op.failed() ? Verdict::kKeep : edit.judge(op);
    if (!op.failed()) writeVerdict(op, verdict, edit.secondRecord());
    if (op.failed()) break;
  }
  writeRun(op);  // an abandoned copy, too, has what comes before the end
}

// Adds the frame to the run, which is written before the frame can move.
void BinEdit::carry() {
  if (runLength_ == 0) run_ = reader_.frame() - kLengthFieldSize;
  runLength_ += kLengthFieldSize + reader_.frameLength();
}

void BinEdit::writeRun(Operation& op) {
  if (runLength_ == 0) return;
  const bool written = std::fwrite(run_, 1, runLength_, store_.temporaryStream) == runLength_;
  runLength_ = 0;
  if (written) return;
  Operation write(kGenRegBinWriteRecord, store_.registryPath);
  op.fail(620, status::copy_write_failed, write.fail(13, status::body_write_failed));
}

// A plain frame is kept to the byte, whatever its length.
void BinEdit::writeVerdict(Operation& op, Verdict verdict, void* replacement) {
  const bool packed = store_.isFeatureSet(kGenRegPacked);
  if (verdict == Verdict::kKeep && !packed) return carry();
  writeRun(op);
  if (op.failed() || verdict == Verdict::kDrop) return;
  if (packed && verdict == Verdict::kReplace) reader_.takeIn(replacement, givenSize_);
  reader_.pack(op, reader_.frame());
  if (op.failed()) return;
  void* record = packed ? reader_.record() : replacement;
  const GenRegStatus rc = statusOf(store_.WriteRecord(store_.temporaryStream, record));
  if (rc != status::ok) op.fail(621, status::copy_write_failed, rc);
}

// Copies the caller's record into the block of the store's own, which has room for its packed form.
void BinEdit::prepareGiven(Operation& op, void* record) {
  givenSize_ = maxRecord_;
  if (store_.getRecordSize != nullptr) {
    const GenRegStatus rc = statusOf(store_.getRecordSize(record, &givenSize_));
    if (rc != status::ok || givenSize_ > maxRecord_) givenSize_ = maxRecord_;
  }
  given_.prepare(maxRecord_);
  given_.allocate(630, images_.ownImageEnd());
  if (!op.failed()) given_.takeIn(record, givenSize_);
}

void BinEdit::checkOnlyMatch(Operation& op) {
  if (matchCount_ > 0 && !store_.isFeatureSet(kGenRegDuplicates)) {
    op.fail(640, status::several_match);
    return;
  }
  ++matchCount_;
}

class BinAdd : public BinEdit {
 public:
  BinAdd(Operation& op, GenRegBin& store, unsigned long long mask, void* record)
      : BinEdit(op, store, mask), added_(record) {}

  void prepare(Operation& op);
  void allocate(Operation& op) {
    allocateReader(700);
    if (!op.failed()) prepareGiven(op, added_);
  }
  void rewrite(Operation& op);
  GenRegStatus verify(Operation& op);
  Verdict judge(Operation& op);
  void* firstRecord() { return added_; }
  void* secondRecord() { return nullptr; }

 private:
  bool appendsInPlace() const { return store_.temporaryStream == nullptr; }
  void append(Operation& op);

  void* const added_;
};

void BinAdd::prepare(Operation& op) {
  const GenRegStatus rc = statusOf(store_.CheckFuncPtrs());
  if (rc != status::ok) {
    op.fail(710, status::slots_incomplete, rc);
    return;
  }
  checkRecord(op, store_, mask_, added_);
  if (!op.failed()) maxRecord_ = measureMaxRecord(op, store_);
}

void BinAdd::rewrite(Operation& op) {
  OSSFileInfo info{};
  const GenRegStatus rc = ossFileGetInfoV9(store_.registryPath, &info);
  if (rc != status::ok) {
    op.fail(720, status::no_file_info, rc);
    return;
  }
  const bool duplicates = store_.isFeatureSet(kGenRegDuplicates);
  if (info.size != 0 && !appendsInPlace()) copyFrames(op, *this, duplicates ? nullptr : added_);
  if (!op.failed()) append(op);
}

Verdict BinAdd::judge(Operation& op) {
  if (store_.isFeatureSet(kGenRegDuplicates)) return Verdict::kKeep;
  if (storedMatches(op, added_)) {
    constexpr char kFinding[] = "Match found; duplicate record";
    if (gtraceIsEnabled()) gtraceVar(kGenRegBinAdd, 730, sizeof kFinding - 1, kFinding);
    op.fail(731, status::duplicate_record);
  }
  return Verdict::kKeep;
}

void BinAdd::append(Operation& op) {
  FILE* output = appendsInPlace() ? store_.registryStream : store_.temporaryStream;
  if (appendsInPlace() && fseeko(output, 0, SEEK_END) != 0) {  // a copy stands at its end
    op.fail(740, status::seek_end_failed);
    return;
  }
  given_.pack(op, nullptr);
  if (op.failed()) return;
  void* record = store_.isFeatureSet(kGenRegPacked) ? given_.record() : added_;
  const GenRegStatus rc = statusOf(store_.WriteRecord(output, record));
  if (rc != status::ok) op.fail(741, status::record_write_failed, rc);
}

GenRegStatus BinAdd::verify(Operation& op) {
  given_.unpack(op);
  if (op.failed()) return op.status();
  return statusOf(store_.Verify(kGenRegAdd, mask_, given_.record(), nullptr));
}

class BinChange : public BinEdit {
 public:
  BinChange(Operation& op, GenRegBin& store, unsigned long long mask, void* key, void* newRecord)
      : BinEdit(op, store, mask), key_(key), newRecord_(newRecord) {}

  void prepare(Operation& op) {
    checkRecord(op, store_, mask_, newRecord_);
    if (!op.failed()) maxRecord_ = measureMaxRecord(op, store_);
  }
  void allocate(Operation& op) {
    allocateReader(800);
    if (!op.failed()) prepareGiven(op, newRecord_);
  }
  void rewrite(Operation& op) {
    copyFrames(op, *this, key_);
    checkAnyMatch(op);
  }
  GenRegStatus verify(Operation&) {
    return statusOf(store_.Verify(kGenRegChange, mask_, given_.record(), key_));
  }
  Verdict judge(Operation& op);
  void* firstRecord() { return key_; }
  void* secondRecord() { return newRecord_; }

 private:
  void readBackGiven(Operation& op);

  void* const key_;
  void* const newRecord_;
};

// Records are compared as they would read back: what the packed form does not keep is no change.
// A missing slot is reported by the writing, which an unchanged record does not come to.
void BinChange::readBackGiven(Operation& op) {
  if (matchCount_ > 0 || !store_.isFeatureSet(kGenRegPacked)) return;
  if (store_.packRecord == nullptr) return;
  given_.pack(op, nullptr);
  if (!op.failed()) given_.unpack(op);
}

Verdict BinChange::judge(Operation& op) {
  if (!storedMatches(op, key_)) return Verdict::kKeep;
  readBackGiven(op);
  if (op.failed()) return Verdict::kKeep;
  if (matches(op, store_, kAllFields, reader_.record(), given_.record())) {
    op.fail(810, status::unchanged);
    return Verdict::kKeep;
  }
  checkOnlyMatch(op);
  return Verdict::kReplace;
}

class BinDelete : public BinEdit {
 public:
  BinDelete(Operation& op, GenRegBin& store, unsigned long long mask, void* key)
      : BinEdit(op, store, mask), key_(key) {}

  void prepare(Operation& op) {
    checkRecord(op, store_, mask_, key_);
    if (!op.failed()) maxRecord_ = measureMaxRecord(op, store_);
  }
  void allocate(Operation&) { allocateReader(900); }
  void rewrite(Operation& op) {
    copyFrames(op, *this, key_);
    checkAnyMatch(op);
  }
  GenRegStatus verify(Operation&) {
    return statusOf(store_.Verify(kGenRegDelete, mask_, nullptr, key_));
  }
  Verdict judge(Operation& op) {
    if (!storedMatches(op, key_)) return Verdict::kKeep;
    checkOnlyMatch(op);
    return Verdict::kDrop;
  }
  void* firstRecord() { return key_; }
  void* secondRecord() { return nullptr; }

 private:
  void* const key_;
};

}  // namespace

int GenRegBin::Add(unsigned long long mask, void* record) {
  Operation op(kGenRegBinAdd, registryPath);
  BinAdd edit(op, *this, mask, record);
  runUpdate(op, *this, planOf(kGenRegAdd, ChangeLog::kLogSlot), edit);
  return op.result();
}

int GenRegBin::Change(unsigned long long mask, void* key, void* newRecord) {
  Operation op(kGenRegBinChange, registryPath);
  BinChange edit(op, *this, mask, key, newRecord);
  runUpdate(op, *this, planOf(kGenRegChange, ChangeLog::kLogSlot), edit);
  return op.result();
}

int GenRegBin::Delete(unsigned long long mask, void* key) {
  Operation op(kGenRegBinDelete, registryPath);
  BinDelete edit(op, *this, mask, key);
  runUpdate(op, *this, planOf(kGenRegDelete, ChangeLog::kLogSlot), edit);
  return op.result();
}
