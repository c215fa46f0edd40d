// SPDX-License-Identifier: Apache-2.0
// Recognising, checking and stamping the checksum header of a binary registry.
#include "genreg/internal/checksum_header.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "genreg/bin/checksum.h"
#include "genreg/internal/features.h"
#include "genreg/internal/guards.h"
#include "platform/osse/strings.h"

namespace genreg {
namespace {

using Header = std::array<char, kChecksumHeaderSize>;

// Room kept behind the body while it is stamped.
constexpr unsigned long kStampSlack = 100;

// The header of a body: canonical decimal text of its checksum, padded with zeros.
Header headerOf(const void* body, unsigned long length) {
  Header header{};
  const auto checksum = static_cast<int>(sqlzChecksumXOR(body, static_cast<int>(length)));
  (void)ossSnprintf(header.data(), header.size(), "%d", checksum);  // at most 11 characters
  return header;
}

// Headers agree in their text; what stands behind its NUL has no meaning.
bool sameText(const Header& a, const Header& b) {
  return std::memchr(a.data(), '\0', a.size()) != nullptr && std::strcmp(a.data(), b.data()) == 0;
}

bool seek(FILE* stream, unsigned long offset) {
  return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

bool readHeader(FILE* stream, Header& header) {
  return seek(stream, 0) && std::fread(header.data(), 1, header.size(), stream) == header.size();
}

// The checksum counts its bytes in an int.
bool isBodyTooLarge(unsigned long long length) {
  return length > INT_MAX - kStampSlack;
}

// Reads the `length` bytes that follow the header into `body`, checksums them, and compares.
// False when they do not agree or cannot be read; `unread` tells which.
bool bodyAgrees(FILE* stream, const Header& header, ScratchBuffer& body, unsigned long length,
                bool& unread) {
  unread = std::fread(body.data(), 1, length, stream) != length;
  return !unread && sameText(header, headerOf(body.data(), length));
}

// A registry that an earlier object stamped: decimal text that agrees with the rest of the file.
// Any doubt means that there is no header; a file with frames only then reads as it always did.
bool looksStamped(Operation& op, GenRegFile& registry) {
  if (registry.registrySize < kChecksumHeaderSize) return false;
  const unsigned long long length = registry.registrySize - kChecksumHeaderSize;
  Header header{};
  if (isBodyTooLarge(length) || !readHeader(registry.registryStream, header)) return false;
  if (std::memchr(header.data(), '\0', header.size()) == nullptr) return false;
  ScratchBuffer body(op, status::no_checksum_memory, status::scratch_not_released);
  if (!body.reserve(201, static_cast<unsigned long>(length))) return false;
  bool unread = false;
  return bodyAgrees(registry.registryStream, header, body, static_cast<unsigned long>(length),
                    unread);
}

// The registry that this object stamped must still be what it was.
void compareChecksum(Operation& op, GenRegFile& registry) {
  const unsigned long long length = registry.registrySize - kChecksumHeaderSize;
  ScratchBuffer body(op, status::no_checksum_memory, status::scratch_not_released);
  if (isBodyTooLarge(length)) {
    op.fail(210, status::no_checksum_memory);
    return;
  }
  if (!body.reserve(211, static_cast<unsigned long>(length))) return;
  Header header{};
  if (!readHeader(registry.registryStream, header)) {
    op.fail(212, status::read_failed);
    return;
  }
  bool unread = false;
  if (bodyAgrees(registry.registryStream, header, body, static_cast<unsigned long>(length), unread))
    return;
  op.fail(213, unread ? status::checksum_body_unread : status::checksum_mismatch);
}

// Where the frames of the registry begin, by the object's flag and the file's size.
unsigned long firstRecordOffset(Operation& op, GenRegFile& registry, HeaderCheck check) {
  if (!usesChecksumHeader(registry)) return 0;
  if (registry.copyLacksHeader != 0) return looksStamped(op, registry) ? kChecksumHeaderSize : 0;
  if (registry.registrySize == 0) {
    registry.copyLacksHeader = 1;
    return 0;
  }
  if (registry.registrySize < kChecksumHeaderSize) {
    op.fail(220, status::read_failed);
    return 0;
  }
  if (check == HeaderCheck::kCompare) compareChecksum(op, registry);
  return kChecksumHeaderSize;
}

// Reads the copy's frames, from `offset` on, for checksumming.
bool readBack(Operation& op, FILE* copy, unsigned long offset, unsigned long length, void* body) {
  if (std::fflush(copy) != 0 || !seek(copy, offset)) {
    op.fail(230, status::checksum_body_unread);
    return false;
  }
  const unsigned long got = std::fread(body, 1, length, copy);
  // Part of what a caller sees of every stamping, so it is printed unconditionally.
  std::printf("Copy file into buffer done %d\n", static_cast<int>(got));
  if (got == length) return true;
  op.fail(231, status::checksum_body_unread);
  return false;
}

bool writeAll(FILE* stream, const void* bytes, unsigned long length) {
  return std::fwrite(bytes, 1, length, stream) == length;
}

// Measuring writes out what the stream still holds, so it fails when the disk is full.
unsigned long long copySize(Operation& op, FILE* copy) {
  const off_t size = fseeko(copy, 0, SEEK_END) == 0 ? ftello(copy) : -1;
  if (size < 0) op.failErrno(232, status::checksum_body_unread, errno);
  return size > 0 ? static_cast<unsigned long long>(size) : 0;
}

}  // namespace

bool usesChecksumHeader(const GenRegFile& registry) {
  return registry.storeType == kGenRegBinaryStore && hasFeature(registry, kGenRegChecksumHeader);
}

void seekFirstRecord(Operation& op, GenRegFile& registry, HeaderCheck check) {
  const unsigned long offset = firstRecordOffset(op, registry, check);
  registry.firstRecord = offset;
  if (op.failed() || !usesChecksumHeader(registry)) return;  // nothing was read: it stands there
  if (!seek(registry.registryStream, offset)) op.fail(240, status::read_failed);
}

void reserveHeader(Operation& op, GenRegFile& registry) {
  if (!usesChecksumHeader(registry) || registry.copyLacksHeader != 0) return;
  const Header empty{};
  if (!writeAll(registry.temporaryStream, empty.data(), empty.size())) {
    op.fail(250, status::copy_not_opened);
  }
}

bool stampChecksum(Operation& op, GenRegFile& registry) {
  FILE* copy = registry.temporaryStream;
  const unsigned long long size = copySize(op, copy);
  if (size == 0) return false;  // nothing to stamp, or the failure just reported
  const bool inserts = registry.copyLacksHeader != 0;
  const unsigned long offset = inserts ? 0 : kChecksumHeaderSize;
  if (size < offset || isBodyTooLarge(size - offset)) {
    op.fail(260, status::no_checksum_memory);
    return false;
  }
  const auto length = static_cast<unsigned long>(size - offset);
  ScratchBuffer body(op, status::no_checksum_memory, status::scratch_not_released);
  if (!body.reserve(261, length + kStampSlack)) return false;
  if (!readBack(op, copy, offset, length, body.data())) return false;

  const Header header = headerOf(body.data(), length);
  if (seek(copy, 0) && writeAll(copy, header.data(), header.size()) &&
      (!inserts || writeAll(copy, body.data(), length))) {
    return true;
  }
  op.fail(262, status::copy_write_failed);
  return false;
}

}  // namespace genreg
