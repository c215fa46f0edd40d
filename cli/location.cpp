// SPDX-License-Identifier: Apache-2.0
// The choice of the global registry, explained. The choice itself is the library's.
#include "cli/location.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cstdlib>

#include "cli/failure.h"
#include "platform/osse/paths.h"
#include "vrx/file.h"

namespace cli {

namespace {

constexpr const char* kPathVariable = "VRX_GLOBAL_REG_PATHNAME";
constexpr const char* kInstanceVariable = "VRXINSTANCE";
constexpr const char* kToolPath = "/sqllib/adm/vrxperm";

std::string environment(const char* name) {
  const char* value = secure_getenv(name);
  return value == nullptr ? "" : value;
}

std::string whyNoPath() {
  if (secure_getenv(kPathVariable) != nullptr) {
    const std::string path = environment(kPathVariable);
    if (path.empty()) return fmt::format("{} is set, and empty", kPathVariable);
    if (path.size() > kGenRegMaxPathLength) {
      return fmt::format("a path of {} bytes, the limit is {}", path.size(), kGenRegMaxPathLength);
    }
    return fmt::format("{} is no path of a file", path);
  }
  const std::string instance = environment(kInstanceVariable);
  char tool[kGenRegPathSize];
  const GenRegStatus rc =
      ossBuildHomeDirectoryRelativePath(instance.c_str(), kToolPath, tool, sizeof tool);
  return fmt::format("{}={}: {}", kInstanceVariable, instance, meaningOf(rc));
}

}  // namespace

void useRegistry(const std::string& path) {
  setenv(kPathVariable, path.c_str(), 1);
}

vrx::Scope scopeOf(const Arguments& arguments) {
  return arguments.hostWide ? vrx::Scope::hostWide : vrx::Scope::own;
}

std::string registryPathOf(const vrx::GlobalRegistry& registry) {
  if (registry.status()) return registry.path();
  Failure failure(Exit::noRegistry, "the global registry: " + whyNoPath());
  failure.code = genreg::status::paths_not_set;
  throw failure;
}

std::string registryReason(const Arguments& arguments) {
  if (arguments.registry) return "--registry is given";
  if (secure_getenv(kPathVariable) != nullptr) return fmt::format("{} is set", kPathVariable);
  const std::string unset = fmt::format("host-wide default: {} is not set, ", kPathVariable);
  if (arguments.hostWide) return unset + "--host-wide is given";
  const std::string instance = environment(kInstanceVariable);
  if (instance.empty()) {
    const bool isSet = secure_getenv(kInstanceVariable) != nullptr;
    return fmt::format("{}{} is {}", unset, kInstanceVariable, isSet ? "empty" : "not set");
  }
  char tool[kGenRegPathSize];
  if (ossBuildHomeDirectoryRelativePath(instance.c_str(), kToolPath, tool, sizeof tool) != 0)
    return {};
  const bool own = ossPathIsSetuidRoot(tool);
  return fmt::format("{}{}={} and {} is {}set-user-id root", own ? "instance's own: " : unset,
                     kInstanceVariable, instance, tool, own ? "" : "not ");
}

bool registryExists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

void requireFolder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat info {};
  if (stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return;
  throw pathFailure(Exit::noRegistry, path, "there is no folder " + folder);
}

void requireRegistry(const std::string& path) {
  const vrx::Status file = vrx::checkFile(path);
  if (!file) throw failureOf(file.code(), path, path);
}

}  // namespace cli
