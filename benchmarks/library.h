// SPDX-License-Identifier: Apache-2.0
// The library as a contender: the store by itself, and the directory functions. Each call is one
// operation with everything that belongs to it, from making the object to releasing it.
#pragma once

#include <string>

#include "benchmarks/floor.h"
#include "benchmarks/records.h"

namespace vrxbench {

// Whether a scan only has its records delivered, or reads their texts.
enum class Look : unsigned char { kNone, kTexts };

// The global registry's store without change log and notification, on a file of our own.
namespace store {
void expectFound(const std::string& path, const Wanted& wanted);
void expectMissing(const std::string& path, const Wanted& wanted);
void scan(const std::string& path, unsigned long records, Look look);
void update(const std::string& path, Action action, unsigned long number, Form form);
}  // namespace store

// oss/directory.h, on the registry that VRX_GLOBAL_REG_PATHNAME names.
namespace directory {
void use(const std::string& path);
void expectFound(const Wanted& wanted);
void expectMissing(const Wanted& wanted);
void scan(unsigned long records, Look look);
void update(Action action, unsigned long number, Form form);
}  // namespace directory

}  // namespace vrxbench
