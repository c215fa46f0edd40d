// SPDX-License-Identifier: Apache-2.0
// The function identifiers as an enumeration, for trace, log and change log.
#pragma once

#include <cstdint>

namespace genreg {

enum FunctionId : std::uint32_t {
#define VRX_FUNCTION(identifier, value, name) identifier = (value),
#include "genreg/internal/function_ids.inc"
#undef VRX_FUNCTION
};

}  // namespace genreg
