// SPDX-License-Identifier: Apache-2.0
// One frame between a stream and memory: a 4-byte length and that many bytes. docs/frame-format.md
// tells the layout. Not here: what the bytes mean.
#pragma once

#include <cstdio>
#include <cstring>

#include "genreg/internal/operation.h"

namespace genreg {

// Byte order of the length field on disk.
enum class LengthOrder { kHost, kBigEndian };

// Bytes of the length field.
constexpr unsigned long kLengthFieldSize = 4;

// The length that a field states.
unsigned int decodeBigEndianLength(const void* field) noexcept;
inline unsigned int decodeLength(const void* field, LengthOrder order) {
  if (order == LengthOrder::kBigEndian) return decodeBigEndianLength(field);
  unsigned int length = 0;
  std::memcpy(&length, field, sizeof length);
  return length;
}

// Fails `op` with 0x900001B3 unless `length` bytes follow `position`, the end of the length field.
// No frame is read into memory before it is known to lie within its file.
void checkFrameEnd(Operation& op, unsigned long long position, unsigned long length,
                   unsigned long long fileSize);

// The stream that frames come from, and the size in bytes of the file behind it.
struct FrameSource {
  FILE* stream;
  unsigned long long fileSize;
  LengthOrder order;
};

// Reads a length field. *length is set whenever any of it was read. Concludes `op` with 0x900001BE
// at the end of the file; fails it with 0x900001D6 (stream error) or 0x900001B3 (the frame, or the
// field itself, runs past the end of the file).
void readFrameLength(Operation& op, const FrameSource& source, unsigned long* length);

// Reads the `length` bytes of the body. Fails `op` with 0x900001D7.
void readFrameBody(Operation& op, FILE* stream, void* body, unsigned long length);

// Writes one frame of any length, to carry a stored one over as it stands. Fails `op` with
// 0x900001D4 or 0x900001D5.
void writeFrameBytes(Operation& op, FILE* stream, LengthOrder order, const void* body,
                     unsigned long length);

// Writes one frame of a record. Fails `op` with 0x900001E5 or 0x900001E6, nothing written, or with
// 0x900001D4 or 0x900001D5.
void writeFrame(Operation& op, FILE* stream, LengthOrder order, const void* body,
                unsigned long length);

}  // namespace genreg
