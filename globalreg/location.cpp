// SPDX-License-Identifier: Apache-2.0
// Where the global registry is.
#include "globalreg/internal/location.h"

#include <cstdlib>
#include <cstring>

#include "genreg/internal/operation.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/fixed_names.h"
#include "platform/osse/paths.h"

namespace globalreg {
namespace {

namespace status = genreg::status;

// An empty name counts as none.
const char* instanceOwner() {
  const char* name = std::getenv(kInstanceVariable);
  return name != nullptr && *name != '\0' ? name : nullptr;
}

// An instance whose tools belong to root keeps its own registry: the tool's place in the home
// directory is then the registry's.
GenRegStatus lookForInstanceRegistry(const char* owner, Location* found) {
  const GenRegStatus rc =
      ossBuildHomeDirectoryRelativePath(owner, kInstanceTool, found->home, sizeof found->home);
  if (rc != status::ok) return rc;
  if (!ossPathIsSetuidRoot(found->home)) {
    found->path = kHostRegistry;
    return status::ok;
  }
  char* tool = found->home + std::strlen(found->home) - (sizeof kInstanceTool - 1);
  std::memcpy(tool, kInstanceRegistry, sizeof kInstanceRegistry);
  found->path = found->home;
  return status::ok;
}

}  // namespace

GenRegStatus locateRegistry(Scope scope, Location* found) {
  // A program that runs with another user's rights does not let its caller choose the file.
  if (const char* path = secure_getenv(kPathnameVariable); path != nullptr) {
    found->path = path;
    return status::ok;
  }
  const char* owner = scope == Scope::instanceOrHost ? instanceOwner() : nullptr;
  if (owner != nullptr) return lookForInstanceRegistry(owner, found);
  found->path = kHostRegistry;
  return status::ok;
}

}  // namespace globalreg

GenRegStatus GetGlobalRegPathname(char* buffer, unsigned short* length) {
  namespace status = genreg::status;
  constexpr unsigned short kLongest = 0xFFFF;
  genreg::Operation op(genreg::kGetGlobalRegPathname);
  if (buffer == nullptr) return op.fail(1, status::pathname_buffer_null);
  if (length == nullptr) return op.fail(2, status::invalid_argument);
  globalreg::Location location;
  const GenRegStatus rc = locateRegistry(globalreg::Scope::instanceOrHost, &location);
  if (rc != status::ok) return op.fail(3, rc);
  const std::size_t needed = std::strlen(location.path) + 1;
  const std::size_t given = *length;
  *length = needed < kLongest ? static_cast<unsigned short>(needed) : kLongest;
  if (needed > given) return op.fail(4, status::pathname_buffer_too_small);
  std::memcpy(buffer, location.path, needed);
  return op.status();
}
