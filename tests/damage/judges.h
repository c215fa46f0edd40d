// SPDX-License-Identifier: Apache-2.0
// What must hold of a registry whatever its bytes are, for text formats, binary formats, and an
// object that demands a checksum. Which bytes are tried is not decided here.
#pragma once

#include <memory>
#include <string>

namespace vrxtest::damage {

class Judge {
 public:
  virtual ~Judge() = default;
  // The sound registry of three records.
  virtual std::string original() = 0;
  // Puts `bytes` in the registry's place and runs every operation on them. What is wrong, or
  // nothing.
  virtual std::string complaintAbout(const std::string& bytes) = 0;
};

// The formats of tests/support/subjects.h, and checksum-kept: the object that stamped the header.
std::unique_ptr<Judge> judgeFor(const std::string& format, const std::string& path);

}  // namespace vrxtest::damage
