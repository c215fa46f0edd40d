// SPDX-License-Identifier: Apache-2.0
// The registry checksum and the byte order of frame lengths: pure functions over bytes.
#pragma once

#include "genreg/export.h"

// XOR of the 32-bit words of `data`, in host byte order, and of the up to three bytes that remain,
// each sign-extended to 32 bits (so a last byte of 0x80 or more flips the upper 24 bits as well:
// stored checksums depend on it). `length` is in bytes; 0 and below give 0. `data` need not be
// aligned. C linkage.
extern "C" VRXGENREG_API unsigned int sqlzChecksumXOR(const void* data, int length);

// *value receives the big-endian number in bytes[0..3]. 0x9000000C for a null pointer.
[[nodiscard]] VRXGENREG_API int fromBigEndianUint32(signed char* bytes, unsigned int* value);

// bytes[0..3] receive `value`, most significant byte first. 0x9000000C for a null pointer.
[[nodiscard]] VRXGENREG_API int toBigEndianUint32(signed char* bytes, unsigned int value);
