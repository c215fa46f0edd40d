// SPDX-License-Identifier: Apache-2.0
// Building a GlobalReg: its file, its slots, its features. The slots' bodies stand in the files
// named after their duty.
#include "globalreg/global_reg.h"

#include <cstring>
#include <initializer_list>

#include "genreg/internal/operation.h"
#include "globalreg/internal/image.h"
#include "globalreg/internal/location.h"

namespace {

namespace status = genreg::status;

void clearPath(char (&path)[kGenRegPathSize]) {
  path[0] = '\0';
}

// The object as it was before any file was chosen.
void forgetPaths(GlobalReg* registry) {
  registry->state &= ~static_cast<unsigned int>(kGenRegStatePathsSet);
  clearPath(registry->registryPath);
  clearPath(registry->backupPath);
  clearPath(registry->temporaryPath);
  clearPath(registry->corruptPath);
  clearPath(registry->lockPath);
}

// A path that leaves no room for the companions' names can still be read from: it becomes the
// registry path alone, and without companions no update begins.
void setReadOnlyPath(GlobalReg* registry, const char* path) {
  const std::size_t length = std::strlen(path);
  if (length <= kGenRegMaxPathLength || length >= kGenRegPathSize) return;
  std::memcpy(registry->registryPath, path, length + 1);
}

void assignSlots(GlobalReg* registry) {
  registry->matchRecord = GlobalReg::MatchRecord;
  registry->validateRecord = GlobalReg::ValidateRecord;
  registry->printRecord = GlobalReg::PrintRecord;
  registry->log = GlobalReg::Log;
  registry->notify = GlobalReg::Notify;
  registry->getRecordSize = GlobalReg::GetRecordSize;
  registry->getMaxRecordSize = GlobalReg::GetMaxRecordSize;
  registry->packRecord = GlobalReg::PackRecord;
  registry->unpackRecord = GlobalReg::UnpackRecord;
  registry->getPackedRecordSize = GlobalReg::GetPackedRecordSize;
  registry->imageSlots = &globalreg::kImageSlots;
}

void chooseFeatures(GlobalReg* registry) {
  // Asked first: clearing a bit that is not set would be logged as a failure.
  if (registry->isFeatureSet(kGenRegDuplicates)) {
    (void)registry->unsetFeature(kGenRegDuplicates);  // the bit is valid and set
  }
  for (const GenRegFeature feature :
       {kGenRegVerifyCommit, kGenRegPacked, kGenRegChangeLog, kGenRegNotify}) {
    (void)registry->setFeature(feature);  // valid bits cannot be refused
  }
}

}  // namespace

GlobalReg::GlobalReg(bool hostWideOnly) {
  init(hostWideOnly);
}

GlobalReg::GlobalReg() : GlobalReg(false) {}

void GlobalReg::init(bool hostWideOnly) {
  genreg::Operation op(genreg::kGlobalRegInit);
  ListService = nullptr;
  assignSlots(this);
  forgetPaths(this);
  globalreg::Location location;
  const auto scope = hostWideOnly ? globalreg::Scope::hostOnly : globalreg::Scope::instanceOrHost;
  if (const GenRegStatus rc = locateRegistry(scope, &location); rc != status::ok) {
    op.fail(1, status::paths_not_set, rc);
  } else if (const GenRegStatus set = setRegistryPaths(location.path); set != status::ok) {
    op.fail(2, status::paths_not_set, set);
    setReadOnlyPath(this, location.path);
  }
  chooseFeatures(this);
  SetChangeLoggingFuncID(0);
  CallerArgCount = 0;
  CallerArgs = nullptr;
}

GlobalReg::~GlobalReg() = default;
