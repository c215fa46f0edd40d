// SPDX-License-Identifier: Apache-2.0
// Whether a record may be looked for or written.
#include "genreg/internal/operation.h"
#include "globalreg/global_reg.h"
#include "globalreg/internal/fields.h"

namespace {

using namespace globalreg;
namespace status = genreg::status;

// The types run up to the variable record's; 3, which is none of them, has no rules.
constexpr std::uint32_t kLastType = kGlobalRegVariable;

bool acceptable(const Field& field, const unsigned char* record) {
  switch (field.rule) {
    case ContentRule::notEmpty:
      return *fieldText(record, field) != '\0';
    case ContentRule::zeroOrOne:
      return fieldNumber(record, field) <= 1;
    case ContentRule::none:
      break;
  }
  return true;
}

// The code of the first present field that breaks its rule.
GenRegStatus checkContents(const Layout& layout, const unsigned char* record) {
  const Field* field = layout.fields;
  for (std::uint64_t rest = fieldMask(record) & layout.known; rest != 0; rest >>= 1, ++field) {
    if ((rest & 1) != 0 && !acceptable(*field, record)) return field->contentCode;
  }
  return status::ok;
}

// The code of the first required field that is absent.
GenRegStatus checkPresence(const Layout& layout, std::uint64_t required, std::uint64_t present) {
  const Field* field = layout.fields;
  for (std::uint64_t rest = required & ~present & layout.known; rest != 0; rest >>= 1, ++field) {
    if ((rest & 1) != 0 && field->absentCode != status::ok) return field->absentCode;
  }
  return status::ok;
}

// Every content rule comes before every presence rule: a malformed field is named first.
GenRegStatus checkFields(std::uint64_t required, const unsigned char* record) {
  const Layout* layout = layoutOf(recordType(record));
  if (layout == nullptr) return status::ok;
  const GenRegStatus contents = checkContents(*layout, record);
  return contents != status::ok ? contents : checkPresence(*layout, required, fieldMask(record));
}

}  // namespace

int GlobalReg::ValidateRecord(unsigned long long required, void* record) {
  if (required == 0) return 0;  // asked of every record of a scan
  genreg::Operation op(genreg::kGlobalRegValidateRecord);
  auto* bytes = static_cast<unsigned char*>(record);
  const std::uint32_t type = recordType(bytes);
  if (type == 0 || type > kLastType) {
    op.explain(1, status::bad_record_type, "type", type);
    return genreg::statusInt(op.fail(2, status::bad_record_type));
  }
  if (fieldMask(bytes) == 0) return genreg::statusInt(op.fail(3, status::no_fields));
  std::memset(bytes + kMissingOffset, 0,
              sizeof(std::uint64_t));  // tells of a read, never of a write
  if (const GenRegStatus rc = checkFields(required, bytes); rc != status::ok) {
    return genreg::statusInt(op.fail(4, rc));
  }
  return op.result();
}
