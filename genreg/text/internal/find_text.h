// SPDX-License-Identifier: Apache-2.0
// Looking for a short text in many bytes, NULs among them.
#pragma once

namespace genreg {

// The first place in the `size` bytes at `bytes` where the `length` bytes of `text` stand, at least
// one; null when there is none. Of the cost of a look at each byte once, whatever they are, as long
// as the text is no longer than a name is.
const unsigned char* findText(const unsigned char* bytes, unsigned long size, const char* text,
                              unsigned long length);

}  // namespace genreg
