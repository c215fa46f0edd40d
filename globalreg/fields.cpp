// SPDX-License-Identifier: Apache-2.0
// The fields of instance, service and variable records.
#include "globalreg/internal/fields.h"

namespace globalreg {
namespace {

using genreg::status::Code;

// A text that must not be empty when present: every text of every record.
constexpr Field text(const char* name, std::size_t offset, std::size_t width, Code contentCode,
                     Code absentCode, Dump dump = Dump::shown) {
  return {name,
          static_cast<std::uint16_t>(offset),
          static_cast<std::uint16_t>(width),
          FieldKind::text,
          ContentRule::notEmpty,
          LogForm::text,
          dump,
          contentCode,
          absentCode};
}

// A version code, of any value.
constexpr Field version(std::size_t offset, Code absentCode) {
  return {"VersionCode",
          static_cast<std::uint16_t>(offset),
          8,
          FieldKind::number64,
          ContentRule::none,
          LogForm::version,
          Dump::shown,
          Code::ok,
          absentCode};
}

// A number of 32 bits; with a code for other values than 0 and 1 where it is a switch.
constexpr Field number(const char* name, std::size_t offset, Code contentCode, Code absentCode) {
  return {name,
          static_cast<std::uint16_t>(offset),
          4,
          FieldKind::number32,
          contentCode == Code::ok ? ContentRule::none : ContentRule::zeroOrOne,
          LogForm::decimal,
          Dump::shown,
          contentCode,
          absentCode};
}

// A character kept in a word.
constexpr Field character(const char* name, std::size_t offset, Code absentCode) {
  return {name,
          static_cast<std::uint16_t>(offset),
          4,
          FieldKind::lowByte,
          ContentRule::none,
          LogForm::character,
          Dump::shown,
          Code::ok,
          absentCode};
}

#define VRX_INSTANCE_TEXT(name) \
#name, offsetof(GlobalRegRecord, Instance.name), sizeof(GlobalRegInstanceBody::name)
#define VRX_SERVICE_TEXT(name) \
#name, offsetof(GlobalRegRecord, Services.name), sizeof(GlobalRegServiceBody::name)
#define VRX_VARIABLE_TEXT(name) \
#name, offsetof(GlobalRegRecord, Variable.name), sizeof(GlobalRegVariableBody::name)
#define VRX_INSTANCE_NUMBER(name) #name, offsetof(GlobalRegRecord, Instance.name)
#define VRX_SERVICE_NUMBER(name) #name, offsetof(GlobalRegRecord, Services.name)

// The dump leaves the two auxiliary fields out: scripts read its lines by number.
constexpr Field kInstanceFields[] = {
    text(VRX_INSTANCE_TEXT(Service), Code::instance_service_empty, Code::instance_service_absent),
    version(offsetof(GlobalRegRecord, Instance.VersionCode), Code::instance_version_absent),
    text(VRX_INSTANCE_TEXT(InstanceName), Code::instance_name_empty, Code::instance_name_absent),
    text(VRX_INSTANCE_TEXT(InstancePath), Code::instance_path_empty, Code::instance_path_absent),
    text(VRX_INSTANCE_TEXT(Usage), Code::instance_usage_empty, Code::instance_usage_absent),
    number(VRX_INSTANCE_NUMBER(StartAtBoot), Code::instance_start_invalid,
           Code::instance_start_absent),
    number(VRX_INSTANCE_NUMBER(Maintenance), Code::instance_maintenance_invalid,
           Code::instance_maintenance_absent),
    text(VRX_INSTANCE_TEXT(AuxPath), Code::instance_aux_path_empty, Code::instance_aux_path_absent,
         Dump::hidden),
    text(VRX_INSTANCE_TEXT(AuxName), Code::instance_aux_name_empty, Code::instance_aux_name_absent,
         Dump::hidden),
    text(VRX_INSTANCE_TEXT(Comment), Code::instance_comment_empty, Code::instance_comment_absent),
};

// No caller may require the fix-pack number: an installed copy without fix packs has none. The
// codes of the last four stand in the order in which they were given out, not in field order.
constexpr Field kServiceFields[] = {
    text(VRX_SERVICE_TEXT(Service), Code::service_name_empty, Code::service_name_absent),
    version(offsetof(GlobalRegRecord, Services.VersionCode), Code::service_version_absent),
    text(VRX_SERVICE_TEXT(Text1), Code::service_text1_empty, Code::service_text1_absent),
    text(VRX_SERVICE_TEXT(Text2), Code::service_text2_empty, Code::service_text2_absent),
    text(VRX_SERVICE_TEXT(Text3), Code::service_text3_empty, Code::service_text3_absent),
    number(VRX_SERVICE_NUMBER(FixpackNumber), Code::ok, Code::ok),
    number(VRX_SERVICE_NUMBER(Num2), Code::ok, Code::service_num2_absent),
    character(VRX_SERVICE_NUMBER(Flag), Code::service_flag_absent),
    number(VRX_SERVICE_NUMBER(Num3), Code::ok, Code::service_num3_absent),
    number(VRX_SERVICE_NUMBER(Num4), Code::ok, Code::service_num4_absent),
};

constexpr Field kVariableFields[] = {
    text(VRX_VARIABLE_TEXT(Service), Code::variable_service_empty, Code::variable_service_absent),
    text(VRX_VARIABLE_TEXT(Variable), Code::variable_name_empty, Code::variable_name_absent),
    text(VRX_VARIABLE_TEXT(Value), Code::variable_value_empty, Code::variable_value_absent),
    text(VRX_VARIABLE_TEXT(Comment), Code::variable_comment_empty, Code::variable_comment_absent),
};

#undef VRX_INSTANCE_TEXT
#undef VRX_SERVICE_TEXT
#undef VRX_VARIABLE_TEXT
#undef VRX_INSTANCE_NUMBER
#undef VRX_SERVICE_NUMBER

template <std::size_t count>
constexpr Layout layout(std::uint32_t type, const char* letter, const Field (&fields)[count]) {
  return {type, letter, fields, count, (std::uint64_t{1} << count) - 1};
}

}  // namespace

constexpr Layout kInstanceLayout = layout(kGlobalRegInstance, "I", kInstanceFields);
constexpr Layout kServiceLayout = layout(kGlobalRegService, "S", kServiceFields);
constexpr Layout kVariableLayout = layout(kGlobalRegVariable, "V", kVariableFields);

static_assert(kInstanceLayout.known == kInstanceKnown);
static_assert(kServiceLayout.known == kServiceKnown);
static_assert(kVariableLayout.known == kVariableKnown);

std::uint64_t fieldNumber(const unsigned char* record, const Field& field) {
  const unsigned char* at = record + field.offset;
  if (field.kind == FieldKind::number64) return readNumber<std::uint64_t>(at);
  const std::uint32_t word = readNumber<std::uint32_t>(at);
  return field.kind == FieldKind::lowByte ? word & 0xFFU : word;
}

}  // namespace globalreg
