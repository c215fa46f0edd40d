// SPDX-License-Identifier: Apache-2.0
// Reading and writing single frames.
#include "genreg/bin/internal/frame.h"

#include <cstdint>
#include <cstring>

#include "genreg/bin/checksum.h"
#include "genreg/internal/record_checks.h"

namespace genreg {
namespace {

void encodeLength(signed char (&field)[kLengthFieldSize], LengthOrder order, unsigned int length) {
  if (order == LengthOrder::kBigEndian) {
    (void)toBigEndianUint32(field, length);  // fails for null pointers only
    return;
  }
  std::memcpy(field, &length, sizeof length);
}

}  // namespace

unsigned int decodeBigEndianLength(const void* field) noexcept {
  unsigned int length = 0;
  signed char bytes[kLengthFieldSize];
  std::memcpy(bytes, field, sizeof bytes);
  (void)fromBigEndianUint32(bytes, &length);  // fails for null pointers only
  return length;
}

// A position that is not known is beyond every file.
void checkFrameEnd(Operation& op, unsigned long long position, unsigned long length,
                   unsigned long long fileSize) {
  if (position <= fileSize && length <= fileSize - position) return;
  op.explain(4, status::frame_past_end, "position", position);
  op.explain(5, status::frame_past_end, "length", length);
  op.explain(6, status::frame_past_end, "file size", fileSize);
  op.fail(7, status::frame_past_end);
}

void readFrameLength(Operation& op, const FrameSource& source, unsigned long* length) {
  signed char field[kLengthFieldSize] = {};
  const std::size_t got = std::fread(field, 1, sizeof field, source.stream);
  *length = decodeLength(field, source.order);
  if (got == sizeof field) {
    checkFrameEnd(op, static_cast<unsigned long long>(ftello(source.stream)), *length,
                  source.fileSize);
  } else if (std::ferror(source.stream) != 0) {
    op.fail(1, status::length_read_failed);
  } else if (got == 0) {
    op.conclude(status::end_of_registry);
  } else {
    op.fail(2, status::frame_past_end);
  }
}

void readFrameBody(Operation& op, FILE* stream, void* body, unsigned long length) {
  // The frame was seen to lie within the file: fewer bytes mean an error, or a file that was cut
  // since.
  if (length == 0 || std::fread(body, 1, length, stream) == length) return;
  op.explain(8, status::body_read_failed, "length", length);
  op.fail(9, status::body_read_failed);
}

void writeFrameBytes(Operation& op, FILE* stream, LengthOrder order, const void* body,
                     unsigned long length) {
  signed char field[kLengthFieldSize];
  encodeLength(field, order, static_cast<unsigned int>(length));
  if (std::fwrite(field, 1, sizeof field, stream) != sizeof field) {
    op.fail(11, status::length_write_failed);
  } else if (std::fwrite(body, 1, length, stream) != length) {
    op.fail(12, status::body_write_failed);
  }
}

void writeFrame(Operation& op, FILE* stream, LengthOrder order, const void* body,
                unsigned long length) {
  checkRecordSize(op, 10, length);
  if (!op.failed()) writeFrameBytes(op, stream, order, body, length);
}

}  // namespace genreg
