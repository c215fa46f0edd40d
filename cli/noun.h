// SPDX-License-Identifier: Apache-2.0
// Nouns: what a verb can be said about, as data, and the store that keeps its records.
//
// A noun is a table of fields, the form of its key and a function that opens its store. A store
// reads all records of its noun as rows and adds, changes and removes one. The verbs (verbs.h) are
// written once over these two; a new noun is a new table and, for a new kind of file, a new store.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/failure.h"
#include "cli/value.h"

namespace cli {

struct Arguments;

// A row together with the store's own form of the record, which carries what rows do not show.
struct Record {
  Row row;
  std::string image;
};

// Whether a store tells the outside world (the change log, the monitor) of its updates.
enum class SideEffects { wanted, none };

// The records of one noun in one file. Statuses are the library's.
class Store {
 public:
  Store() = default;
  virtual ~Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  virtual std::string path() const = 0;
  virtual std::string lockPath() const = 0;

  // All records in file order. On failure *records holds those read before it, and *offset where in
  // the file reading stopped.
  [[nodiscard]] virtual GenRegStatus readAll(std::vector<Record>* records, long long* offset) = 0;

  // Adds a record; duplicate_record when one with its key exists.
  [[nodiscard]] virtual GenRegStatus add(const Row& row) = 0;
  // Replaces `old`, exactly as it was read, by `row`; no_match when it is no longer as it was read.
  [[nodiscard]] virtual GenRegStatus change(const Record& old, const Row& row) = 0;
  // Removes the record with the key of `old`.
  [[nodiscard]] virtual GenRegStatus remove(const Record& old) = 0;

  // Takes the lock without waiting and releases it: locked_elsewhere when somebody else holds it.
  [[nodiscard]] virtual GenRegStatus probeLock() = 0;
};

struct Noun {
  const char* name;
  const char* what;         // one clause for help
  const char* keyForm;      // as in help: "SERVICE/VERSION/NAME"
  const char* tableFields;  // the columns of a table, comma-separated
  KeyPart shortKey;         // the part that a shorter key must hold
  std::vector<Field> fields;
  // Opens the store that the arguments choose, or the file at `path` when it is not empty.
  std::unique_ptr<Store> (*open)(const Noun& noun, const Arguments& arguments,
                                 const std::string& path, SideEffects effects);
};

// The nouns that there are.
const std::vector<Noun>& nouns();

// The noun of this name; null for none.
const Noun* findNoun(std::string_view name);

// The indices of the noun's key fields, in the order of the key's parts.
std::vector<std::size_t> keyFields(const Noun& noun);

// The key as it is printed and accepted: the key fields with "/" between them.
std::string keyOf(const Noun& noun, const Row& row);

}  // namespace cli
