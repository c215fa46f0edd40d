// SPDX-License-Identifier: Apache-2.0
// Building a profile object, and its typed lookups.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "genreg/formats/internal/line_slots.h"
#include "genreg/formats/var_val.h"
#include "genreg/internal/operation.h"
#include "platform/osse/strings.h"

using namespace genreg;

namespace {

template <class Number>
constexpr Number kMost = std::numeric_limits<Number>::max();

// What strtol and strtoul give where long has 32 bits, in every build. *end receives where the
// number ends.
int saturatedInt(const char* text, char** end) {
  const long long value = std::strtoll(text, end, 10);
  return static_cast<int>(std::clamp(value, -static_cast<long long>(kMost<int>) - 1,
                                     static_cast<long long>(kMost<int>)));
}

// A minus sign negates within 32 bits, unless the number is out of range without it.
unsigned int wrappedUint(const char* text, char** end) {
  const unsigned long long wrapped = std::strtoull(text, end, 10);
  const bool negative = text[std::strspn(text, " \t\n\v\f\r")] == '-';  // what strtoull skips
  const unsigned long long magnitude = negative ? 0ULL - wrapped : wrapped;
  if (magnitude > kMost<unsigned int>) return kMost<unsigned int>;
  const auto value = static_cast<unsigned int>(magnitude);
  return negative ? 0U - value : value;
}

// Gives *out the converted value when the whole text was a number.
template <class Number, class Convert>
bool convertWhole(const char* text, Number* out, Convert convert) {
  char* end = nullptr;
  const Number value = convert(text, &end);
  if (*end != '\0') return false;
  *out = value;
  return true;
}

}  // namespace

GenRegVarVal::GenRegVarVal(const char* path, unsigned int* status) : found_{} {
  // Threads construct objects of their own, and the switch is a plain byte that programs link to.
  __atomic_store_n(&bCompactFormattedLine, false, __ATOMIC_RELAXED);
  Operation op(kGenRegVarValConstruct, path);
  const GenRegStatus rc = setRegistryPaths(path);
  if (status != nullptr) *status = rc;
  if (rc == status::null_argument || rc == status::path_too_long) {
    op.conclude(rc);  // logged where it was found; the object has no slots
    return;
  }
  matchRecord = &GenRegVarVal::MatchRecord;
  validateRecord = &GenRegVarVal::ValidateRecord;
  printRecord = &GenRegVarVal::PrintRecord;
  getRecordSize = &GenRegVarVal::GetRecordSize;
  getMaxRecordSize = &GenRegVarVal::GetMaxRecordSize;
  formatLine = &GenRegVarVal::FormatLine;
  parseLine = &GenRegVarVal::ParseLine;
  lineSlots = &kVarValLineSlots;
  if (rc != status::ok) return;
  (void)setFeature(kGenRegVerifyCommit);  // both are in range
  (void)setFeature(kGenRegDuplicates);
}

GenRegVarVal::~GenRegVarVal() = default;

bool GenRegVarVal::find(const char* name) {
  GenRegVarValRecord key{};
  key.contents = kVarValHasValue;
  key.variable = const_cast<char*>(name);  // keys are only read
  return Get(kVarValVariable, &key, &found_) == status::ok;
}

bool GenRegVarVal::GetBooleanValue(const char* name, bool* out) {
  return find(name) && ossStrToBoolean(found_.value, out) == status::ok;
}

bool GenRegVarVal::GetStringValue(const char* name, const char** out) {
  if (!find(name)) return false;
  *out = found_.value;
  return true;
}

bool GenRegVarVal::GetDoubleValue(const char* name, double* out) {
  return find(name) && convertWhole(found_.value, out, [](const char* text, char** end) {
           return std::strtod(text, end);
         });
}

bool GenRegVarVal::GetSintValue(const char* name, int* out) {
  return find(name) && convertWhole(found_.value, out, saturatedInt);
}

bool GenRegVarVal::GetUintValue(const char* name, unsigned int* out) {
  return find(name) && convertWhole(found_.value, out, wrappedUint);
}
