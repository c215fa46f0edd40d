// SPDX-License-Identifier: Apache-2.0
// SQLite: a table without row numbers, its primary key the record's key. One statement an
// operation; an update is its own transaction, with synchronous FULL or OFF.
#include <sqlite3.h>

#include "benchmarks/peers.h"

namespace vrxbench {
namespace {

constexpr char kCreate[] =
    "CREATE TABLE instances (service TEXT, version INTEGER, name TEXT, path TEXT, usage TEXT,"
    " boot INTEGER, comment TEXT, PRIMARY KEY (service, version, name)) WITHOUT ROWID";
constexpr char kInsert[] = "INSERT INTO instances VALUES (?1, ?2, ?3, ?4, 'production', 1, ?5)";
constexpr char kUpdate[] =
    "UPDATE instances SET path = ?4, usage = 'production', boot = 1, comment = ?5"
    " WHERE service = ?1 AND version = ?2 AND name = ?3";
constexpr char kDelete[] =
    "DELETE FROM instances WHERE service = ?1 AND version = ?2 AND name = ?3";
constexpr char kSelect[] =
    "SELECT path, usage, boot, comment FROM instances"
    " WHERE service = ?1 AND version = ?2 AND name = ?3";
constexpr char kScan[] =
    "SELECT name, path, comment FROM instances WHERE service = ?1 AND version = ?2";

// Parameters of the statements, by number.
enum Parameter { kServiceParameter = 1, kVersionParameter, kName, kPath, kComment };

class Database {
 public:
  explicit Database(const std::string& path) {
    require(sqlite3_open(path.c_str(), &handle_) == SQLITE_OK, "sqlite: " + path);
  }
  ~Database() { require(sqlite3_close(handle_) == SQLITE_OK, "sqlite: not closed"); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void execute(const char* sql) {
    require(sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
  }
  sqlite3* handle() { return handle_; }

 private:
  sqlite3* handle_ = nullptr;
};

class Statement {
 public:
  Statement(Database& database, const char* sql) : database_(database) {
    require(sqlite3_prepare_v2(database.handle(), sql, -1, &handle_, nullptr) == SQLITE_OK, sql);
    text(kServiceParameter, kService);
    const auto version = static_cast<sqlite3_int64>(kVersion);
    require(sqlite3_bind_int64(handle_, kVersionParameter, version) == SQLITE_OK, sql);
  }
  ~Statement() { sqlite3_finalize(handle_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void text(int parameter, const std::string& value) {
    const int size = static_cast<int>(value.size());
    const int rc = sqlite3_bind_text(handle_, parameter, value.data(), size, SQLITE_TRANSIENT);
    require(rc == SQLITE_OK, "sqlite: not bound");
  }
  void record(unsigned long number, Form form) {
    text(kName, instanceName(number));
    text(kPath, instancePath(number));
    text(kComment, comment(form));
  }
  bool step() {
    const int rc = sqlite3_step(handle_);
    require(rc == SQLITE_ROW || rc == SQLITE_DONE, sqlite3_errmsg(database_.handle()));
    return rc == SQLITE_ROW;
  }
  void reset() { require(sqlite3_reset(handle_) == SQLITE_OK, "sqlite: not reset"); }
  std::string_view column(int number) {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(handle_, number));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(handle_, number))};
  }

 private:
  Database& database_;
  sqlite3_stmt* handle_ = nullptr;
};

class Sqlite : public Peer {
 public:
  Sqlite(std::string path, SqliteJournal journal) : path_(std::move(path)), journal_(journal) {}

  void fill(unsigned long records) override;
  void expectFound(const Wanted& wanted) override;
  void expectMissing(const Wanted& wanted) override;
  void scan(unsigned long records) override;
  void update(Action action, unsigned long number, Form form, Durability durability) override;

 private:
  const std::string path_;
  const SqliteJournal journal_;
};

void Sqlite::fill(unsigned long records) {
  Database database(path_);
  const bool ahead = journal_ == SqliteJournal::kWriteAhead;
  database.execute(ahead ? "PRAGMA journal_mode = WAL" : "PRAGMA journal_mode = DELETE");
  database.execute("PRAGMA synchronous = OFF");
  database.execute(kCreate);
  database.execute("BEGIN");
  Statement insert(database, kInsert);
  for (unsigned long number = 0; number < records; ++number) {
    insert.record(number, Form::kFirst);
    (void)insert.step();  // an insertion has no rows
    insert.reset();
  }
  database.execute("COMMIT");
}

void Sqlite::expectFound(const Wanted& wanted) {
  Database database(path_);
  Statement select(database, kSelect);
  select.text(kName, wanted.name);
  require(select.step() && select.column(0) == wanted.path, "sqlite: not found");
}

void Sqlite::expectMissing(const Wanted& wanted) {
  Database database(path_);
  Statement select(database, kSelect);
  select.text(kName, wanted.name);
  require(!select.step(), "sqlite: found what is missing");
}

void Sqlite::scan(unsigned long records) {
  Database database(path_);
  Statement select(database, kScan);
  unsigned long count = 0;
  unsigned long sum = 0;
  while (select.step()) {
    sum += touch(select.column(0), select.column(1), select.column(2));
    ++count;
  }
  require(count == records && sum > 0, "sqlite: the scan is not whole");
}

const char* sqlOf(Action action) {
  switch (action) {
    case Action::kInsert:
      return kInsert;
    case Action::kChange:
      return kUpdate;
    case Action::kRemove:
      break;
  }
  return kDelete;
}

void Sqlite::update(Action action, unsigned long number, Form form, Durability durability) {
  Database database(path_);
  const bool synced = durability == Durability::kSynced;
  database.execute(synced ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = OFF");
  Statement statement(database, sqlOf(action));
  statement.text(kName, instanceName(number));
  if (action != Action::kRemove) statement.record(number, form);
  (void)statement.step();  // an update has no rows; the number of changes tells
  require(sqlite3_changes(database.handle()) == 1, "sqlite: nothing changed");
}

}  // namespace

std::shared_ptr<Peer> makeSqlite(const std::string& path, SqliteJournal journal) {
  return std::make_shared<Sqlite>(path, journal);
}

}  // namespace vrxbench
