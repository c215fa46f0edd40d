// SPDX-License-Identifier: Apache-2.0
// Asking a registry for its features where it is not to be changed. The member function is not
// const, because its exported name is older than this library's use of const.
#pragma once

#include "genreg/registry.h"

namespace genreg {

// Whether any of these feature bits is set.
inline bool hasFeature(const GenRegBase& registry, unsigned bits) {
  return (registry.features & bits) != 0;
}

}  // namespace genreg
