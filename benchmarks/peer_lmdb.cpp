// SPDX-License-Identifier: Apache-2.0
// LMDB: one environment in a file of its own, one database, one transaction an operation.
#include <lmdb.h>

#include "benchmarks/peers.h"

namespace vrxbench {
namespace {

constexpr std::size_t kMapSize = std::size_t{256} << 20;  // more than the largest registry needs
constexpr mdb_mode_t kFileMode = 0644;

MDB_val valueOf(const std::string& bytes) {
  return {bytes.size(), const_cast<char*>(bytes.data())};
}

std::string_view viewOf(const MDB_val& value) {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

class Environment {
 public:
  Environment(const std::string& path, unsigned flags) {
    require(mdb_env_create(&handle_) == 0, "lmdb: no environment");
    require(mdb_env_set_mapsize(handle_, kMapSize) == 0, "lmdb: no map");
    require(mdb_env_open(handle_, path.c_str(), MDB_NOSUBDIR | flags, kFileMode) == 0,
            "lmdb: " + path);
  }
  ~Environment() { mdb_env_close(handle_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  MDB_env* handle() { return handle_; }

 private:
  MDB_env* handle_ = nullptr;
};

// Ends without a trace unless it is committed.
class Transaction {
 public:
  Transaction(Environment& environment, unsigned flags) {
    require(mdb_txn_begin(environment.handle(), nullptr, flags, &handle_) == 0, "lmdb: no begin");
    require(mdb_dbi_open(handle_, nullptr, 0, &database_) == 0, "lmdb: no database");
  }
  ~Transaction() {
    if (handle_ != nullptr) mdb_txn_abort(handle_);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit() {
    MDB_txn* const ended = handle_;
    handle_ = nullptr;
    require(mdb_txn_commit(ended) == 0, "lmdb: no commit");
  }
  int get(const std::string& key, MDB_val& value) {
    MDB_val name = valueOf(key);
    return mdb_get(handle_, database_, &name, &value);
  }
  void put(const std::string& key, const std::string& image, unsigned flags) {
    MDB_val name = valueOf(key);
    MDB_val value = valueOf(image);
    require(mdb_put(handle_, database_, &name, &value, flags) == 0, "lmdb: not stored");
  }
  void remove(const std::string& key) {
    MDB_val name = valueOf(key);
    require(mdb_del(handle_, database_, &name, nullptr) == 0, "lmdb: not deleted");
  }
  MDB_cursor* openCursor() {
    MDB_cursor* cursor = nullptr;
    require(mdb_cursor_open(handle_, database_, &cursor) == 0, "lmdb: no cursor");
    return cursor;
  }

 private:
  MDB_txn* handle_ = nullptr;
  MDB_dbi database_ = 0;
};

class Lmdb : public Peer {
 public:
  explicit Lmdb(std::string path) : path_(std::move(path)) {}

  void fill(unsigned long records) override;
  void expectFound(const Wanted& wanted) override;
  void expectMissing(const Wanted& wanted) override;
  void scan(unsigned long records) override;
  void update(Action action, unsigned long number, Form form, Durability durability) override;

 private:
  const std::string path_;
};

void Lmdb::fill(unsigned long records) {
  Environment environment(path_, MDB_NOSYNC);
  Transaction transaction(environment, 0);
  for (unsigned long number = 0; number < records; ++number)
    transaction.put(packedKey(number), packedImage(number, Form::kFirst), MDB_NOOVERWRITE);
  transaction.commit();
}

void Lmdb::expectFound(const Wanted& wanted) {
  Environment environment(path_, MDB_RDONLY);
  Transaction transaction(environment, MDB_RDONLY);
  MDB_val value;
  require(transaction.get(wanted.packedKey, value) == 0, "lmdb: not found");
  ImageFields fields;
  const bool right = readFields(viewOf(value), fields) && fields.path == wanted.path;
  require(right, "lmdb: another record");
}

void Lmdb::expectMissing(const Wanted& wanted) {
  Environment environment(path_, MDB_RDONLY);
  Transaction transaction(environment, MDB_RDONLY);
  MDB_val value;
  require(transaction.get(wanted.packedKey, value) == MDB_NOTFOUND, "lmdb: not missing");
}

void Lmdb::scan(unsigned long records) {
  Environment environment(path_, MDB_RDONLY);
  Transaction transaction(environment, MDB_RDONLY);
  MDB_cursor* const cursor = transaction.openCursor();
  MDB_val key;
  MDB_val value;
  unsigned long count = 0;
  unsigned long sum = 0;
  while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == 0) {
    ImageFields fields;
    require(readFields(viewOf(value), fields), "lmdb: not one of ours");
    sum += touch(fields.name, fields.path, fields.comment);
    ++count;
  }
  mdb_cursor_close(cursor);
  require(count == records && sum > 0, "lmdb: the scan is not whole");
}

void Lmdb::update(Action action, unsigned long number, Form form, Durability durability) {
  Environment environment(path_, durability == Durability::kSynced ? 0 : MDB_NOSYNC);
  Transaction transaction(environment, 0);
  if (action == Action::kRemove) {
    transaction.remove(packedKey(number));
  } else {
    const unsigned flags = action == Action::kInsert ? MDB_NOOVERWRITE : 0;
    transaction.put(packedKey(number), packedImage(number, form), flags);
  }
  transaction.commit();
}

}  // namespace

std::shared_ptr<Peer> makeLmdb(const std::string& path) {
  return std::make_shared<Lmdb>(path);
}

std::vector<NamedPeer> makePeers(const std::string& folder) {
  return {{"sqlite", makeSqlite(folder + "/journal.db", SqliteJournal::kRollback)},
          {"sqlite wal", makeSqlite(folder + "/wal.db", SqliteJournal::kWriteAhead)},
          {"tdb", makeTdb(folder + "/instances.tdb")},
          {"lmdb", makeLmdb(folder + "/instances.mdb")}};
}

}  // namespace vrxbench
