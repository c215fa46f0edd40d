// SPDX-License-Identifier: Apache-2.0
// The names of the record's fields, reading and printing them.
#include "tests/support/record_text.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vrxtest {
namespace {

enum class Kind { kText, kNumber };

struct FieldRow {
  std::uint32_t type;
  std::uint64_t bit;
  const char* name;
  Kind kind;
  std::size_t offset;
  std::size_t width;
};

#define VRX_ROW(type, bit, kind, body, name)                            \
  {                                                                     \
    type, bit, #name, Kind::kind, offsetof(GlobalRegRecord, body.name), \
        sizeof(GlobalRegRecord::body.name)                              \
  }

constexpr FieldRow kFields[] = {
    VRX_ROW(kGlobalRegInstance, kInstanceService, kText, Instance, Service),
    VRX_ROW(kGlobalRegInstance, kInstanceVersionCode, kNumber, Instance, VersionCode),
    VRX_ROW(kGlobalRegInstance, kInstanceName, kText, Instance, InstanceName),
    VRX_ROW(kGlobalRegInstance, kInstancePath, kText, Instance, InstancePath),
    VRX_ROW(kGlobalRegInstance, kInstanceUsage, kText, Instance, Usage),
    VRX_ROW(kGlobalRegInstance, kInstanceStartAtBoot, kNumber, Instance, StartAtBoot),
    VRX_ROW(kGlobalRegInstance, kInstanceMaintenance, kNumber, Instance, Maintenance),
    VRX_ROW(kGlobalRegInstance, kInstanceAuxPath, kText, Instance, AuxPath),
    VRX_ROW(kGlobalRegInstance, kInstanceAuxName, kText, Instance, AuxName),
    VRX_ROW(kGlobalRegInstance, kInstanceComment, kText, Instance, Comment),
    VRX_ROW(kGlobalRegService, kServiceService, kText, Services, Service),
    VRX_ROW(kGlobalRegService, kServiceVersionCode, kNumber, Services, VersionCode),
    VRX_ROW(kGlobalRegService, kServiceText1, kText, Services, Text1),
    VRX_ROW(kGlobalRegService, kServiceText2, kText, Services, Text2),
    VRX_ROW(kGlobalRegService, kServiceText3, kText, Services, Text3),
    VRX_ROW(kGlobalRegService, kServiceFixpackNumber, kNumber, Services, FixpackNumber),
    VRX_ROW(kGlobalRegService, kServiceNum2, kNumber, Services, Num2),
    VRX_ROW(kGlobalRegService, kServiceFlag, kNumber, Services, Flag),
    VRX_ROW(kGlobalRegService, kServiceNum3, kNumber, Services, Num3),
    VRX_ROW(kGlobalRegService, kServiceNum4, kNumber, Services, Num4),
    VRX_ROW(kGlobalRegVariable, kVariableService, kText, Variable, Service),
    VRX_ROW(kGlobalRegVariable, kVariableVariable, kText, Variable, Variable),
    VRX_ROW(kGlobalRegVariable, kVariableValue, kText, Variable, Value),
    VRX_ROW(kGlobalRegVariable, kVariableComment, kText, Variable, Comment),
};

#undef VRX_ROW

struct TypeRow {
  std::uint32_t type;
  const char* name;
};
constexpr TypeRow kTypes[] = {{kGlobalRegInstance, "instance"},
                              {kGlobalRegService, "service"},
                              {kGlobalRegVariable, "variable"}};

std::uint32_t typeNamed(const std::string& name) {
  for (const TypeRow& row : kTypes) {
    if (name == row.name) return row.type;
  }
  return 0;
}

const char* nameOfType(std::uint32_t type) {
  for (const TypeRow& row : kTypes) {
    if (type == row.type) return row.name;
  }
  return "unknown";
}

const FieldRow* fieldNamed(std::uint32_t type, const std::string& name) {
  for (const FieldRow& row : kFields) {
    if (row.type == type && name == row.name) return &row;
  }
  return nullptr;
}

unsigned char* bytesOf(GlobalRegRecord& record) {
  return reinterpret_cast<unsigned char*>(&record);
}

bool setField(GlobalRegRecord* record, const FieldRow& field, const std::string& value) {
  unsigned char* at = bytesOf(*record) + field.offset;
  if (field.kind == Kind::kText) {
    if (value.size() >= field.width) return false;
    std::memcpy(at, value.c_str(), value.size() + 1);
    return true;
  }
  unsigned long long number = 0;
  if (!parseNumber(value, &number)) return false;
  std::memcpy(at, &number, field.width);  // the low bytes come first on the machines we build for
  return true;
}

std::string fieldText(const GlobalRegRecord& record, const FieldRow& field) {
  const auto* at = reinterpret_cast<const unsigned char*>(&record) + field.offset;
  const std::string head = std::string("\t") + field.name + "=";
  if (field.kind == Kind::kText) {
    return head + plainText(reinterpret_cast<const char*>(at), field.width);
  }
  unsigned long long number = 0;
  std::memcpy(&number, at, field.width);
  return head + std::to_string(number);
}

}  // namespace

bool parseNumber(const std::string& text, unsigned long long* value) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long number = std::strtoull(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || errno != 0) return false;
  *value = number;
  return true;
}

bool parseRecord(const std::vector<std::string>& words, GlobalRegRecord* record,
                 std::string* problem) {
  *record = {};
  const std::uint32_t type = words.empty() ? 0 : typeNamed(words[0]);
  *problem = "no type of record";
  if (type == 0) return false;
  record->RecordType = type;
  for (std::size_t i = 1; i < words.size(); ++i) {
    *problem = "bad field " + words[i];
    const std::size_t equals = words[i].find('=');
    const FieldRow* field = fieldNamed(type, words[i].substr(0, equals));
    if (field == nullptr || equals == std::string::npos) return false;
    if (!setField(record, *field, words[i].substr(equals + 1))) return false;
    record->FieldMask |= field->bit;
  }
  return true;
}

std::string plainText(const char* text, std::size_t width) {
  std::string out;
  for (std::size_t i = 0; i < width && text[i] != 0; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool plain = byte >= 0x20 && byte < 0x7F && byte != '\\';
    char code[8];
    std::snprintf(code, sizeof code, plain ? "%c" : "\\x%02x", byte);
    out += code;
  }
  return out;
}

void printText(const char* text, std::size_t width) {
  std::fputs(plainText(text, width).c_str(), stdout);
}

std::string recordText(const GlobalRegRecord& record) {
  char head[128];
  std::snprintf(head, sizeof head, "%s\tmask=0x%llx\tmissing=0x%llx\tchecksum=%u",
                nameOfType(record.RecordType), static_cast<unsigned long long>(record.FieldMask),
                static_cast<unsigned long long>(record.MissingFieldMask), record.CheckSum);
  std::string text = head;
  for (const FieldRow& field : kFields) {
    const bool present = field.type == record.RecordType && (record.FieldMask & field.bit) != 0;
    if (present) text += fieldText(record, field);
  }
  return text;
}

void printRecord(const GlobalRegRecord& record) {
  std::puts(recordText(record).c_str());
}

}  // namespace vrxtest
