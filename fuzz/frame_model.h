// SPDX-License-Identifier: Apache-2.0
// Files of plain frames, told a second time: walked, looked up and updated as docs/frame-format.md
// has it, with strings and without the library.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace vrxfuzz {

enum class ByteOrder { kHost, kBig };

// Statuses that the targets compare with.
enum Status : unsigned {
  kDone = 0,
  kEnd = 0x900001BE,
  kPastEnd = 0x900001B3,
  kNotOpened = 0x900001C5,
  kNotRead = 0x900001CD,
  kDuplicate = 0x900001F1,
  kNoMatch = 0x900001F6,
  kUnchanged = 0x900001F7,
  kSeveral = 0x900001F8,
  kBadRecord = 0x900001FC,
  kNoScan = 0x9000025A
};

// A frame, or damage where one should begin.
struct StoredFrame {
  unsigned status;   // 0, or what reading it gives: the end of the file, a frame beyond the end
  std::size_t next;  // where a reader stands behind it
  std::string body;
};

// The frame at an offset, which may lie behind the end of the file.
StoredFrame frameAt(const std::string& bytes, std::size_t offset, ByteOrder order);

// A frame around a body.
std::string framed(const std::string& body, ByteOrder order);

// What the model has to know of a format of plain records.
struct PlainRules {
  std::size_t size;  // of a record
  bool (*agree)(unsigned long long mask, const std::string& stored, const std::string& given);
  bool (*isAcceptable)(unsigned long long mask, const std::string& record);
  ByteOrder order = ByteOrder::kHost;
  bool duplicates = false;      // several records may agree; Add looks for none
  bool appendsInPlace = false;  // Add reads nothing
};

class PlainModel {
 public:
  PlainModel(const PlainRules& rules, std::string contents, std::size_t firstRecord = 0)
      : bytes(std::move(contents)), rules_(rules), firstRecord_(firstRecord) {}

  std::string bytes;  // of the file

  unsigned add(unsigned long long mask, const std::string& record);
  unsigned change(unsigned long long mask, const std::string& key, const std::string& record);
  unsigned remove(unsigned long long mask, const std::string& key);
  // *found is the record; zeros when none agrees.
  unsigned get(unsigned long long mask, const std::string& key, std::string* found) const;
  // The same from *offset on, which then stands where a scan stands.
  unsigned next(unsigned long long mask, const std::string& key, std::size_t* offset,
                std::string* found) const;

 private:
  std::string recordOf(const std::string& body) const;

  const PlainRules rules_;
  const std::size_t firstRecord_;
};

}  // namespace vrxfuzz
