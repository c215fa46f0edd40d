// SPDX-License-Identifier: Apache-2.0
// From a packed image straight to the instance that a list gives to its caller: the record between
// them, which is as large, would be cleared, filled and copied for each.
#pragma once

#include "globalreg/global_reg.h"
#include "oss/directory.h"

namespace ossdir {

// The result of a list's GetNext. The store fills `record`, unless it has called the image slots
// below: they fill *instance and say so.
struct ListedInstance {
  GlobalRegRecord record;  // first: it is what the store knows of
  OSSInstanceInfo_t* instance;
  bool isFilled;
};

// The image slots that fill instances.
extern const GenRegImageSlots kInstanceSlots;

// Lets a registry fill instances from images for as long as this lives: its results must all be of
// the type above meanwhile. Whoever else reads from a list's registry gets records.
class FillsInstances {
 public:
  explicit FillsInstances(GlobalReg& registry) : registry_(registry), slots_(registry.imageSlots) {
    if (slots_ != nullptr) registry_.imageSlots = &kInstanceSlots;
  }
  ~FillsInstances() { registry_.imageSlots = slots_; }
  FillsInstances(const FillsInstances&) = delete;
  FillsInstances& operator=(const FillsInstances&) = delete;

 private:
  GlobalReg& registry_;
  const GenRegImageSlots* const slots_;
};

}  // namespace ossdir
