// SPDX-License-Identifier: Apache-2.0
// The registry formats behind one interface, for test programs that are told the format by name.
// What is asked of them, and what is right and wrong, is not decided here.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vrxtest {

// A registry of some format. Every member makes the one library call that it is named after.
class AnyRegistry {
 public:
  virtual ~AnyRegistry() = default;
  virtual unsigned constructed() const = 0;  // what the constructor reported
  // mode is kGenRegAdd (without a key), kGenRegChange or kGenRegDelete (without a record).
  virtual unsigned update(unsigned mode, unsigned long long mask, void* key, void* record) = 0;
  virtual unsigned openScan() = 0;
  virtual unsigned next(void* key, void* result) = 0;  // with a mask of 0
  virtual unsigned closeScan() = 0;
};

struct Format {
  const char* name;
  const char* fields;  // as a help text
  // The record that NAME=VALUE words describe; what it points to lives as long as it does. Throws
  // std::runtime_error when they describe none.
  std::shared_ptr<void> (*parse)(const std::vector<std::string>& words);
  std::shared_ptr<void> (*blank)();
  void (*print)(const void* record);  // one line
  // Calls `work` with an object that lives on the stack and no longer. The global registry needs no
  // path.
  void (*use)(char* path, const std::function<void(AnyRegistry&)>& work);
};

// The format of that name, or null: global, profile, services, inittab, binvar.
const Format* findFormat(const std::string& name);

// Calls `visit` with every format, in the order above.
void visitFormats(void (*visit)(const Format& format));

}  // namespace vrxtest
