// SPDX-License-Identifier: Apache-2.0
// The verbs, written once for every kind of record: read, find, add, replace, set, update, remove.
//
//     vrx::Profile profile("/etc/vrx/profile");
//     for (const auto& entry : profile.all().value_or({})) std::puts(entry.name.c_str());
//     vrx::Status status = profile.set({"DIAG", "3", "level"});
//     if (status) status = profile.remove("TRACE");
//     if (!status && !status.notFound()) std::puts(status.message().c_str());
//
// Each verb is one call: it locks, does its work and unlocks by itself. Reading never makes a file.
// Updates wait for the lock as long as ossSetLockTimeLimit (platform/osse/file_handle.h) says, by
// default for ever.
//
// Threads: an object, its copies and its cursors are used by one thread at a time, and so are all
// views of one GlobalRegistry. Objects that were constructed one by one share nothing.
// Ownership: arguments are copied or only read during the call; results own what they hold. Moving
// an object copies it: the one moved from is as it was.
// While a cursor is open, every other verb of its registry fails with 0x9000025B.
#pragma once

#include <cassert>
#include <iterator>
#include <utility>
#include <vector>

#include "vrx/status.h"
#include "vrx/stored.h"

namespace vrx {

// How often a change that is lost to other writers is read and made anew.
constexpr int kMaxRounds = 100;

// Reads one record after the other, in the file's order, under a shared lock on the file.
//
//     auto cursor = registry.instances().cursor();
//     while (const auto* instance = cursor.next()) use(*instance);
//     if (!cursor.status()) report(cursor.status());
//
// A cursor keeps its file open on its own: the object that it came from may go first. In builds
// with assertions, a cursor that ends in a failure that nobody has asked for ends the program.
template <class Store>
class Cursor {
 public:
  using Record = Stored<typename Store::Record>;

  explicit Cursor(const Store& store) : scan_(store) { status_ = scan_.open(); }
  ~Cursor() {
    const Status closed = scan_.close();
    assert((asked_ || (status_.ok() && closed.ok())) && "a cursor's status was never looked at");
  }
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;

  // The next record, which lives until the next call; null behind the last one and on a failure.
  const Record* next() {
    if (!status_.ok() || ended_) return nullptr;
    status_ = scan_.next(&record_, &ended_);
    return status_.ok() && !ended_ ? &record_ : nullptr;
  }

  // How reading went so far: success at the end of the file, too.
  const Status& status() const {
    asked_ = true;
    return status_;
  }

  // Where in the file reading stands, in bytes: behind a failure, where the damage begins.
  long long position() const { return scan_.position(); }

  // For range-for; the loop ends on a failure as well: ask status() behind it.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Record;
    using difference_type = std::ptrdiff_t;
    using pointer = const Record*;
    using reference = const Record&;

    explicit Iterator(Cursor* cursor) : cursor_(cursor) { ++*this; }
    Iterator() = default;
    const Record& operator*() const { return *record_; }
    const Record* operator->() const { return record_; }
    Iterator& operator++() {
      record_ = cursor_->next();
      return *this;
    }
    void operator++(int) { ++*this; }
    bool operator==(const Iterator& other) const { return record_ == other.record_; }
    bool operator!=(const Iterator& other) const { return record_ != other.record_; }

   private:
    Cursor* cursor_ = nullptr;
    const Record* record_ = nullptr;
  };
  Iterator begin() { return Iterator(this); }
  Iterator end() { return {}; }

 private:
  typename Store::Scan scan_;
  Record record_{};
  Status status_;
  bool ended_ = false;
  mutable bool asked_ = false;
};

// The records of one kind in one file. `Store` knows their format (vrx/detail).
//
// Statuses that every verb may return, beside those that it names: the path's own (0x900001BA,
// 0x900001F3, 0x900001F4), 0x90000513 the file is missing, 0x90000015 something else than a file
// stands there, 0x9000025B a cursor is open; reading: 0x900001BF, 0x90000272, 0x900001CD,
// 0x90000254; updates: 0x900001FC a value is refused and nothing was written (field() and detail()
// say which and why), 0x900001BC the lock, and those of the store below (genreg/bin/bin_store.h,
// genreg/text/text_store.h). Updates change all or nothing; Status::updateStands() tells the few
// failures that come after the commit.
template <class Store>
class Records {
 public:
  using Record = typename Store::Record;
  using Key = typename Store::Key;
  using StoredRecord = Stored<Record>;
  using StoreType = Store;

  explicit Records(Store store) : store_(std::move(store)) {}

  // The file, as it was chosen.
  const std::string& path() const { return store_.path(); }
  // Whether the path can be used at all; every verb returns the same failure.
  Status status() const { return store_.status(); }
  // The exported object underneath, for what this face leaves out: features, slots, creation modes,
  // the lock. It lives as long as this object; objects of one GlobalRegistry share one.
  typename Store::Native& native() const { return store_.native(); }

  // Reads record by record (Cursor).
  Cursor<Store> cursor() const { return Cursor<Store>(store_); }

  // Calls use(const StoredRecord&) for each record, in the file's order.
  template <class Use>
  [[nodiscard]] Status forEach(Use&& use) const {
    Cursor<Store> cursor(store_);
    while (const StoredRecord* record = cursor.next())
      use(*record);
    return cursor.status();
  }

  // All records, in the file's order.
  Result<std::vector<StoredRecord>> all() const {
    std::vector<StoredRecord> records;
    Status status = forEach([&](const StoredRecord& record) { records.push_back(record); });
    if (!status) return status;
    return records;
  }

  // The first record with this key; notFound() when there is none.
  Result<StoredRecord> find(const Key& key) const {
    return findIf([&](const StoredRecord& record) { return Store::hasKey(record, key); });
  }

  // The first record for which wanted(const StoredRecord&) is true; notFound() when there is none.
  template <class Wanted>
  Result<StoredRecord> findIf(Wanted&& wanted) const {
    Cursor<Store> cursor(store_);
    while (const StoredRecord* record = cursor.next()) {
      if (wanted(*record)) return *record;
    }
    if (!cursor.status()) return cursor.status();
    return Status(genreg::status::no_match, path());
  }

  // What add (`old` null) or replace would refuse about the values, without touching the file.
  [[nodiscard]] Status check(const StoredRecord* old, const Record& next,
                             Loss loss = Loss::refused) const {
    return store_.check(old, next, loss).at(path());
  }

  // Adds a record behind the others; exists() when one has its key. Makes a missing file where the
  // kind of record allows it.
  [[nodiscard]] Status add(const Record& record) {
    Status status = prepare(nullptr, record, Loss::refused);
    if (!status) return status;
    return store_.add(record).at(path());
  }

  // Puts `next` in the place of `old`; notFound() when no record is as `old` was read. Fields that
  // are the same in both keep their bytes, those of later revisions stay. 0x900001F7 when nothing
  // differs; 0x900001F8 when several records are exactly as `old`. A new key must be free, else
  // exists(); that is looked up before the lock is taken, so that who gives a key to two records at
  // once, in two programs, may still have both.
  [[nodiscard]] Status replace(const StoredRecord& old, const Record& next,
                               Loss loss = Loss::refused) {
    Status status = prepare(&old, next, loss);
    if (status) status = requireFreeKey(old, next);
    return status ? store_.replace(old, next).at(path()) : status;
  }

  // As replace, with every record that is exactly as `old`; a new key need not be free.
  [[nodiscard]] Status replaceAll(const StoredRecord& old, const Record& next,
                                  Loss loss = Loss::refused) {
    Status status = prepare(&old, next, loss);
    if (!status) return status;
    const typename Store::SeveralAllowed allowed(native());
    return store_.replace(old, next).at(path());
  }

  // Reads the record with this key, gives it to edit(Record&), and puts the outcome in its place;
  // when somebody else was faster, reads and edits again, at most kMaxRounds times. Success when
  // nothing differs. notFound(); 0x900001F8 when several records have the key; exists() when the
  // edit gives the record a key that another one has.
  template <class Edit>
  [[nodiscard]] Status update(const Key& key, Edit&& edit, Loss loss = Loss::refused) {
    Status status;
    for (int round = 0; round < kMaxRounds; ++round) {
      const Result<StoredRecord> old = findOnly(key);
      if (!old) return old.status();
      status = editOnce(*old, edit, loss);
      if (!status.notFound()) break;
    }
    return status;
  }

  // Adds the record, or makes it the content of the one with its key, whatever that held; fields of
  // later revisions stay. Success when it is so already. 0x900001F8 when several have the key.
  [[nodiscard]] Status set(const Record& record) {
    return setWith(Store::keyOf(record), record, [&](Record& stored) { stored = record; });
  }

  // Removes the record with this key; notFound(). 0x900001F8 when several have it.
  [[nodiscard]] Status remove(const Key& key) {
    const Result<StoredRecord> old = findOnly(key);
    if (!old) return old.status();
    return store_.removeKey(*old).at(path());
  }

  // Removes the record while it is as it was read, else notFound().
  [[nodiscard]] Status remove(const StoredRecord& old) {
    Status status = store_.ready();
    return status ? store_.remove(old).at(path()) : status;
  }

  // Removes every record with this key; notFound() when there is none.
  [[nodiscard]] Status removeAll(const Key& key) {
    const Result<StoredRecord> first = find(key);
    if (!first) return first.status();
    return removeAllLike(*first);
  }

  // Removes every record that has the key of `old`, itself read or not.
  [[nodiscard]] Status removeAllLike(const StoredRecord& old) {
    const typename Store::SeveralAllowed allowed(native());
    return removeLike(old);
  }

  // Removes the record that has the key of `old`, whatever else it holds by now.
  [[nodiscard]] Status removeLike(const StoredRecord& old) {
    Status status = store_.ready();
    return status ? store_.removeKey(old).at(path()) : status;
  }

 protected:
  // Edits the record of this key as update does, or adds `fresh` where there is none.
  template <class Edit>
  [[nodiscard]] Status setWith(const Key& key, const Record& fresh, Edit&& edit) {
    Status status;
    for (int round = 0; round < kMaxRounds; ++round) {
      status = update(key, edit, Loss::accepted);
      if (!status.notFound() && !status.noFile()) return status;
      status = add(fresh);
      if (!status.exists()) return status;
    }
    return status;
  }

  const Store& store() const { return store_; }

 private:
  Status prepare(const StoredRecord* old, const Record& next, Loss loss) const {
    Status status = store_.ready();
    return status ? check(old, next, loss) : status;
  }

  // The library looks at keys when it adds, not when it changes.
  Status requireFreeKey(const StoredRecord& old, const Record& next) const {
    if (Store::hasKey(next, Store::keyOf(old))) return {};
    const Result<StoredRecord> other = find(Store::keyOf(next));
    if (other) return Status(genreg::status::duplicate_record, path());
    return other.status().notFound() ? Status() : other.status();
  }

  template <class Edit>
  Status editOnce(const StoredRecord& old, Edit&& edit, Loss loss) {
    Record next = old;
    edit(next);
    if (Store::same(old, next)) return {};
    return replace(old, next, loss);
  }

  // The one record with this key.
  Result<StoredRecord> findOnly(const Key& key) const {
    Cursor<Store> cursor(store_);
    std::vector<StoredRecord> found;
    for (const StoredRecord& record : cursor) {
      if (Store::hasKey(record, key)) found.push_back(record);
    }
    if (!cursor.status()) return cursor.status();
    if (found.size() > 1) return Status(genreg::status::several_match, path());
    if (found.empty()) return Status(genreg::status::no_match, path());
    return std::move(found.front());
  }

  Store store_;
};

}  // namespace vrx
