// SPDX-License-Identifier: Apache-2.0
// The 32-byte checksum header that a binary registry with feature 0x100 carries before its frames:
// the decimal text of the checksum of every byte after it, a NUL, and zeros.
//
// An object knows whether the registry has one by its flag copyLacksHeader: 1 until the object has
// committed a stamped copy. While the flag is 1 a header is recognised by its form and skipped, and
// nothing is checked; from then on it is required and checked at every OpenReg.
#pragma once

#include "genreg/internal/operation.h"
#include "genreg/registry.h"

namespace genreg {

constexpr unsigned long kChecksumHeaderSize = 32;

enum class HeaderCheck { kSkipOnly, kCompare };

// Whether this object's files carry a header at all.
bool usesChecksumHeader(const GenRegFile& registry);

// Puts the freshly opened registry stream at its first frame, behind a header if there is one,
// after comparing the checksum where asked and required. Fails `op` with 0x900001CD, 0x900001EB,
// 0x900005A5 or 0x900005A4.
void seekFirstRecord(Operation& op, GenRegFile& registry, HeaderCheck check);

// Writes an empty header to the fresh temporary copy of a registry known to have one, for
// stampChecksum to fill. Fails `op` with 0x900001C0.
void reserveHeader(Operation& op, GenRegFile& registry);

// Writes the checksum of the temporary copy's frames into its header, inserting the header when the
// copy has none. True when it did; an empty copy gets no header. Fails `op` with 0x900001EB,
// 0x900005A5 or 0x900001D0.
bool stampChecksum(Operation& op, GenRegFile& registry);

}  // namespace genreg
