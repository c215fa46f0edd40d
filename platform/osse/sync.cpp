// SPDX-License-Identifier: Apache-2.0
// Getting files and names onto the disk.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "platform/osse/errors.h"
#include "platform/osse/files.h"
#include "platform/osse/interruptions.h"

namespace {

using namespace oss;

std::atomic<OSSSyncPolicy> syncPolicy{OSSSyncPolicy::standard};

int syncOnce(int descriptor) {
#ifdef F_FULLFSYNC
  // There fsync reaches the drive's cache only; file systems without the request get fsync.
  if (ossGetSyncPolicy() == OSSSyncPolicy::full && fcntl(descriptor, F_FULLFSYNC) == 0) return 0;
#endif
  return fsync(descriptor);
}

// 0 or the errno value. An interrupted sync has not failed; one that failed is not asked again,
// because the next one would succeed without the lost pages.
int sync(int descriptor) {
  return repeatInterrupted([&] { return syncOnce(descriptor); }) == 0 ? 0 : errno;
}

}  // namespace

void ossSetSyncPolicy(OSSSyncPolicy policy) {
  syncPolicy.store(policy, std::memory_order_relaxed);
}

OSSSyncPolicy ossGetSyncPolicy() {
  return syncPolicy.load(std::memory_order_relaxed);
}

OSSStatus ossFileSync(int descriptor) {
  if (ossGetSyncPolicy() == OSSSyncPolicy::none) return status::ok;
  return ossErrorMapSystem(sync(descriptor));
}

OSSStatus ossDirectorySync(const char* directory) {
  if (directory == nullptr || *directory == '\0') return status::invalid_argument;
  if (ossGetSyncPolicy() == OSSSyncPolicy::none) return status::ok;
  const int descriptor =
      repeatInterrupted([&] { return open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (descriptor < 0) return ossErrorMapSystem(errno);
  const int error = sync(descriptor);
  (void)::close(descriptor);  // nothing was written through it
  return error == EINVAL ? status::ok : ossErrorMapSystem(error);
}
