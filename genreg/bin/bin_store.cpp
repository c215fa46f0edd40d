// SPDX-License-Identifier: Apache-2.0
// The binary store's slots, and one frame at a time for callers that hold a stream themselves.
#include "genreg/bin/bin_store.h"

#include <sys/stat.h>

#include <cerrno>

#include "genreg/bin/internal/frame.h"
#include "genreg/bin/internal/frame_reader.h"
#include "genreg/internal/features.h"
#include "genreg/internal/operation.h"
#include "genreg/internal/scan_reader.h"

using namespace genreg;

namespace {

// The object's own stream was measured when it was opened; any other is measured now.
unsigned long long sizeOfFile(Operation& op, const GenRegFile& registry, FILE* stream) {
  if (stream == registry.registryStream) return registry.registrySize;
  struct stat info {};
  if (fstat(fileno(stream), &info) == 0) return static_cast<unsigned long long>(info.st_size);
  op.failErrno(50, status::length_read_failed, errno);
  return 0;
}

// A scan reads ahead of where it stands. For whoever reads its stream, too, the stream is put back
// there, and the scan goes on from where it is left.
void putBackStream(Operation& op, const GenRegFile& registry, FILE* stream) {
  if (stream != registry.registryStream || registry.scanReader == nullptr) return;
  BlockCursor& cursor = registry.scanReader->cursor();
  if (fseeko(stream, static_cast<off_t>(cursor.position()), SEEK_SET) != 0) {
    op.failErrno(51, status::length_read_failed, errno);
    return;
  }
  cursor.forgetBlock();
}

// The length of what WriteRecord is given, from the slot that knows its form.
void sizeOfRecord(Operation& op, const GenRegBin& store, void* record, unsigned long* size) {
  const bool packed = hasFeature(store, kGenRegPacked);
  const auto slot = packed ? store.getPackedRecordSize : store.getRecordSize;
  if (slot == nullptr) {
    op.fail(60, packed ? status::no_packed_size_slot : status::no_size_slot);
    return;
  }
  const GenRegStatus rc = statusOf(slot(record, size));
  if (rc != status::ok) op.fail(61, rc);
}

}  // namespace

GenRegBin::GenRegBin() {
  storeType = kGenRegBinaryStore;
}

GenRegBin::~GenRegBin() = default;

int GenRegBin::CheckFuncPtrs() {
  Operation op(kGenRegBinCheckFuncPtrs);
  const bool packed = isFeatureSet(kGenRegPacked);
  if (validateRecord == nullptr) {
    op.fail(1, status::no_validate_slot);
  } else if (getMaxRecordSize == nullptr) {
    op.fail(2, status::no_max_size_slot);
  } else if (packed && packRecord == nullptr) {
    op.fail(3, status::no_pack_slot);
  } else if (packed && unpackRecord == nullptr) {
    op.fail(4, status::no_unpack_slot);
  }
  return op.result();
}

int GenRegBin::ReadRecord(FILE* stream, void** buffer, unsigned long* length) {
  Operation op(kGenRegBinReadRecord, registryPath);
  if (stream == nullptr || buffer == nullptr || length == nullptr) {
    op.fail(70, status::invalid_argument);
    return op.result();
  }
  putBackStream(op, *this, stream);
  const FrameSource source = {stream, sizeOfFile(op, *this, stream), lengthOrderOf(*this)};
  if (!op.failed()) readFrameLength(op, source, length);
  if (!op.failed()) growBlock(op, buffer, *length);
  if (!op.failed()) readFrameBody(op, stream, *buffer, *length);
  return op.result();
}

int GenRegBin::WriteRecord(FILE* stream, void* record) {
  Operation op(kGenRegBinWriteRecord, registryPath);
  if (stream == nullptr || record == nullptr) {
    op.fail(80, status::invalid_argument);
    return op.result();
  }
  unsigned long size = 0;
  sizeOfRecord(op, *this, record, &size);
  if (!op.failed()) writeFrame(op, stream, lengthOrderOf(*this), record, size);
  return op.result();
}
