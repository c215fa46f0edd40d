// SPDX-License-Identifier: Apache-2.0
// The records that every contender stores: instances of about 170 packed bytes, numbered from 0.
//
// The packed image is laid out here by hand (docs/packed-record-format.md), so that the floor and
// the peers store and read exactly what the library does without calling it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "globalreg/record.h"
#include "oss/directory.h"

namespace vrxbench {

constexpr char kService[] = "VRX";
constexpr std::uint64_t kVersion = 0x0003000100000007ULL;

// Two forms of each record, of the same length: a change turns one into the other.
enum class Form : unsigned char { kFirst, kSecond };

inline Form otherOf(Form form) {
  return form == Form::kFirst ? Form::kSecond : Form::kFirst;
}

std::string instanceName(unsigned long number);
std::string instancePath(unsigned long number);
std::string comment(Form form);

// The record's packed image, and the bytes in it that identify the record: its entries of service,
// version and name, which follow each other behind the header.
std::string packedImage(unsigned long number, Form form);
std::string packedKey(unsigned long number);
constexpr std::size_t kPackedHeader = 20;

// The image with its length in front, as it stands in a registry.
std::string frameOf(unsigned long number, Form form);

// The record, and its key alone, as the store takes them; and as the directory does.
GlobalRegRecord storeRecord(unsigned long number, Form form);
GlobalRegRecord storeKey(unsigned long number);
OSSInstanceInfo_t directoryInfo(unsigned long number, Form form);

// What a lookup asks for, in the forms that the contenders take, and the path that tells whether it
// has found the right record. Made before the lookup is measured.
struct Wanted {
  explicit Wanted(unsigned long number);

  std::string name;
  std::string path;
  std::string packedKey;
  GlobalRegRecord storeKey;
};

// The texts of a packed image, which stay the image's. False when it is none of ours.
struct ImageFields {
  std::string_view name;
  std::string_view path;
  std::string_view comment;
};
bool readFields(std::string_view image, ImageFields& fields);

// Lays the packed image of an instance out as the record that the library delivers, with nothing
// looked at that one of ours has for certain: the least that delivering it costs.
void layOut(std::string_view image, GlobalRegRecord& record);

// A number that depends on all of the texts, so that no reader may leave one out.
unsigned long touch(std::string_view name, std::string_view path, std::string_view comment);

}  // namespace vrxbench
