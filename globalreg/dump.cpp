// SPDX-License-Identifier: Apache-2.0
// A record on standard output, for diagnosis.
#include <cinttypes>
#include <cstdio>

#include "globalreg/global_reg.h"
#include "globalreg/internal/fields.h"

namespace {

using namespace globalreg;

// How a type's dump begins, and how wide its names stand. Service records have no dump.
struct DumpStyle {
  const char* heading;
  int nameWidth;
};

constexpr DumpStyle kInstanceStyle = {"InstanceRecord", 12};
constexpr DumpStyle kVariableStyle = {"VariableRecord", 8};

void printHeader(const unsigned char* record) {
  const auto mask = static_cast<std::uint32_t>(fieldMask(record));
  const auto missing = readNumber<std::uint32_t>(record + kMissingOffset);  // its low half
  std::printf("   RecordType   = %" PRId32 "\n", static_cast<std::int32_t>(recordType(record)));
  std::printf("   FieldMask    = %" PRId32 "\n", static_cast<std::int32_t>(mask));
  std::printf("   MissingFieldMask = %" PRId32 "\n", static_cast<std::int32_t>(missing));
}

void printField(const unsigned char* record, const Field& field, int nameWidth) {
  std::printf("      %-*s = ", nameWidth, field.name);
  if (field.kind == FieldKind::text) {
    std::printf("|%.*s|\n", static_cast<int>(field.width), fieldText(record, field));
    return;
  }
  const std::uint64_t value = fieldNumber(record, field);
  if (field.kind == FieldKind::number64) {
    std::printf("%" PRIu64 "\n", value);
    return;
  }
  std::printf("%" PRId32 "\n", static_cast<std::int32_t>(static_cast<std::uint32_t>(value)));
}

void printBody(const unsigned char* record, const Layout& layout, const DumpStyle& style) {
  std::printf("   %s:\n", style.heading);
  for (const Field& field : layout) {
    if (field.dump == Dump::shown) printField(record, field, style.nameWidth);
  }
  const auto checkSum = readNumber<std::uint32_t>(record + kCheckSumOffset);
  std::printf("      CheckSum    = %" PRId32 "\n", static_cast<std::int32_t>(checkSum));
}

}  // namespace

int GlobalReg::PrintRecord(void* record) {
  const auto* bytes = static_cast<const unsigned char*>(record);
  printHeader(bytes);
  const Layout* layout = layoutOf(recordType(bytes));
  if (layout == nullptr) return 0;
  if (layout->type == kGlobalRegService) {
    std::printf("Services record not yet implemented\n");
    return 0;
  }
  printBody(bytes, *layout, layout->type == kGlobalRegInstance ? kInstanceStyle : kVariableStyle);
  return 0;
}
