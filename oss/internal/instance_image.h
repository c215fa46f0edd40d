// SPDX-License-Identifier: Apache-2.0
// From a packed image straight to the instance that a list gives to its caller: the record between
// them, which is as large, would be cleared, filled and copied for each.
#pragma once

#include <cstddef>

#include "globalreg/global_reg.h"
#include "oss/directory.h"

namespace ossdir {

// What a list has written into its caller's instance last. Texts are zero up to the end of their
// arrays; of an instance that is passed again only what was written has to be cleared for that. (A
// text with a NUL inside, which no packing makes, keeps what it has behind.)
struct InstanceTexts {
  static constexpr std::size_t kCount = 10;  // by the fields of an instance record

  const OSSInstanceInfo_t* instance = nullptr;
  std::size_t lengths[kCount] = {};
};

// The result of a list's GetNext. The store fills `record`, unless it has called the image slots
// below: they fill *instance and say so.
struct ListedInstance {
  GlobalRegRecord record;  // first: it is what the store knows of
  OSSInstanceInfo_t* instance;
  InstanceTexts* given;
  bool isFilled;
};

// For a GlobalReg whose GetNext is given such results only.
extern const GenRegImageSlots kInstanceListSlots;

}  // namespace ossdir
