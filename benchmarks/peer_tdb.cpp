// SPDX-License-Identifier: Apache-2.0
// tdb with transactions. Its hash table is as large as the records ask for, since a program that
// chose tdb would choose that too.
#include <fcntl.h>
#include <sys/types.h>

#include <cstdlib>
// tdb.h needs the types that the headers above declare.
#include <signal.h>
#include <tdb.h>

#include <algorithm>

#include "benchmarks/peers.h"

namespace vrxbench {
namespace {

constexpr int kSmallestTable = 131;
constexpr unsigned long kLargestTable = 100003;
constexpr mode_t kFileMode = 0644;

TDB_DATA dataOf(const std::string& bytes) {
  auto* start = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
  return {start, bytes.size()};
}

class Database {
 public:
  Database(const std::string& path, int table, int flags, int mode)
      : handle_(tdb_open(path.c_str(), table, flags, mode, kFileMode)) {
    require(handle_ != nullptr, "tdb: " + path);
  }
  ~Database() { require(tdb_close(handle_) == 0, "tdb: not closed"); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  tdb_context* handle() { return handle_; }

 private:
  tdb_context* const handle_;
};

class Tdb : public Peer {
 public:
  explicit Tdb(std::string path) : path_(std::move(path)) {}

  void fill(unsigned long records) override;
  void expectFound(const Wanted& wanted) override;
  void expectMissing(const Wanted& wanted) override;
  void scan(unsigned long records) override;
  void update(Action action, unsigned long number, Form form, Durability durability) override;

 private:
  const std::string path_;
};

void Tdb::fill(unsigned long records) {
  const int table = std::max(kSmallestTable, static_cast<int>(std::min(records, kLargestTable)));
  Database database(path_, table, TDB_NOSYNC, O_RDWR | O_CREAT | O_TRUNC);
  for (unsigned long number = 0; number < records; ++number) {
    const std::string key = packedKey(number);
    const std::string image = packedImage(number, Form::kFirst);
    const int rc = tdb_store(database.handle(), dataOf(key), dataOf(image), TDB_INSERT);
    require(rc == 0, "tdb: not filled");
  }
}

void Tdb::expectFound(const Wanted& wanted) {
  Database database(path_, 0, TDB_DEFAULT, O_RDONLY);
  const TDB_DATA found = tdb_fetch(database.handle(), dataOf(wanted.packedKey));
  require(found.dptr != nullptr, "tdb: not found");
  ImageFields fields;
  const std::string_view image(reinterpret_cast<const char*>(found.dptr), found.dsize);
  const bool right = readFields(image, fields) && fields.path == wanted.path;
  std::free(found.dptr);
  require(right, "tdb: another record");
}

void Tdb::expectMissing(const Wanted& wanted) {
  Database database(path_, 0, TDB_DEFAULT, O_RDONLY);
  const int exists = tdb_exists(database.handle(), dataOf(wanted.packedKey));
  require(exists == 0, "tdb: found what is missing");
}

struct Sum {
  unsigned long count = 0;
  unsigned long touched = 0;
};

int visitRecord(tdb_context*, TDB_DATA, TDB_DATA value, void* state) {
  ImageFields fields;
  const std::string_view image(reinterpret_cast<const char*>(value.dptr), value.dsize);
  if (!readFields(image, fields)) return 1;
  auto* sum = static_cast<Sum*>(state);
  sum->touched += touch(fields.name, fields.path, fields.comment);
  ++sum->count;
  return 0;
}

void Tdb::scan(unsigned long records) {
  Database database(path_, 0, TDB_DEFAULT, O_RDONLY);
  Sum sum;
  (void)tdb_traverse_read(database.handle(), visitRecord, &sum);  // the count tells
  require(sum.count == records && sum.touched > 0, "tdb: the scan is not whole");
}

void Tdb::update(Action action, unsigned long number, Form form, Durability durability) {
  const int flags = durability == Durability::kSynced ? TDB_DEFAULT : TDB_NOSYNC;
  Database database(path_, 0, flags, O_RDWR);
  require(tdb_transaction_start(database.handle()) == 0, "tdb: no transaction");
  const std::string key = packedKey(number);
  int rc = 0;
  if (action == Action::kRemove) {
    rc = tdb_delete(database.handle(), dataOf(key));
  } else {
    const std::string image = packedImage(number, form);
    const int how = action == Action::kInsert ? TDB_INSERT : TDB_MODIFY;
    rc = tdb_store(database.handle(), dataOf(key), dataOf(image), how);
  }
  require(rc == 0 && tdb_transaction_commit(database.handle()) == 0, "tdb: the update failed");
}

}  // namespace

std::shared_ptr<Peer> makeTdb(const std::string& path) {
  return std::make_shared<Tdb>(path);
}

}  // namespace vrxbench
