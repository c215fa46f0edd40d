// SPDX-License-Identifier: Apache-2.0
// The stores that people would take instead, holding the same records under the same keys: SQLite
// with a row of columns, tdb and LMDB with the packed image as value.
//
// Every operation is one-shot, as the library's are: open, do, close.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "benchmarks/floor.h"
#include "benchmarks/records.h"

namespace vrxbench {

class Peer {
 public:
  virtual ~Peer() = default;
  // Creates the store with the records 0 to `records` - 1, unsynced.
  virtual void fill(unsigned long records) = 0;
  virtual void expectFound(const Wanted& wanted) = 0;
  virtual void expectMissing(const Wanted& wanted) = 0;
  // Visits every record and touches its texts.
  virtual void scan(unsigned long records) = 0;
  virtual void update(Action action, unsigned long number, Form form, Durability durability) = 0;
};

struct NamedPeer {
  std::string name;
  std::shared_ptr<Peer> peer;
};

enum class SqliteJournal : unsigned char { kRollback, kWriteAhead };

std::shared_ptr<Peer> makeSqlite(const std::string& path, SqliteJournal journal);
std::shared_ptr<Peer> makeTdb(const std::string& path);
std::shared_ptr<Peer> makeLmdb(const std::string& path);

// All of them, with their files in this folder.
std::vector<NamedPeer> makePeers(const std::string& folder);

}  // namespace vrxbench
