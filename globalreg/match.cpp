// SPDX-License-Identifier: Apache-2.0
// Whether a stored record answers a request.
#include "globalreg/global_reg.h"
#include "globalreg/internal/fields.h"

namespace {

using namespace globalreg;

bool sameField(const Field& field, const unsigned char* a, const unsigned char* b) {
  if (field.kind != FieldKind::text) return fieldNumber(a, field) == fieldNumber(b, field);
  return strncmp(fieldText(a, field), fieldText(b, field), field.width) == 0;
}

}  // namespace

int GlobalReg::MatchRecord(unsigned long long mask, void* candidate, void* key) {
  const auto* stored = static_cast<const unsigned char*>(candidate);
  const auto* given = static_cast<const unsigned char*>(key);
  const std::uint32_t type = recordType(stored);
  const std::uint32_t wanted = recordType(given);
  if (wanted != 0 && wanted != type) return 0;
  const Layout* layout = layoutOf(type);
  if (mask == 0 || layout == nullptr) return 1;
  for (const Field& field : *layout) {
    if ((mask & layout->bit(field)) != 0 && !sameField(field, stored, given)) return 0;
  }
  return 1;
}
