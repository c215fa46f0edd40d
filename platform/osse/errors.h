// SPDX-License-Identifier: Apache-2.0
// System errors as status codes.
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// A system error without a code of its own is this base plus the errno value.
constexpr OSSStatus kOssSystemErrorBase = 0x90000080u;

// The largest errno value that the range of system errors holds.
constexpr int kOssMaxSystemError = 0x132;

// The status code of an errno value: 0 for 0; no_memory for ENOMEM; invalid_argument for EINVAL;
// buffer_too_small for ENAMETOOLONG and ERANGE; otherwise 0x90000080 + errno. A value that is
// negative or above 0x132 (no system has such) gives system_error_out_of_range. Keeps errno.
[[nodiscard]] VRXOSSE_API OSSStatus ossErrorMapSystem(int error);
