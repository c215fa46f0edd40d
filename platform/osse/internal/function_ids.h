// SPDX-License-Identifier: Apache-2.0
// The identifiers of this library's own functions, for what it logs itself. Registered by
// names.cpp.
#pragma once

namespace oss {
namespace internal {

enum FunctionId : unsigned int {
  kOssMemAlloc = 0x08290001,
  kOssMemFree = 0x08290002,
  kOssFileCopyOwnership = 0x08290003,
  kOssFileHandleDestructor = 0x08290004,
};

}  // namespace internal
}  // namespace oss
