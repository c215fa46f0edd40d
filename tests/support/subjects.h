// SPDX-License-Identifier: Apache-2.0
// One small record in every format, and a registry of each format to put it in: what campaigns that
// treat all formats alike work on. Formats with records of any kind stand in any_registry.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vrxtest {

// What every format can store. Names have up to 11 letters and digits; in the global registry the
// first one tells the type: i an instance, s a service, anything else a variable. Numbers are from
// 1 to 65535. Formats without notes leave them out.
struct Item {
  std::string name;
  unsigned number = 1;
  std::string note;
};

// One object of the library's. Every member makes the one call that it is named after; records that
// are found come as text or bytes that differ when the records do.
class SubjectRegistry {
 public:
  virtual ~SubjectRegistry() = default;
  virtual unsigned add(const Item& item) = 0;
  virtual unsigned change(const std::string& name, const Item& item) = 0;
  virtual unsigned remove(const std::string& name) = 0;
  virtual unsigned get(const std::string& name, std::string* found) = 0;
  virtual unsigned openScan() = 0;
  virtual unsigned next(std::string* found) = 0;  // any record
  virtual unsigned nextNamed(const std::string& name, std::string* found) = 0;
  virtual unsigned closeScan() = 0;
};

struct Subject {
  const char* name;
  // The path must be one that the format takes; null otherwise, with its status.
  std::unique_ptr<SubjectRegistry> (*open)(const std::string& path, unsigned* status);
};

// global, profile, services, inittab, binvar; and, of a plain binary format, bigendian with
// lengths in the other order and checksum with a checksum header.
const std::vector<Subject>& subjects();

// The subject of that name, or null.
const Subject* findSubject(const std::string& name);

// The subject's name, for a test's name.
void PrintTo(const Subject& subject, std::ostream* out);

// All records of a registry as a fresh object scans them, or those of one name, and the status that
// ended the scan: 0x900001BE when it came to the end.
struct Contents {
  unsigned status = 0;
  std::vector<std::string> records;
};
Contents contentsOf(const Subject& subject, const std::string& path);
Contents contentsNamed(const Subject& subject, const std::string& path, const std::string& name);

}  // namespace vrxtest
