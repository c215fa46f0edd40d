// SPDX-License-Identifier: Apache-2.0
// Lookups, scans and updates of damaged registries, and what is held against them.
//
// Text formats have a model that tells status and bytes of every operation on every file. Binary
// ones are held against what a scan finds: an update may succeed only where the scan comes to the
// end, and then every other record stands where it stood.
#include "tests/damage/judges.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "platform/osse/memory.h"
#include "tests/support/allocation_watch.h"
#include "tests/support/campaign.h"
#include "tests/support/global_records.h"
#include "tests/support/subjects.h"
#include "tests/support/temp_dir.h"
#include "tests/support/text_model_driver.h"

namespace vrxtest::damage {
namespace {

using std::string;

constexpr unsigned kEnd = 0x900001BE;
constexpr unsigned kNoMatch = 0x900001F6;

// Beyond the file's own size the library asks for blocks of fixed size only: the largest are a
// packed record with room for the walk over its entries, and a stream's buffer.
constexpr std::size_t kFixedBlocks = 72 * 1024;

string withCode(const string& what, unsigned rc) {
  char code[16];
  std::snprintf(code, sizeof code, " 0x%08X", rc);
  return what + code;
}

// What every judge looks at around the library's calls.
class Frugal {
 public:
  explicit Frugal(std::size_t fileSize)
      : most_(fileSize + kFixedBlocks),
        descriptors_(openDescriptorCount()),
        blocks_(ossMemLiveBlocks()) {}

  // One call of the library's.
  unsigned call(const std::function<unsigned()>& work) {
    const AllocationWatch watch;
    const unsigned rc = work();
    largest_ = std::max(largest_, watch.largest());
    return rc;
  }
  string complaint() const {
    if (largest_ > most_) return "a block of " + std::to_string(largest_) + " bytes";
    if (openDescriptorCount() != descriptors_) return "a descriptor is left open";
    if (ossMemLiveBlocks() != blocks_) return "a block is not released";
    return "";
  }

 private:
  const std::size_t most_;
  const int descriptors_;
  const unsigned long blocks_;
  std::size_t largest_ = 0;
};

// --- text

namespace text = vrxtest::model;

string textOriginal(text::Format format) {
  if (format == text::Format::kProfile) return "A = 1 # one\nB = \"x  y\"\n\texport C=3\n";
  if (format == text::Format::kServices)
    return "a\t\t1/tcp\tb c\t# n\n b 80/udp\nlonger 256/tcp b\n";
  return "a:1:wait:/bin/x # n\nb:2:once:/bin/y \\\n -z\nc::x:/bin/z a:b\n";
}

text::Record textRecord(text::Format format, const string& name, const string& value) {
  text::Record record;
  record.entry = true;
  record.name = name;
  record.value = format == text::Format::kServices ? "tcp" : value;
  if (format == text::Format::kServices) record.port = 300;
  if (format == text::Format::kInitTable) {
    record.runlevel = "3";
    record.command = "/bin/" + value;
  }
  return record;
}

std::vector<text::Operation> textOperations(text::Format format) {
  const bool profile = format == text::Format::kProfile;
  const std::vector<string> names = profile ? std::vector<string>{"A", "B", "export C", "Z"}
                                            : std::vector<string>{"a", "b", "c", "z"};
  std::vector<text::Operation> operations;
  for (const string& name : names)
    operations.push_back({text::Verb::kFind, 1, textRecord(format, name, "1"), {}});
  operations.push_back({text::Verb::kAdd, 1, {}, textRecord(format, names[3], "new")});
  operations.push_back({text::Verb::kChange, 1, textRecord(format, names[1], "1"),
                        textRecord(format, names[1], "new")});
  operations.push_back({text::Verb::kRemove, 1, textRecord(format, names[1], "1"), {}});
  return operations;
}

class TextJudge : public Judge {
 public:
  TextJudge(text::Format format, const Subject& subject, string path)
      : format_(format),
        subject_(subject),
        path_(std::move(path)),
        operations_(textOperations(format)) {}

  string original() override { return textOriginal(format_); }

  string complaintAbout(const string& bytes) override {
    Frugal frugal(bytes.size());
    putBytes(path_, bytes);
    const unsigned scanned = frugal.call([&] { return contentsOf(subject_, path_).status; });
    if (scanned != kEnd) return withCode("a scan ended with", scanned);
    if (bytesAt(path_) != bytes) return "a scan has changed the file";
    for (const text::Operation& operation : operations_) {
      string complaint = complaintAbout(bytes, operation, frugal);
      if (!complaint.empty()) return complaint;
    }
    return frugal.complaint();
  }

 private:
  string complaintAbout(const string& bytes, const text::Operation& operation, Frugal& frugal) {
    const text::Outcome wanted = text::expected(format_, bytes, operation);
    const auto library = text::libraryFor(format_, path_);
    const unsigned rc = frugal.call([&] { return library->run(operation); });
    const string after = bytesAt(path_);
    if (after != bytes) putBytes(path_, bytes);
    const string story = text::described(format_, bytes, operation);
    if (rc != wanted.status)
      return withCode(withCode("status", rc) + " for", wanted.status) + story;
    if (after != wanted.bytes) return "the file is not as it should be: " + story;
    if (operation.verb != text::Verb::kFind || rc != 0) return "";
    const bool same = library->found() == text::expectedFound(format_, bytes, operation);
    return same ? "" : "found " + library->found() + ": " + story;
  }

  const text::Format format_;
  const Subject& subject_;
  const string path_;
  const std::vector<text::Operation> operations_;
};

// --- binary

const Item kStored[] = {{"ione", 1, "note"}, {"stwo", 2, ""}, {"vthree", 3, "third"}};
const Item kAdded = {"inew", 9, "new"};
const Item kChanged = {"stwo", 8, "other"};

void fill(SubjectRegistry& registry) {
  for (const Item& item : kStored)
    (void)registry.add(item);  // whoever uses the file counts its records
}

class BinaryJudge : public Judge {
 public:
  BinaryJudge(const Subject& subject, string path) : subject_(subject), path_(std::move(path)) {
    putBytes(path_, "");
    added_ = readBack(kAdded);
    changed_ = readBack(kChanged);
  }

  string original() override {
    putBytes(path_, "");
    fill(*opened());
    return contentsOf(subject_, path_).records.size() == 3 ? bytesAt(path_) : "";
  }

  string complaintAbout(const string& bytes) override {
    Frugal frugal(bytes.size());
    putBytes(path_, bytes);
    frugal.call([&] { return (scan_ = contentsOf(subject_, path_)).status; });
    string complaint;
    for (const char* name : {"ione", "stwo", "vthree", "inew"}) {
      if (complaint.empty()) complaint = complaintAboutGet(name, frugal);
    }
    if (bytesAt(path_) != bytes) return "a lookup has changed the file";
    if (complaint.empty()) complaint = complaintAboutUpdates(bytes, frugal);
    return complaint.empty() ? frugal.complaint() : complaint;
  }

 private:
  using Records = std::vector<string>;
  using Update = std::function<unsigned(SubjectRegistry&)>;

  std::unique_ptr<SubjectRegistry> opened() const {
    unsigned status = 0;
    return subject_.open(path_, &status);  // the path is one of ours
  }

  // A record as it is found once it is stored.
  string readBack(const Item& item) const {
    putBytes(path_, "");
    if (opened()->add(item) != 0) return "";
    const Contents contents = contentsOf(subject_, path_);
    putBytes(path_, "");
    return contents.records.size() == 1 ? contents.records[0] : "";
  }

  // A lookup finds the first match before the damage, and does not take damage for an absence.
  string complaintAboutGet(const string& name, Frugal& frugal) {
    const Contents named = contentsNamed(subject_, path_, name);
    string found;
    const auto registry = opened();
    const unsigned rc = frugal.call([&] { return registry->get(name, &found); });
    if (rc == 0) {
      const bool same = !named.records.empty() && found == named.records[0];
      return same ? "" : "get " + name + " found another record";
    }
    if (!named.records.empty()) return withCode("get " + name + " missed it:", rc);
    if (rc != kNoMatch) return scan_.status == kEnd ? withCode("get " + name + ":", rc) : "";
    return scan_.status == kEnd ? "" : "get " + name + " took damage for an absence";
  }

  string complaintAboutUpdates(const string& bytes, Frugal& frugal) {
    const Records matches = contentsNamed(subject_, path_, kChanged.name).records;
    const auto isMatch = [&](const string& record) {
      return std::find(matches.begin(), matches.end(), record) != matches.end();
    };
    Records added = scan_.records;
    added.push_back(added_);
    Records changed;
    Records removed;
    for (const string& record : scan_.records) {
      changed.push_back(isMatch(record) ? changed_ : record);
      if (!isMatch(record)) removed.push_back(record);
    }
    string complaint =
        updated(bytes, frugal, added, [](SubjectRegistry& r) { return r.add(kAdded); });
    if (!complaint.empty()) return "add: " + complaint;
    complaint = updated(bytes, frugal, changed,
                        [](SubjectRegistry& r) { return r.change(kChanged.name, kChanged); });
    if (!complaint.empty()) return "change: " + complaint;
    complaint =
        updated(bytes, frugal, removed, [](SubjectRegistry& r) { return r.remove(kChanged.name); });
    return complaint.empty() ? "" : "delete: " + complaint;
  }

  string updated(const string& bytes, Frugal& frugal, const Records& wanted, const Update& update) {
    const auto registry = opened();
    const unsigned rc = frugal.call([&] { return update(*registry); });
    const string after = bytesAt(path_);
    string complaint;
    if (rc != 0) {
      if (after != bytes) complaint = withCode("the file has changed with", rc);
    } else if (scan_.status != kEnd) {
      complaint = withCode("success, while a scan ends with", scan_.status);
    } else {
      const Contents now = contentsOf(subject_, path_);
      if (now.status != kEnd) complaint = withCode("a scan then ends with", now.status);
      complaint += differenceOf(now.records, wanted);
    }
    if (after != bytes) putBytes(path_, bytes);
    return complaint;
  }

  // The first record that is not what it should be.
  static string differenceOf(const Records& now, const Records& wanted) {
    if (now == wanted) return "";
    std::size_t at = 0;
    while (at < now.size() && at < wanted.size() && now[at] == wanted[at])
      ++at;
    const auto shown = [at](const Records& records) {
      return at < records.size() ? text::escaped(records[at]) : string("nothing");
    };
    return "record " + std::to_string(at) + " is " + shown(now) + " instead of " + shown(wanted);
  }

  const Subject& subject_;
  const string path_;
  string added_;
  string changed_;
  Contents scan_;
};

// --- the object that stamped the header

class KeptChecksumJudge : public Judge {
 public:
  explicit KeptChecksumJudge(string path) : path_(std::move(path)) {}

  string original() override {
    putBytes(path_, "");
    unsigned status = 0;
    const auto registry = subject_.open(path_, &status);
    fill(*registry);
    original_ = bytesAt(path_);
    return original_;
  }

  // Where the checksum does not agree, nothing is looked up; where the records are not those that
  // were stamped, nothing is changed.
  string complaintAbout(const string& bytes) override {
    Frugal frugal(bytes.size());
    putBytes(path_, "");
    unsigned status = 0;
    {
      const auto registry = subject_.open(path_, &status);
      if (registry->add(kStored[0]) != 0) return "no header stamped";
      string complaint = complaintAboutCalls(*registry, bytes, frugal);
      if (!complaint.empty()) return complaint;
    }
    return frugal.complaint();
  }

 private:
  static constexpr std::size_t kHeader = 32;

  // What stands behind the header; an empty file is a registry without records.
  static string bodyOf(const string& bytes) {
    return bytes.substr(std::min(kHeader, bytes.size()));
  }

  // Words from the beginning, and what remains as signed bytes.
  static std::uint32_t checksumOf(const string& body) {
    std::uint32_t sum = 0;
    std::size_t at = 0;
    for (; at + 4 <= body.size(); at += 4) {
      std::uint32_t word = 0;
      std::memcpy(&word, body.data() + at, 4);
      sum ^= word;
    }
    for (; at < body.size(); ++at)
      sum ^=
          static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(body[at])));
    return sum;
  }

  string complaintAboutCalls(SubjectRegistry& registry, const string& bytes, Frugal& frugal) {
    const string body = bodyOf(bytes);
    const bool agrees = bytes.empty() || checksumOf(body) == checksumOf(bodyOf(original_));
    const bool same = bytes.empty() || body == bodyOf(original_);
    string found;
    const std::function<unsigned()> lookup = [&] { return registry.get("stwo", &found); };
    putBytes(path_, bytes);
    if (frugal.call(lookup) == 0 && !agrees) return "a damaged registry is looked up";
    if (bytesAt(path_) != bytes) return "a lookup has changed the file";
    const std::function<unsigned()> updates[] = {
        [&] { return registry.add(kAdded); },
        [&] { return registry.change(kChanged.name, kChanged); },
        [&] { return registry.remove(kChanged.name); }};
    for (const auto& update : updates) {
      putBytes(path_, bytes);
      const unsigned rc = frugal.call(update);
      if (rc == 0 && !same) return "a damaged registry is changed";
      if (rc != 0 && bytesAt(path_) != bytes) return withCode("the file has changed with", rc);
    }
    return "";
  }

  const Subject& subject_ = *findSubject("checksum");
  const string path_;
  string original_;
};

}  // namespace

std::unique_ptr<Judge> judgeFor(const string& format, const string& path) {
  if (format == "checksum-kept") return std::make_unique<KeptChecksumJudge>(path);
  const Subject& subject = *findSubject(format);
  if (format == "profile") {
    return std::make_unique<TextJudge>(text::Format::kProfile, subject, path);
  }
  if (format == "services") {
    return std::make_unique<TextJudge>(text::Format::kServices, subject, path);
  }
  if (format == "inittab") {
    return std::make_unique<TextJudge>(text::Format::kInitTable, subject, path);
  }
  return std::make_unique<BinaryJudge>(subject, path);
}

}  // namespace vrxtest::damage
