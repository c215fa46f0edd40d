// SPDX-License-Identifier: Apache-2.0
// Nouns: what a verb can be said about, as data, and the store that keeps its records.
//
// A noun is a table of fields, the form of its key and a function that opens its store. A store
// reads the records of its noun as rows and adds, changes and removes one. The verbs (verbs.h) are
// written once over these two; a new noun is a new table and, for a new kind of file, a new store.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/failure.h"
#include "cli/value.h"
#include "vrx/status.h"
#include "vrx/stored.h"

class GenRegFile;

namespace cli {

struct Arguments;

// The store's own form of a record as it was read, which carries what rows do not show.
class KeptRecord {
 public:
  KeptRecord() = default;
  virtual ~KeptRecord() = default;
  KeptRecord(const KeptRecord&) = delete;
  KeptRecord& operator=(const KeptRecord&) = delete;

  // The record's bytes: two that have the same are one to an update.
  virtual std::string bytes() const = 0;
};

// A row together with it.
struct Record {
  Row row;
  std::shared_ptr<const KeptRecord> kept{};
  std::size_t line = 0;  // the number of its first line; 0 where records are no lines
};

// Looks at a row and tells whether its record is wanted.
using RowVisitor = std::function<bool(Row& row)>;

// Whether a store tells the outside world (the change log, the monitor) of its updates.
enum class SideEffects { wanted, none };

// The records of one noun in one file.
class Store {
 public:
  Store() = default;
  virtual ~Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  virtual std::string path() const = 0;
  virtual std::string lockPath() const = 0;

  // Gives the row of each record to `wanted`, in file order, and appends those to *records for
  // which it is true; of the others nothing is kept, so that it may move their rows away. On
  // failure *offset is where in the file reading stopped.
  [[nodiscard]] virtual vrx::Status read(const RowVisitor& wanted, std::vector<Record>* records,
                                         long long* offset) = 0;

  // Adds a record; duplicate_record when one with its key exists.
  [[nodiscard]] virtual vrx::Status add(const Row& row) = 0;
  // Replaces `old`, exactly as it was read, by `row`; no_match when it is no longer as it was read.
  [[nodiscard]] virtual vrx::Status change(const Record& old, const Row& row) = 0;
  // Removes the record that was read; of the global registry, the one with its key.
  [[nodiscard]] virtual vrx::Status remove(const Record& old) = 0;

  // Throws Failure (refused) when `row`, in place of `old` or as a new record (null), would not
  // read back as it is, or would take something with it that rows do not show.
  virtual void check(const Record* old, const Row& row) const;

  // Every line of the file; nothing where records are no lines.
  [[nodiscard]] virtual vrx::Status readLines(std::vector<vrx::Line>* lines);

  // Takes the lock without waiting and releases it: locked_elsewhere when somebody else holds it.
  [[nodiscard]] virtual GenRegStatus probeLock() = 0;

  // The library's object: the names of the companions, the lock, the monitor. It is the store's.
  virtual GenRegFile& file() = 0;
};

// What becomes of a missing file when a record is added: made with its folder, made where there is
// a folder, or a failure.
enum class MissingFile { madeWithFolder, made, refused };

// What a difference shows: the fields of the record, or the lines of the file.
enum class Difference { record, file };

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
  unsigned accepts;  // the Accepts bits, of those that not every noun has, that this one has
  MissingFile missingFile = MissingFile::madeWithFolder;
  Difference difference = Difference::record;
  const char* afterwards = "";  // what is left to do when a change has been made
  bool slashInName = false;     // whether a "/" that separates no other part belongs to the name
};

// The nouns that there are.
const std::vector<Noun>& nouns();

// The noun of this name; null for none.
const Noun* findNoun(std::string_view name);

// The indices of the noun's key fields, in the order of the key's parts.
std::vector<std::size_t> keyFields(const Noun& noun);

// Whether the field is a part of the key as it is printed.
bool isKeyField(const Field& field);

// The key as it is printed and accepted: the key fields, without absent ones, with "/" between
// them.
std::string keyOf(const Noun& noun, const Row& row);

// Whether two rows have the same key.
bool sameKey(const Noun& noun, const Row& a, const Row& b);

}  // namespace cli
