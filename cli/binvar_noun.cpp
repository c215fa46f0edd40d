// SPDX-License-Identifier: Apache-2.0
// The noun `binvar`: the variables of a binary file, and the store that keeps them.
#include <algorithm>
#include <cstring>
#include <limits>

#include "cli/file_nouns.h"
#include "cli/text_store.h"

namespace cli {

namespace {

namespace status = genreg::status;

enum BinvarField : std::size_t { kName, kNumber, kComment };

constexpr std::size_t kMaxText = sizeof GenRegBinVarValRecord::variable - 1;

std::vector<Field> binvarFields() {
  return {
      {"name", "NAME", Kind::text, kMaxText, KeyPart::name, Presence::required},
      {"value", "VALUE", Kind::integer, 0, KeyPart::none, Presence::required},
      {"comment", "COMMENT", Kind::text, kMaxText, KeyPart::none, Presence::optional},
  };
}

template <std::size_t N>
std::string textIn(const char (&array)[N]) {
  return {array, strnlen(array, N)};
}

template <std::size_t N>
void putText(const Value& value, char (&array)[N]) {
  const std::string text = valueText(value);
  std::memset(array, 0, N);
  std::memcpy(array, text.data(), std::min(text.size(), N - 1));  // parseValue has seen to it
}

// A record without a comment holds an empty one.
Row rowOf(const Noun& noun, const GenRegBinVarValRecord& record) {
  const std::string comment = textIn(record.comment);
  Row row;
  row.values = {textIn(record.variable), std::int64_t{record.value},
                comment.empty() ? Value{} : Value(comment)};
  row.key = keyOf(noun, row);
  return row;
}

// Fields that are not given another value keep their bytes, those behind a terminator too.
void putFields(const Row* old, const Row& row, GenRegBinVarValRecord* record) {
  const auto differs = [&](std::size_t i) {
    return old == nullptr || !(old->values[i] == row.values[i]);
  };
  if (differs(kName)) putText(row.values[kName], record->variable);
  if (differs(kComment)) putText(row.values[kComment], record->comment);
  record->value = static_cast<std::int32_t>(std::get<std::int64_t>(row.values[kNumber]));
}

GenRegBinVarValRecord imageOf(const Record& record) {
  GenRegBinVarValRecord image{};
  std::memcpy(&image, record.image.data(), std::min(record.image.size(), sizeof image));
  return image;
}

class BinvarStore : public Store {
 public:
  BinvarStore(const Noun& noun, const Arguments& arguments, const std::string& path)
      : noun_(noun), all_(arguments.all), path_(path), registry_(path, &opened_) {
    requirePath(path, opened_);
    // Duplicates are accepted on request only: an Add then looks for one while it holds the lock.
    if (!all_) (void)registry_.unsetFeature(kGenRegDuplicates);  // the format has it set
  }

  std::string path() const override { return path_; }
  std::string lockPath() const override { return registry_.lockPath; }

  [[nodiscard]] GenRegStatus readAll(std::vector<Record>* records, long long* offset) override {
    GenRegStatus rc = registry_.OpenScan();
    while (rc == status::ok) {
      rc = registry_.getRegFilePosition(offset);
      if (rc == status::ok) rc = readNext(records);
    }
    const GenRegStatus closed = registry_.CloseScan();
    return rc == status::end_of_registry ? closed : rc;
  }

  [[nodiscard]] GenRegStatus add(const Row& row) override {
    GenRegBinVarValRecord record{};
    putFields(nullptr, row, &record);
    return genreg::statusOf(registry_.Add(kBinVarValVariable, &record));
  }

  [[nodiscard]] GenRegStatus change(const Record& old, const Row& row) override {
    GenRegBinVarValRecord key = imageOf(old);
    GenRegBinVarValRecord record = key;
    putFields(&old.row, row, &record);
    return genreg::statusOf(registry_.Change(kWholeRecord, &key, &record));
  }

  [[nodiscard]] GenRegStatus remove(const Record& old) override {
    GenRegBinVarValRecord key = imageOf(old);
    const unsigned long long mask = all_ ? kBinVarValVariable : kWholeRecord;
    return genreg::statusOf(registry_.Delete(mask, &key));
  }

  [[nodiscard]] GenRegStatus probeLock() override {
    const GenRegStatus rc = registry_.Lock(kGenRegLockExclusive | kGenRegLockNoWait, 0);
    return rc == status::ok ? registry_.UnLock() : rc;
  }

 private:
  GenRegStatus readNext(std::vector<Record>* records) {
    GenRegBinVarValRecord anything{};
    GenRegBinVarValRecord found{};
    const GenRegStatus rc = genreg::statusOf(registry_.GetNext(0, &anything, &found));
    if (rc != status::ok) return rc;
    Record record;
    record.row = rowOf(noun_, found);
    record.image.assign(reinterpret_cast<const char*>(&found), sizeof found);
    records->push_back(std::move(record));
    return rc;
  }

  const Noun& noun_;
  const bool all_;
  std::string path_;  // as it was chosen; an update may follow a link from there
  unsigned int opened_ = 0;
  ExactBinVarVal registry_;
};

std::unique_ptr<Store> openBinvar(const Noun& noun, const Arguments& arguments,
                                  const std::string& path, SideEffects) {
  return std::make_unique<BinvarStore>(noun, arguments, chosenFile(noun, arguments, nullptr, path));
}

}  // namespace

Noun binvarNoun() {
  Noun noun = {"binvar",      "the variables of a binary file, named by -f",
               "NAME",        "name,value,comment",
               KeyPart::name, binvarFields(),
               &openBinvar,   kAcceptsFile | kAcceptsAll};
  noun.missingFile = MissingFile::made;
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
