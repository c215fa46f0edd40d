// SPDX-License-Identifier: Apache-2.0
// The three text formats as realfile_check sees them: entries with owned strings, and the library's
// operations on them.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vrxtest::realfiles {

// What a caller would keep of an entry: every field, so that it can be written back.
struct Entry {
  std::vector<std::string> fields;  // in the order of the line
  std::vector<std::string> aliases;
  bool hasNote = false;
  std::string note;
};

class Format {
 public:
  virtual ~Format() = default;

  // Reads the whole file with a scan; the counts are of that scan.
  virtual std::vector<Entry> entries(const std::string& path) = 0;
  unsigned long lineCount() const { return lineCount_; }
  unsigned long notUnderstood() const { return notUnderstood_; }

  virtual std::string keyOf(const Entry& entry) const = 0;
  virtual bool canChange(const Entry& entry) const = 0;
  virtual bool allowsDuplicates() const = 0;
  virtual Entry changed(const Entry& entry) const = 0;
  virtual Entry fresh() const = 0;
  // The entry's line with its newline, laid out over `old`.
  virtual std::string laidOut(const Entry& entry, const std::string& old) = 0;

  virtual unsigned add(const std::string& path, const Entry& entry) = 0;
  virtual unsigned change(const std::string& path, const Entry& key, const Entry& entry) = 0;
  virtual unsigned remove(const std::string& path, const Entry& key) = 0;

 protected:
  unsigned long lineCount_ = 0;
  unsigned long notUnderstood_ = 0;
};

// Null for an unknown name.
std::unique_ptr<Format> formatNamed(const std::string& name);

}  // namespace vrxtest::realfiles
