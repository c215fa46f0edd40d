// SPDX-License-Identifier: Apache-2.0
// Scans: the registry stream held open under a shared lock, and positions in it.
#include <cerrno>

#include "genreg/internal/checksum_header.h"
#include "genreg/internal/operation.h"
#include "genreg/internal/registry_files.h"
#include "genreg/internal/scan_reader.h"
#include "genreg/registry.h"

using namespace genreg;

namespace {

// What a position needs: a scan, somewhere to put it, and a stream.
void checkPositionCall(Operation& op, const GenRegFile& registry, const long long* position,
                       GenRegStatus withoutStream) {
  if ((registry.state & kGenRegStateScanning) == 0) {
    op.fail(1, status::no_scan);
  } else if (position == nullptr) {
    op.fail(2, status::invalid_argument);
  } else if (registry.registryStream == nullptr) {
    op.fail(3, withoutStream);
  }
}

}  // namespace

GenRegStatus GenRegFile::OpenScan() {
  Operation op(kGenRegFileOpenScan, registryPath);
  (void)closeRegistryStream(*this);  // a scan begins anew; nothing was written to the old stream
  state &= ~(kGenRegStateScanning | kGenRegStateScanEnd);
  StreamRequest request;
  request.options = kOssOpenOrCreate;
  openRegistryStream(op, *this, request);
  if (!op.failed()) seekFirstRecord(op, *this, HeaderCheck::kSkipOnly);
  if (op.failed()) {
    (void)closeRegistryStream(*this);  // the first failure is the result
    return op.status();
  }
  state |= kGenRegStateScanning;
  return op.status();
}

GenRegStatus GenRegFile::CloseScan() {
  Operation op(kGenRegFileCloseScan, registryPath);
  const int error = closeRegistryStream(*this);
  state &= ~(kGenRegStateScanning | kGenRegStateScanEnd);
  if (error != 0) return op.failErrno(1, status::registry_not_closed, error);
  return op.status();
}

GenRegStatus GenRegFile::Rewind() {
  Operation op(kGenRegFileRewind, registryPath);
  if (registryStream == nullptr) return op.fail(1, status::rewind_failed);
  if (fseeko(registryStream, static_cast<off_t>(firstRecord), SEEK_SET) != 0) {
    return op.failErrno(2, status::rewind_failed, errno);
  }
  std::clearerr(registryStream);
  if (scanReader != nullptr) scanReader->cursor().forgetBlock();
  state &= ~kGenRegStateScanEnd;
  return op.status();
}

GenRegStatus GenRegFile::getRegFilePosition(long long* position) {
  Operation op(kGenRegFileGetRegFilePosition, registryPath);
  checkPositionCall(op, *this, position, status::position_not_read);
  if (op.failed()) return op.status();
  const long long offset =
      scanReader != nullptr ? scanReader->cursor().position() : ftello(registryStream);
  if (offset < 0) return op.failErrno(4, status::position_not_read, errno);
  *position = offset;
  return op.status();
}

GenRegStatus GenRegFile::setRegFilePosition(long long* position) {
  Operation op(kGenRegFileSetRegFilePosition, registryPath);
  checkPositionCall(op, *this, position, status::position_not_set);
  if (op.failed()) return op.status();
  if (fseeko(registryStream, static_cast<off_t>(*position), SEEK_SET) != 0) {
    return op.failErrno(4, status::position_not_set, errno);
  }
  if (scanReader != nullptr) scanReader->cursor().forgetBlock();
  return op.status();
}
