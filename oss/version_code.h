// SPDX-License-Identifier: Apache-2.0
// Version codes: an installed copy's version as 64 bits, as dotted text, and as a level number.
//
// A version code holds four unsigned 16-bit parts, part 1 in the highest bits: version 3.1.0.7 is
// 0x0003000100000007. Its level number has two decimal digits a part: 3010007. These are plain
// functions with no state.
#pragma once

#include "genreg/status.h"

// Bytes that hold every version string with its terminator: "65535.65535.65535.65535".
constexpr unsigned int kVersionStringSize = 24;

// Writes "%d.%d.%d.%d" of the four parts to `buffer` of `size` bytes. 0x9000025C null buffer,
// 0x9000025D formatting failed, 0x9000025E `size` below the length + 1; the buffer is then
// untouched.
[[nodiscard]] VRXGENREG_API GenRegStatus ossVersionCodeToString(unsigned long long code,
                                                                char* buffer, unsigned int size);

// Reads up to four components of decimal digits separated by '.', from the first 23 characters;
// missing and empty components are 0, each is kept to 16 bits of its value saturated to 31 bits.
// 0x9000025C null string or output, 0x9000025F another character; *code is then untouched.
[[nodiscard]] VRXGENREG_API GenRegStatus ossVersionStringToCode(const char* text,
                                                                unsigned long long* code);

// The level number of a version code. Parts above 99 spill into the neighbouring digits; the result
// saturates at the limits of 32 bits.
[[nodiscard]] VRXGENREG_API int ossVersionCodeServiceToVRX(unsigned long long code);

// The version code of a level number: its four groups of two decimal digits, the highest first.
[[nodiscard]] VRXGENREG_API unsigned long long ossVersionCodeVRXToService(unsigned int level);
