// SPDX-License-Identifier: Apache-2.0
// The formats' records as words and lines of text, and their objects.
#include "tests/support/any_registry.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "genreg/formats/bin_var_val.h"
#include "globalreg/global_reg.h"
#include "tests/support/record_text.h"
#include "tests/support/text_lines.h"

namespace vrxtest {
namespace {

using Words = std::vector<std::string>;

// --- objects

template <class Registry>
class RegistryOf : public AnyRegistry {
 public:
  explicit RegistryOf(char* path) : registry_(path, &constructed_) {}
  unsigned constructed() const override { return constructed_; }
  unsigned update(unsigned mode, unsigned long long mask, void* key, void* record) override {
    if (mode == kGenRegAdd) return static_cast<unsigned>(registry_.Add(mask, record));
    if (mode == kGenRegDelete) return static_cast<unsigned>(registry_.Delete(mask, key));
    return static_cast<unsigned>(registry_.Change(mask, key, record));
  }
  unsigned openScan() override { return static_cast<unsigned>(registry_.OpenScan()); }
  unsigned next(void* key, void* result) override {
    return static_cast<unsigned>(registry_.GetNext(0, key, result));
  }
  unsigned closeScan() override { return static_cast<unsigned>(registry_.CloseScan()); }

 private:
  unsigned constructed_ = 0;
  Registry registry_;
};

// The two whose constructors are not like the others'.
struct GlobalRegistry : GlobalReg {
  GlobalRegistry(char*, unsigned*) {}
};
struct InitTable : GenRegInitTab {
  InitTable(char* path, unsigned* status) { *status = setPaths(path); }
};

template <class Registry>
void useOne(char* path, const std::function<void(AnyRegistry&)>& work) {
  RegistryOf<Registry> registry(path);
  work(registry);
}

template <class Record>
std::shared_ptr<void> blankOne() {
  return std::make_shared<Record>();
}

// A record that lies within the object that owns its strings.
template <class Owner, class... Fields>
std::shared_ptr<void> ownedRecord(Fields&&... fields) {
  const auto owner = std::make_shared<Owner>(std::forward<Fields>(fields)...);
  return std::shared_ptr<void>(owner, owner->record());
}

// --- words

// NAME=VALUE words, each of which must be asked for.
class Values {
 public:
  explicit Values(const Words& words) : left_(words) {}

  Text take(const std::string& name) {
    for (auto at = left_.begin(); at != left_.end(); ++at) {
      if (at->compare(0, name.size() + 1, name + "=") != 0) continue;
      Text value = at->substr(name.size() + 1);
      left_.erase(at);
      return value;
    }
    return {};
  }

  int takeNumber(const std::string& name) {
    unsigned long long number = 0;
    const Text value = take(name);
    if (value && (!parseNumber(*value, &number) || number > 0x7FFFFFFF)) {
      throw std::runtime_error("bad number " + *value);
    }
    return static_cast<int>(number);
  }

  void finish() const {
    if (!left_.empty()) throw std::runtime_error("no such field: " + left_[0]);
  }

 private:
  Words left_;
};

std::shared_ptr<void> parseGlobal(const Words& words) {
  auto record = std::make_shared<GlobalRegRecord>();
  std::string problem;
  if (!parseRecord(words, record.get(), &problem)) throw std::runtime_error(problem);
  return record;
}

std::shared_ptr<void> parseProfile(const Words& words) {
  Values values(words);
  const Text variable = values.take("variable");
  const Text value = values.take("value");
  const Text comment = values.take("comment");
  values.finish();
  return ownedRecord<ProfileLine>(variable, value, comment);
}

std::shared_ptr<void> parseService(const Words& words) {
  Values values(words);
  const Text name = values.take("name");
  const int port = values.takeNumber("port");
  const Text protocol = values.take("protocol");
  const Text comment = values.take("comment");
  std::vector<std::string> aliases;
  for (Text alias = values.take("alias"); alias; alias = values.take("alias"))
    aliases.push_back(*alias);
  values.finish();
  return ownedRecord<ServiceLine>(name, port, protocol, aliases, comment);
}

std::shared_ptr<void> parseInit(const Words& words) {
  Values values(words);
  const Text id = values.take("id");
  const Text runlevel = values.take("runlevel");
  const Text action = values.take("action");
  const Text command = values.take("command");
  const Text comment = values.take("comment");
  values.finish();
  return ownedRecord<InitLine>(id, runlevel, action, command, comment);
}

void copyText(const Text& from, char (&to)[16]) {
  if (!from) return;
  if (from->size() >= sizeof to) throw std::runtime_error("too long: " + *from);
  std::memcpy(to, from->c_str(), from->size() + 1);
}

std::shared_ptr<void> parseBinVar(const Words& words) {
  Values values(words);
  auto record = std::make_shared<GenRegBinVarValRecord>();
  copyText(values.take("variable"), record->variable);
  record->value = values.takeNumber("value");
  copyText(values.take("comment"), record->comment);
  values.finish();
  return record;
}

// --- lines

void printField(const char* name, const char* value) {
  if (value == nullptr) return;
  std::printf("\t%s=", name);
  printText(value, std::strlen(value));
}

void printGlobal(const void* record) {
  printRecord(*static_cast<const GlobalRegRecord*>(record));
}

void printProfile(const void* record) {
  const auto& line = *static_cast<const GenRegVarValRecord*>(record);
  std::printf("profile\tflags=%u", line.contents);
  printField("variable", line.variable);
  printField("value", line.value);
  printField("comment", line.comment);
  std::printf("\n");
}

void printService(const void* record) {
  const auto& line = *static_cast<const GenRegServicesRecord*>(record);
  std::printf("services\tflags=%u", line.flags);
  printField("name", line.name);
  if (line.port != 0) std::printf("\tport=%u", ntohs(static_cast<std::uint16_t>(line.port)));
  printField("protocol", line.protocol);
  for (char** alias = line.aliases; alias != nullptr && *alias != nullptr; ++alias)
    printField("alias", *alias);
  printField("comment", line.comment);
  std::printf("\n");
}

void printInit(const void* record) {
  const auto& line = *static_cast<const GenRegInitTabRecord*>(record);
  std::printf("inittab\tflags=%u", line.flags);
  printField("id", line.id);
  printField("runlevel", line.runlevel);
  printField("action", line.action);
  printField("command", line.command);
  printField("comment", line.comment);
  std::printf("\n");
}

void printBinVar(const void* record) {
  const auto& stored = *static_cast<const GenRegBinVarValRecord*>(record);
  std::printf("binvar\tvariable=");
  printText(stored.variable, sizeof stored.variable);
  std::printf("\tvalue=%d\tcomment=", stored.value);
  printText(stored.comment, sizeof stored.comment);
  std::printf("\n");
}

constexpr Format kFormats[] = {
    {"global", "instance|service|variable NAME=VALUE...", parseGlobal, blankOne<GlobalRegRecord>,
     printGlobal, useOne<GlobalRegistry>},
    {"profile", "[variable=] [value=] [comment=]", parseProfile, blankOne<GenRegVarValRecord>,
     printProfile, useOne<GenRegVarVal>},
    {"services", "[name=] [port=] [protocol=] [comment=] [alias=]...", parseService,
     blankOne<GenRegServicesRecord>, printService, useOne<GenRegServices>},
    {"inittab", "[id=] [runlevel=] [action=] [command=] [comment=]", parseInit,
     blankOne<GenRegInitTabRecord>, printInit, useOne<InitTable>},
    {"binvar", "[variable=] [value=] [comment=]", parseBinVar, blankOne<GenRegBinVarValRecord>,
     printBinVar, useOne<GenRegBinVarVal>},
};

}  // namespace

const Format* findFormat(const std::string& name) {
  for (const Format& format : kFormats) {
    if (name == format.name) return &format;
  }
  return nullptr;
}

void visitFormats(void (*visit)(const Format& format)) {
  for (const Format& format : kFormats)
    visit(format);
}

}  // namespace vrxtest
