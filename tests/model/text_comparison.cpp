// SPDX-License-Identifier: Apache-2.0
// The text formats beside tests/support/text_model: status and bytes of every operation, and every
// record of a scan.
#include <arpa/inet.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <vector>

#include "tests/model/comparison.h"
#include "tests/support/campaign.h"
#include "tests/support/subjects.h"
#include "tests/support/text_model_driver.h"

namespace vrxtest::model {
namespace {

using std::string;

constexpr unsigned kEnd = 0x900001BE;
constexpr unsigned kNotOpened = 0x900001C5;
constexpr unsigned kBadRecord = 0x900001FC;
constexpr std::size_t kMostLines = 12;
constexpr unsigned kNewFileEvery = 40;
constexpr unsigned kNoFileEvery = 100;

class Random : public Choices {
 public:
  explicit Random(unsigned long seed) : random_(static_cast<std::mt19937::result_type>(seed)) {}
  unsigned below(unsigned bound) override { return static_cast<unsigned>(random_() % bound); }

 private:
  std::mt19937 random_;
};

string textOr(const std::optional<string>& text) {
  return text ? "|" + *text : "|-";
}

// A record in the form of SubjectRegistry::next.
string shown(Format format, const Record& record) {
  const unsigned note = record.comment ? 1 : 0;
  const string flags = std::to_string(note | (record.entry ? 2U : 0U));
  if (format == Format::kProfile) {
    return flags + textOr(record.name) + textOr(record.value) + textOr(record.note);
  }
  if (format == Format::kInitTable) {
    return flags + textOr(record.name) + textOr(record.runlevel) + textOr(record.value) +
           textOr(record.command) + textOr(record.note);
  }
  const unsigned kind = (record.entry ? 2U : 0U) | (record.notKnown ? 4U : 0U);
  string out = std::to_string(note | kind) + ":" +
               std::to_string(htons(static_cast<std::uint16_t>(record.port))) +
               textOr(record.name) + textOr(record.value) + textOr(record.note);
  for (const string& alias : record.aliases)
    out += "|" + alias;
  return out;
}

class TextComparison : public Comparison {
 public:
  TextComparison(Format format, const Subject& subject, string path, unsigned long seed)
      : format_(format), subject_(subject), path_(std::move(path)), random_(seed) {
    putBytes(path_, "");
  }

  string step() override {
    prepareFile();
    const Operation operation = randomOperation(format_, random_);
    const string story = described(format_, bytes_, operation);
    const string before = bytes_;
    const Outcome wanted = outcomeOf(operation);
    const auto library = libraryFor(format_, path_);
    const unsigned rc = library->run(operation);
    if (rc != wanted.status)
      return "status " + hex(rc) + " for " + hex(wanted.status) + ": " + story;
    if (operation.verb == Verb::kFind && rc == 0 &&
        library->found() != expectedFound(format_, before, operation)) {
      return "found " + library->found() + ": " + story;
    }
    bytes_ = wanted.bytes;
    const string complaint = complaintAboutScan();
    if (!complaint.empty()) return complaint + ": " + story;
    return bytesAt(path_) == bytes_ ? "" : "other bytes than there should be: " + story;
  }

 private:
  static string hex(unsigned code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", code);
    return text;
  }

  void prepareFile() {
    exists_ = true;
    const bool many = linesOf(format_, bytes_).size() > kMostLines;
    if (many || random_.below(kNewFileEvery) == 0) {
      do {
        bytes_ = randomFile(format_, random_);
      } while (linesOf(format_, bytes_).size() > kMostLines);
      putBytes(path_, bytes_);
    } else if (random_.below(kNoFileEvery) == 0) {
      bytes_.clear();
      exists_ = unlink(path_.c_str()) != 0;
    }
  }

  // Only an addition makes a registry that is not there.
  Outcome outcomeOf(const Operation& operation) const {
    Outcome outcome = expected(format_, bytes_, operation);
    if (!exists_ && operation.verb != Verb::kAdd && outcome.status != kBadRecord) {
      outcome.status = kNotOpened;
    }
    return outcome;
  }

  // Lines that do not parse are scanned, too, but what their records hold is not promised.
  string complaintAboutScan() {
    const Contents contents = contentsOf(subject_, path_);
    const std::vector<Line> lines = linesOf(format_, bytes_);
    if (contents.status != kEnd) return "a scan ended with " + hex(contents.status);
    if (contents.records.size() != lines.size()) {
      return "a scan gave " + std::to_string(contents.records.size()) + " records for " +
             std::to_string(lines.size());
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
      if (!lines[i].record) continue;
      const string wanted = shown(format_, *lines[i].record);
      if (contents.records[i] != wanted) {
        return "record " + escaped(contents.records[i]) + " instead of " + escaped(wanted);
      }
    }
    return "";
  }

  const Format format_;
  const Subject& subject_;
  const string path_;
  Random random_;
  string bytes_;
  bool exists_ = true;
};

}  // namespace

std::unique_ptr<Comparison> textComparison(const string& format, const string& path,
                                           unsigned long seed) {
  const Format kind = format == "profile"    ? Format::kProfile
                      : format == "services" ? Format::kServices
                                             : Format::kInitTable;
  return std::make_unique<TextComparison>(kind, *findSubject(format), path, seed);
}

}  // namespace vrxtest::model
