// SPDX-License-Identifier: Apache-2.0
// The store of every noun: rows out of the records of the library's C++ face (vrx/vrx.h) and back.
//
// Registry is one of the face's registries. Not here: formats, comparing, refusing, locking, which
// are the face's; the choice of the file and what is particular about a noun (x_noun.cpp).
#pragma once

#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cli/arguments.h"
#include "cli/noun.h"
#include "genreg/registry.h"
#include "vrx/records.h"

namespace cli {

// The file that -f, or else the noun's default, names; `path` wins when it is not empty. Throws
// Failure (usage) when there is none.
std::string chosenFile(const Noun& noun, const Arguments& arguments, const char* fallback,
                       const std::string& path);

// Throws Failure (noRegistry) when the status says that a path is none.
void requirePath(const vrx::Status& status);

// Throws Failure (refused) when the status refuses a value before anything was written.
void requireAccepted(const Noun& noun, const Row& row, const vrx::Status& status);
// The failures of a row that no line can hold, and of text that would go with a line.
[[noreturn]] void refuseLine(const Noun& noun, const Row& row, const vrx::Status& refusal);
[[noreturn]] void refuseLoss(const Noun& noun, const Row& row, const std::string& lost);

// A field of a value as a row has it. A plain text that is empty is an absent field unless it is
// the name or may be empty.
Value valueOf(const Field& field, const std::string& text);
Value valueOf(const Field& field, const std::vector<std::string>& texts);
inline Value valueOf(const Field&, Version version) {
  return version;
}
inline Value valueOf(const Field&, std::uint16_t port) {
  return std::uint64_t{port};
}
inline Value valueOf(const Field&, std::int32_t number) {
  return std::int64_t{number};
}
inline Value valueOf(const Field&, const std::optional<std::string>& text) {
  return text ? Value(*text) : Value{};
}
inline Value valueOf(const Field&, const std::optional<bool>& yes) {
  return yes ? Value(*yes) : Value{};
}
template <class Number>
Value valueOf(const Field&, const std::optional<Number>& number) {
  return number ? Value(std::uint64_t{*number}) : Value{};
}

// The way back; an absent value empties the field. Values fit: parseValue has seen to it.
void setField(const Value& value, std::string* text);
void setField(const Value& value, std::vector<std::string>* texts);
void setField(const Value& value, std::int32_t* number);
void setField(const Value& value, std::optional<std::string>* text);
void setField(const Value& value, std::optional<bool>* yes);
inline void setField(const Value& value, Version* version) {
  *version = isAbsent(value) ? Version{} : std::get<Version>(value);
}
inline void setField(const Value& value, std::uint16_t* port) {
  *port = isAbsent(value) ? std::uint16_t{0}
                          : static_cast<std::uint16_t>(std::get<std::uint64_t>(value));
}
template <class Number>
void setField(const Value& value, std::optional<Number>* number) {
  number->reset();
  if (!isAbsent(value)) *number = static_cast<Number>(std::get<std::uint64_t>(value));
}

// What a noun knows about its records beyond their fields; overloaded where there is something.

// Completes the row of a record as it was read.
template <class T>
void completeRow(const T&, Row*) {}
// Makes a record as it was read differ from `next` where the rows do, though the values do not.
template <class T, class Next>
void tellApart(const Row&, const Row&, const Next&, T*) {}
// The bytes by which records are the same to the byte, and the number of a record's line.
inline std::string bytesOf(const vrx::LineImage& image) {
  return image.logical;
}
inline std::string bytesOf(const vrx::GlobalImage& image) {
  return {reinterpret_cast<const char*>(&image.record), sizeof image.record};
}
template <class Plain>
std::string bytesOf(const Plain& image) {
  return {reinterpret_cast<const char*>(&image), sizeof image};
}
inline std::size_t lineOf(const vrx::LineImage& image) {
  return image.line;
}
template <class Other>
std::size_t lineOf(const Other&) {
  return 0;
}

template <class Registry>
class FaceStore : public Store {
 public:
  using Item = typename Registry::Record;
  using Stored = typename Registry::StoredRecord;

  FaceStore(const Noun& noun, const Arguments& arguments, Registry registry)
      : noun_(noun), all_(arguments.all), registry_(std::move(registry)) {}

  std::string path() const override { return registry_.path(); }
  std::string lockPath() const override { return registry_.native().lockPath; }

  [[nodiscard]] vrx::Status read(const RowVisitor& wanted, std::vector<Record>* records,
                                 long long* offset) override {
    auto cursor = registry_.cursor();
    while (const Stored* stored = cursor.next()) {
      Row row = rowOf(*stored);
      if (wanted(row)) records->push_back(recordOf(*stored, std::move(row)));
    }
    *offset = cursor.position();
    return cursor.status();
  }

  [[nodiscard]] vrx::Status add(const Row& row) override { return registry_.add(itemOf(row)); }

  // check() has judged what would be lost.
  [[nodiscard]] vrx::Status change(const Record& old, const Row& row) override {
    const Item next = itemOf(row);
    Stored was = storedOf(old);
    tellApart(old.row, row, next, &was);
    return all_ ? registry_.replaceAll(was, next, vrx::Loss::accepted)
                : registry_.replace(was, next, vrx::Loss::accepted);
  }

  [[nodiscard]] vrx::Status remove(const Record& old) override {
    const Stored& was = storedOf(old);
    if (all_) return registry_.removeAllLike(was);
    return kKeysAreUnique ? registry_.removeLike(was) : registry_.remove(was);
  }

  [[nodiscard]] GenRegStatus probeLock() override {
    auto& native = registry_.native();
    const GenRegStatus rc = native.Lock(kProbe, 0);
    return rc == genreg::status::ok ? native.UnLock() : rc;
  }

  GenRegFile& file() override { return registry_.native(); }

 protected:
  static const Stored& storedOf(const Record& record) {
    return static_cast<const Kept&>(*record.kept).stored;
  }

  Item itemOf(const Row& row) const {
    Item item;
    std::size_t i = 0;
    Item::visitFields(item, [&](const char*, auto& field) { setField(row.values[i++], &field); });
    return item;
  }

  const Noun& noun() const { return noun_; }
  const Registry& registry() const { return registry_; }

 private:
  // Records of the global registry have a key each, which is all that removing them goes by. Its
  // folder, unlike those of other files, is made when it is missing.
  static constexpr bool kKeysAreUnique = std::is_same_v<typename Item::Image, vrx::GlobalImage>;
  static constexpr unsigned kProbe =
      kGenRegLockExclusive | kGenRegLockNoWait | (kKeysAreUnique ? kGenRegLockCreateDirectory : 0u);

  struct Kept : KeptRecord {
    explicit Kept(const Stored& read) : stored(read) {}
    std::string bytes() const override { return bytesOf(stored.image); }
    const Stored stored;
  };

  Row rowOf(const Stored& stored) const {
    Row row;
    row.values.reserve(noun_.fields.size());
    Item::visitFields(stored, [&](const char*, const auto& field) {
      row.values.push_back(valueOf(noun_.fields[row.values.size()], field));
    });
    row.values.resize(noun_.fields.size());
    completeRow(stored, &row);
    row.key = keyOf(noun_, row);
    return row;
  }

  static Record recordOf(const Stored& stored, Row row) {
    Record record;
    record.row = std::move(row);
    record.line = lineOf(stored.image);
    record.kept = std::make_shared<const Kept>(stored);
    return record;
  }

  const Noun& noun_;
  const bool all_;
  Registry registry_;
};

// The same where records are lines.
template <class Registry>
class LineStore : public FaceStore<Registry> {
 public:
  using Base = FaceStore<Registry>;

  LineStore(const Noun& noun, const Arguments& arguments, Registry registry)
      : Base(noun, arguments, std::move(registry)), replaces_(arguments.replace) {}

  void check(const Record* old, const Row& row) const override {
    const auto* was = old == nullptr ? nullptr : &Base::storedOf(*old);
    const auto next = this->itemOf(row);
    const vrx::Status status = this->registry().check(was, next, vrx::Loss::accepted);
    requireAccepted(this->noun(), row, status);
    if (!status) refuseLine(this->noun(), row, status);
    const std::string lost = was == nullptr || replaces_ ? "" : Registry::lostText(*was, next);
    if (!lost.empty()) refuseLoss(this->noun(), row, lost);
  }

  [[nodiscard]] vrx::Status remove(const Record& old) override {
    vrx::Status status = Base::remove(old);
    requireAccepted(this->noun(), old.row, status);
    return status;
  }

  [[nodiscard]] vrx::Status readLines(std::vector<vrx::Line>* lines) override {
    auto read = this->registry().lines();
    if (!read) return read.status();
    *lines = std::move(*read);
    return {};
  }

 private:
  const bool replaces_;
};

// Opens the file of a noun at the path that was chosen for it.
template <template <class> class StoreType, class Registry>
std::unique_ptr<Store> openFile(const Noun& noun, const Arguments& arguments,
                                const std::string& path) {
  Registry registry(path);
  requirePath(registry.status());
  return std::make_unique<StoreType<Registry>>(noun, arguments, std::move(registry));
}

}  // namespace cli
