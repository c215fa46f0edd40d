// SPDX-License-Identifier: Apache-2.0
// Making records and taking packed images apart.
#include "benchmarks/records.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vrxbench {
namespace {

constexpr char kUsage[] = "production";
constexpr std::size_t kCommentLength = 57;  // makes the packed image 170 bytes long

// The places of the fields among the bits of the mask.
constexpr unsigned kNameBit = 2;
constexpr unsigned kPathBit = 3;
constexpr unsigned kCommentBit = 9;
constexpr unsigned kFieldBits = 10;

constexpr std::uint64_t kFields =
    kInstanceKey | kInstancePath | kInstanceUsage | kInstanceStartAtBoot | kInstanceComment;

template <typename Number>
std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

std::string entryOf(const std::string& bytes) {
  return bytesOf(static_cast<std::uint16_t>(bytes.size())) + bytes;
}

std::string textEntry(std::string text) {
  text.push_back('\0');
  return entryOf(text);
}

template <std::size_t width>
void setText(char (&field)[width], const std::string& text) {
  const std::size_t length = std::min(text.size(), width - 1);
  std::memcpy(field, text.data(), length);
  field[length] = '\0';
}

// Seven digits between two texts. Made for every update, in its measured time: formatted
// printing would be a tenth of a small lookup.
std::string numbered(const char* before, unsigned long number, const char* after) {
  constexpr std::size_t kDigits = 7;
  char digits[kDigits + 1] = {};
  for (std::size_t place = kDigits; place > 0; --place, number /= 10)
    digits[place - 1] = static_cast<char>('0' + number % 10);
  return std::string(before).append(digits).append(after);
}

std::uint64_t maskOf(std::string_view image) {
  std::uint64_t mask = 0;
  std::memcpy(&mask, image.data() + sizeof(std::uint32_t), sizeof mask);
  return mask;
}

// The next entry's bytes. False when it does not end within the image.
bool readEntry(std::string_view image, std::size_t& offset, std::string_view& bytes) {
  std::uint16_t length = 0;
  if (image.size() - offset < sizeof length) return false;
  std::memcpy(&length, image.data() + offset, sizeof length);
  offset += sizeof length;
  if (image.size() - offset < length) return false;
  bytes = image.substr(offset, length);
  offset += length;
  return true;
}

std::string_view textOf(std::string_view bytes) {
  return bytes.empty() ? bytes : bytes.substr(0, bytes.size() - 1);
}

static_assert(offsetof(GlobalRegRecord, Instance.VersionCode) == 20 + 64 &&
                  offsetof(GlobalRegRecord, Instance.InstanceName) == 20 + 72 &&
                  offsetof(GlobalRegRecord, Instance.InstancePath) == 20 + 136 &&
                  offsetof(GlobalRegRecord, Instance.Usage) == 20 + 1160 &&
                  offsetof(GlobalRegRecord, Instance.StartAtBoot) == 20 + 1224 &&
                  offsetof(GlobalRegRecord, Instance.Comment) == 20 + 2320,
              "layOut's places");

}  // namespace

std::string instanceName(unsigned long number) {
  return numbered("inst", number, "");
}

std::string instancePath(unsigned long number) {
  return numbered("/home/inst", number, "/registry/copy");
}

std::string comment(Form form) {
  return std::string(kCommentLength, form == Form::kFirst ? 'a' : 'b');
}

std::string packedKey(unsigned long number) {
  return textEntry(kService) + entryOf(bytesOf(kVersion)) + textEntry(instanceName(number));
}

std::string packedImage(unsigned long number, Form form) {
  return bytesOf(std::uint32_t{kGlobalRegInstance}) + bytesOf(std::uint64_t{kFields}) +
         bytesOf(std::uint64_t{0}) + packedKey(number) + textEntry(instancePath(number)) +
         textEntry(kUsage) + entryOf(bytesOf(std::uint32_t{1})) + textEntry(comment(form)) +
         bytesOf(std::uint32_t{0});
}

std::string frameOf(unsigned long number, Form form) {
  const std::string image = packedImage(number, form);
  return bytesOf(static_cast<std::uint32_t>(image.size())) + image;
}

GlobalRegRecord storeKey(unsigned long number) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegInstance;
  record.FieldMask = kInstanceKey;
  setText(record.Instance.Service, kService);
  record.Instance.VersionCode = kVersion;
  setText(record.Instance.InstanceName, instanceName(number));
  return record;
}

Wanted::Wanted(unsigned long number)
    : name(instanceName(number)),
      path(instancePath(number)),
      packedKey(vrxbench::packedKey(number)),
      storeKey(vrxbench::storeKey(number)) {}

GlobalRegRecord storeRecord(unsigned long number, Form form) {
  GlobalRegRecord record = storeKey(number);
  record.FieldMask = kFields;
  setText(record.Instance.InstancePath, instancePath(number));
  setText(record.Instance.Usage, kUsage);
  record.Instance.StartAtBoot = 1;
  setText(record.Instance.Comment, comment(form));
  return record;
}

OSSInstanceInfo_t directoryInfo(unsigned long number, Form form) {
  OSSInstanceInfo_t info{};
  info.flags = kInstanceFlagStartAtBoot;
  info.versionCode = kVersion;
  setText(info.instanceName, instanceName(number));
  setText(info.service, kService);
  setText(info.instancePath, instancePath(number));
  setText(info.usage, kUsage);
  setText(info.comment, comment(form));
  return info;
}

bool readFields(std::string_view image, ImageFields& fields) {
  if (image.size() < kPackedHeader) return false;
  const std::uint64_t mask = maskOf(image);
  std::size_t offset = kPackedHeader;
  for (unsigned bit = 0; bit < kFieldBits; ++bit) {
    std::string_view bytes;
    if ((mask >> bit & 1) == 0) continue;
    if (!readEntry(image, offset, bytes)) return false;
    if (bit == kNameBit) fields.name = textOf(bytes);
    if (bit == kPathBit) fields.path = textOf(bytes);
    if (bit == kCommentBit) fields.comment = textOf(bytes);
  }
  return true;
}

void layOut(std::string_view image, GlobalRegRecord& record) {
  std::memset(&record, 0, sizeof record);
  std::memcpy(&record, image.data(), kPackedHeader);
  unsigned char* const fields[] = {&record.Bytes[0],   &record.Bytes[64],   &record.Bytes[72],
                                   &record.Bytes[136], &record.Bytes[1160], &record.Bytes[1224],
                                   &record.Bytes[2320]};
  const char* entry = image.data() + kPackedHeader;
  for (unsigned char* const field : fields) {
    std::uint16_t length = 0;
    std::memcpy(&length, entry, sizeof length);
    std::memcpy(field, entry + sizeof length, length);
    entry += sizeof length + length;
  }
}

unsigned long touch(std::string_view name, std::string_view path, std::string_view comment) {
  unsigned long sum = 0;
  for (const std::string_view text : {name, path, comment})
    sum += text.empty() ? 0 : static_cast<unsigned char>(text.back()) + text.size();
  return sum;
}

}  // namespace vrxbench
