// SPDX-License-Identifier: Apache-2.0
// Looking for a short text in many bytes, NULs among them, and for the end of a line.
#pragma once

namespace genreg {

// The first place in the `size` bytes at `bytes` where the `length` bytes of `text` stand, at least
// one; null when there is none. Of the cost of a look at each byte once, whatever they are, as long
// as the text is no longer than a name is.
const unsigned char* findText(const unsigned char* bytes, unsigned long size, const char* text,
                              unsigned long length);

// The first newline or NUL among the `size` bytes at `bytes`; null when there is neither.
const unsigned char* findLineEnd(const unsigned char* bytes, unsigned long size);

}  // namespace genreg
