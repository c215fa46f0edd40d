// SPDX-License-Identifier: Apache-2.0
// Random files and operations for the text formats, and the library driven with them beside the
// model. Used by a unit test with fixed seeds and by a fuzz target with the fuzzer's bytes.
#pragma once

#include <memory>
#include <string>

#include "genreg/text/text_store.h"
#include "tests/support/text_model.h"

namespace vrxtest::model {

// Where choices come from.
class Choices {
 public:
  virtual ~Choices() = default;
  // A number below `bound`; 0 when there are no more.
  virtual unsigned below(unsigned bound) = 0;
};

enum class Verb { kAdd, kChange, kRemove, kFind };

struct Operation {
  Verb verb = Verb::kAdd;
  unsigned long long mask = 0;
  Record key;
  Record record;
};

std::string randomFile(Format format, Choices& choices);
Operation randomOperation(Format format, Choices& choices);

// The library's object for one file of one format.
class Library {
 public:
  virtual ~Library() = default;
  virtual unsigned run(const Operation& operation) = 0;
  // The next record of an open scan for the operation's key.
  virtual unsigned next(const Operation& operation) = 0;
  virtual GenRegText& registry() = 0;
  // The name and the note of the record that the last lookup or step found.
  virtual std::string found() const = 0;
};
std::unique_ptr<Library> libraryFor(Format format, const std::string& path);

// What the model makes of an operation on these bytes.
Outcome expected(Format format, const std::string& bytes, const Operation& operation);
// The same for a lookup's finding, in the form of Library::found.
std::string expectedFound(Format format, const std::string& bytes, const Operation& operation);

// Bytes with what is not printable as \xNN.
std::string escaped(const std::string& bytes);
// An operation and the file in readable form, for messages.
std::string described(Format format, const std::string& bytes, const Operation& operation);

}  // namespace vrxtest::model
