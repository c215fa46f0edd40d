// SPDX-License-Identifier: Apache-2.0
// Bounded formatting and the reading of booleans.
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// Formats like snprintf into `out` of `size` bytes, always terminated when size is above 0; `out`
// may be null when size is 0. Returns the length of the whole text, which was cut when the result
// is `size` or more; -1 when it cannot be formatted (out is then the empty string) or `format` is
// null.
VRXOSSE_API int ossSnprintf(char* out, unsigned long size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Reads a boolean: 1, true, t, yes, y, on and 0, false, f, no, n, off, in capitals or not, and
// nothing around it. *out is untouched on failure.
// not_a_boolean: any other text. invalid_argument: null.
[[nodiscard]] VRXOSSE_API OSSStatus ossStrToBoolean(const char* text, bool* out);
