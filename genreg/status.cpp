// SPDX-License-Identifier: Apache-2.0
// The status table: one row a code, of this library and of the platform layer below it.
#include "genreg/status.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

constexpr GenRegStatusInfo kRows[] = {
#define VRX_STATUS(name, value, meaning, raisedBy, remedy) \
  {(value), #name, meaning, raisedBy, remedy},
#include "genreg/status_codes.inc"
#include "platform/osse/status_codes.inc"
#undef VRX_STATUS
};
constexpr std::size_t kRowCount = sizeof kRows / sizeof kRows[0];

using Table = std::array<GenRegStatusInfo, kRowCount>;

bool byCode(const GenRegStatusInfo& a, const GenRegStatusInfo& b) {
  return a.code < b.code;
}

const Table& sortedTable() {
  static const Table table = [] {
    Table rows{};
    std::copy(std::begin(kRows), std::end(kRows), rows.begin());
    std::sort(rows.begin(), rows.end(), byCode);
    return rows;
  }();
  return table;
}

}  // namespace

const GenRegStatusInfo* genregStatusInfo(GenRegStatus code) {
  const Table& table = sortedTable();
  const GenRegStatusInfo wanted{code, "", "", "", ""};
  const auto row = std::lower_bound(table.begin(), table.end(), wanted, byCode);
  return row != table.end() && row->code == code ? &*row : nullptr;
}

const GenRegStatusInfo* genregStatusTable(unsigned long* count) {
  if (count != nullptr) *count = kRowCount;
  return sortedTable().data();
}
