// SPDX-License-Identifier: Apache-2.0
// The ways round parsing of those formats whose constructor and parser stand in different files.
#pragma once

#include "genreg/text/text_store.h"

namespace genreg {

extern const GenRegLineSlots kVarValLineSlots;
extern const GenRegLineSlots kServicesLineSlots;

}  // namespace genreg
