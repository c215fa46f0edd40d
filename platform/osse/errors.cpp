// SPDX-License-Identifier: Apache-2.0
// System errors as status codes.
#include "platform/osse/errors.h"

#include <cerrno>

OSSStatus ossErrorMapSystem(int error) {
  switch (error) {
    case 0:
      return oss::status::ok;
    case ENOMEM:
      return oss::status::no_memory;
    case EINVAL:
      return oss::status::invalid_argument;
    case ENAMETOOLONG:
    case ERANGE:
      return oss::status::buffer_too_small;
    default:
      break;
  }
  if (error < 0 || error > kOssMaxSystemError) return oss::status::system_error_out_of_range;
  return kOssSystemErrorBase + static_cast<OSSStatus>(error);
}
