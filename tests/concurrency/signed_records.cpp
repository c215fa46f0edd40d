// SPDX-License-Identifier: Apache-2.0
// The formats' words, the checksum over them, and the profile that locks nobody out.
#include "tests/concurrency/signed_records.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "genreg/formats/bin_var_val.h"
#include "genreg/formats/init_tab.h"
#include "genreg/formats/services.h"
#include "genreg/formats/var_val.h"
#include "globalreg/record.h"
#include "tests/support/record_text.h"

namespace vrxtest {
namespace {

using std::string;
using Words = std::vector<string>;

string nameOf(const Claim& claim) {
  return "w" + std::to_string(claim.writer) + "n" + std::to_string(claim.slot);
}

// Reads the number that *text begins with, and moves *text behind it.
bool takeNumber(const char** text, unsigned* number) {
  char* end = nullptr;
  *number = static_cast<unsigned>(std::strtoul(*text, &end, 10));
  const bool any = end != *text;
  *text = end;
  return any;
}

bool readName(const string& word, Claim* claim) {
  const char* text = word.c_str() + word.find('=') + 1;
  if (*text++ != 'w' || !takeNumber(&text, &claim->writer)) return false;
  return *text++ == 'n' && takeNumber(&text, &claim->slot);
}

// The number in which a word begins after its name and `prefix`.
bool readSequence(const string& word, const char* prefix, Claim* claim) {
  const std::size_t at = word.find('=') + 1 + std::strlen(prefix);
  if (at >= word.size()) return false;
  const char* text = word.c_str() + at;
  return takeNumber(&text, &claim->sequence);
}

string padding(const Claim& claim) {
  return string((claim.sequence * 7 + claim.slot * 31) % 60, 'x');
}

// The checksum's text, 8 digits: FNV-1a over the words and their ends.
string signOf(const Words& words) {
  std::uint32_t sum = 0x811C9DC5U;
  for (const string& word : words) {
    for (const char byte : word + '\n') {
      sum = (sum ^ static_cast<unsigned char>(byte)) * 0x01000193U;
    }
  }
  char text[9];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(sum));
  return text;
}

string textOf(const char* text) {
  return text != nullptr ? text : "";
}

// Two of the formats lay a comment out behind "# ", and give it back with the blank.
string withoutBlank(const string& comment) {
  return comment[0] == ' ' ? comment.substr(1) : comment;
}

template <std::size_t width>
string textIn(const char (&text)[width]) {
  return {text, strnlen(text, width)};
}

template <unsigned long long mask>
unsigned long long always(const Claim&) {
  return mask;
}

// The name stands in the first word, the sequence number in the second.
bool claimedInFront(const Words& fields, Claim* claim) {
  return fields.size() >= 2 && readName(fields[0], claim) && readSequence(fields[1], "", claim);
}

// --- global: instances and variables by turns

bool isInstance(const Claim& claim) {
  return claim.slot % 2 == 0;
}

unsigned long long globalMask(const Claim& claim) {
  if (isInstance(claim)) return kInstanceKey;
  return kVariableKey;
}

Words globalWords(const Claim& claim) {
  const string number = std::to_string(claim.sequence);
  if (!isInstance(claim)) {
    return {"variable", "Service=CopyOne", "Variable=" + nameOf(claim),
            "Value=" + number + padding(claim)};
  }
  return {"instance",
          "Service=CopyOne",
          "VersionCode=844429225099271",
          "InstanceName=" + nameOf(claim),
          "InstancePath=/" + number + padding(claim),
          "StartAtBoot=" + std::to_string(claim.sequence % 2)};
}

Words globalFields(const void* record, string* comment) {
  const string line = recordText(*static_cast<const GlobalRegRecord*>(record)) + "\t";
  Words words;
  for (std::size_t from = 0, to = 0; (to = line.find('\t', from)) != string::npos; from = to + 1) {
    const string word = line.substr(from, to - from);
    const string name = word.substr(0, word.find('='));
    if (name == "mask" || name == "missing" || name == "checksum") continue;
    if (name != "Comment") {
      words.push_back(word);
    } else {
      *comment = word.substr(name.size() + 1);
    }
  }
  return words;
}

bool globalClaimed(const Words& fields, Claim* claim) {
  if (fields.size() == 4) {
    return readName(fields[2], claim) && readSequence(fields[3], "", claim);
  }
  return fields.size() == 6 && readName(fields[3], claim) && readSequence(fields[4], "/", claim);
}

// --- the text formats

Words profileWords(const Claim& claim) {
  return {"variable=" + nameOf(claim), "value=" + std::to_string(claim.sequence) + padding(claim)};
}

Words profileFields(const void* record, string* comment) {
  const auto& line = *static_cast<const GenRegVarValRecord*>(record);
  *comment = withoutBlank(textOf(line.comment));
  return {"variable=" + textOf(line.variable), "value=" + textOf(line.value)};
}

Words servicesWords(const Claim& claim) {
  Words words = {"name=" + nameOf(claim), "port=" + std::to_string(claim.sequence), "protocol=tcp"};
  for (unsigned i = 0; i < claim.sequence % 4; ++i)
    words.push_back("alias=" + nameOf(claim) + "a" + std::to_string(claim.sequence + i));
  return words;
}

Words servicesFields(const void* record, string* comment) {
  const auto& line = *static_cast<const GenRegServicesRecord*>(record);
  *comment = withoutBlank(textOf(line.comment));
  const unsigned port = ntohs(static_cast<std::uint16_t>(line.port));
  Words words = {"name=" + textOf(line.name), "port=" + std::to_string(port),
                 "protocol=" + textOf(line.protocol)};
  for (char** alias = line.aliases; alias != nullptr && *alias != nullptr; ++alias)
    words.push_back("alias=" + string(*alias));
  return words;
}

Words initWords(const Claim& claim) {
  return {"id=" + nameOf(claim), "command=" + std::to_string(claim.sequence) + padding(claim),
          "runlevel=" + std::to_string(claim.sequence % 7), "action=once"};
}

Words initFields(const void* record, string* comment) {
  const auto& line = *static_cast<const GenRegInitTabRecord*>(record);
  *comment = textOf(line.comment);
  return {"id=" + textOf(line.id), "command=" + textOf(line.command),
          "runlevel=" + textOf(line.runlevel), "action=" + textOf(line.action)};
}

// --- binvar

Words binVarWords(const Claim& claim) {
  return {"variable=" + nameOf(claim), "value=" + std::to_string(claim.sequence)};
}

Words binVarFields(const void* record, string* comment) {
  const auto& stored = *static_cast<const GenRegBinVarValRecord*>(record);
  *comment = textIn(stored.comment);
  return {"variable=" + textIn(stored.variable), "value=" + std::to_string(stored.value)};
}

// --- the profile that locks nobody out

void setPath(char (&path)[kGenRegPathSize], const string& text) {
  std::snprintf(path, sizeof path, "%s", text.c_str());
}

// Lets the others run between the reading of the old contents and the commit of the new ones.
int matchSlowly(unsigned long long mask, void* stored, void* given) {
  (void)usleep(20);  // it is the turn of another that counts, not the time
  return GenRegVarVal::MatchRecord(mask, stored, given);
}

// With companions of its own it does not even meet the others' temporary copies, at which most
// updates would fail.
class Unserialised : public AnyRegistry {
 public:
  explicit Unserialised(const char* path) : registry_(path, &constructed_) {
    const string own = string(path) + "." + std::to_string(getpid());
    setPath(registry_.lockPath, own + ".lock");
    setPath(registry_.temporaryPath, own + ".tmp");
    setPath(registry_.corruptPath, own + ".cor");
    setPath(registry_.backupPath, own + ".bkp");
    registry_.matchRecord = matchSlowly;
  }
  unsigned constructed() const override { return constructed_; }
  unsigned update(unsigned mode, unsigned long long mask, void* key, void* record) override {
    if (mode == kGenRegAdd) return static_cast<unsigned>(registry_.Add(mask, record));
    if (mode == kGenRegDelete) return static_cast<unsigned>(registry_.Delete(mask, key));
    return static_cast<unsigned>(registry_.Change(mask, key, record));
  }
  unsigned openScan() override { return registry_.OpenScan(); }
  unsigned next(void* key, void* result) override {
    return static_cast<unsigned>(registry_.GetNext(0, key, result));
  }
  unsigned closeScan() override { return registry_.CloseScan(); }

 private:
  unsigned constructed_ = 0;
  GenRegVarVal registry_;
};

void useUnserialised(char* path, const std::function<void(AnyRegistry&)>& work) {
  Unserialised registry(path);
  work(registry);
}

}  // namespace

std::shared_ptr<void> SignedFormat::record(const Claim& claim) const {
  Words all = words(claim);
  const bool capital = all[0].find('=') == string::npos;  // a type stands in front of them
  all.push_back((capital ? "Comment=" : "comment=") + signOf(all));
  return findFormat(name)->parse(all);
}

std::shared_ptr<void> SignedFormat::key(const Claim& claim) const {
  return findFormat(name)->parse(words(claim));
}

bool SignedFormat::read(const void* record, Claim* claim) const {
  string comment;
  const Words found = fields(record, &comment);
  return signOf(found) == comment && claimed(found, claim);
}

const std::vector<SignedFormat>& signedFormats() {
  static const std::vector<SignedFormat> formats = {
      {"global", globalMask, globalWords, globalFields, globalClaimed, findFormat("global")->use},
      {"profile", always<kVarValVariable>, profileWords, profileFields, claimedInFront,
       findFormat("profile")->use},
      {"services", always<kServicesName>, servicesWords, servicesFields, claimedInFront,
       findFormat("services")->use},
      {"inittab", always<kInitTabId>, initWords, initFields, claimedInFront,
       findFormat("inittab")->use},
      {"binvar", always<kBinVarValVariable>, binVarWords, binVarFields, claimedInFront,
       findFormat("binvar")->use}};
  return formats;
}

const SignedFormat& unserialisedFormat() {
  static const SignedFormat format = {"profile",     always<kVarValVariable>, profileWords,
                                      profileFields, claimedInFront,          useUnserialised};
  return format;
}

}  // namespace vrxtest
