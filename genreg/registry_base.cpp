// SPDX-License-Identifier: Apache-2.0
// Feature bits and the change-logging identifier.
#include <initializer_list>

#include "genreg/internal/operation.h"
#include "genreg/registry.h"

using namespace genreg;

namespace {

bool isFeatureInRange(unsigned int bit) {
  return bit != 0 && bit <= kGenRegChecksumHeader;
}

}  // namespace

GenRegBase::GenRegBase() = default;

GenRegBase::~GenRegBase() = default;

GenRegFile::GenRegFile() {
  for (char* path : {registryPath, backupPath, temporaryPath, corruptPath, lockPath})
    *path = '\0';
}

GenRegStatus GenRegBase::setFeature(unsigned int bit) {
  Operation op(kGenRegBaseSetFeature);
  if (!isFeatureInRange(bit)) return op.fail(1, status::feature_out_of_range);
  features |= bit;
  return op.status();
}

GenRegStatus GenRegBase::unsetFeature(unsigned int bit) {
  Operation op(kGenRegBaseUnsetFeature);
  if (!isFeatureInRange(bit)) return op.fail(1, status::feature_out_of_range);
  if (!isFeatureSet(bit)) return op.fail(2, status::feature_not_set);
  features &= ~bit;
  return op.status();
}

bool GenRegBase::isFeatureSet(unsigned int bit) {
  return (features & bit) != 0;
}

void GenRegBase::SetChangeLoggingFuncID(unsigned int id) {
  changeLoggingFuncID = id;
}

unsigned int GenRegBase::GetChangeLoggingFuncID() {
  return isFeatureSet(kGenRegChangeLog) ? changeLoggingFuncID : 0;
}
