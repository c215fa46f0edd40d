// SPDX-License-Identifier: Apache-2.0
// What the tests of the instance directory and of its lists share: a registry of their own in a
// private mount namespace, instances to register, and damage.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "globalreg/record.h"
#include "oss/directory.h"
#include "tests/support/global_records.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temp_dir.h"

namespace vrxtest {

constexpr char kRegistry[] = "/tmp/reg";

inline char kService[] = "VRX";
inline char kOther[] = "KRN";
inline char kName[] = "inst1";
inline char kEmpty[] = "";

// Runs the body with a registry of its own.
inline void withRegistry(const std::function<void()>& body) {
  inPrivateMounts([&body] {
    setenv("VRX_GLOBAL_REG_PATHNAME", kRegistry, 1);
    unsetenv("VRXINSTANCE");
    body();
  });
}

inline OSSInstanceInfo_t info(const char* service, const char* name, const char* path = "") {
  OSSInstanceInfo_t result{};
  result.versionCode = kVersion3107;
  setText(result.service, service);
  setText(result.instanceName, name);
  setText(result.instancePath, path);
  return result;
}

inline GenRegStatus set(OSSInstanceInfo_t value) {
  return ossSetInstanceInfo(&value);
}

// The names of the service's instances, in the order of the list.
inline std::vector<std::string> namesOf(char* service) {
  std::vector<std::string> names;
  void* list = nullptr;
  EXPECT_EQ(ossOpenInstanceList(service, &list), 0U);
  OSSInstanceInfo_t next{};
  while (ossGetNextInstance(list, &next) == 0)
    names.emplace_back(next.instanceName);
  EXPECT_EQ(ossCloseInstanceList(list), 0U);
  return names;
}

// Puts a damaged record into the registry: its only entry runs past its frame.
inline void damageRegistry(std::uint32_t type) {
  std::string image = imageOf(type, 1, {entryOf("VRX")});
  image[20] = '\x7F';
  writeFile(kRegistry, bytesOf(static_cast<std::uint32_t>(image.size())) + image);
}

}  // namespace vrxtest
