// SPDX-License-Identifier: Apache-2.0
// The profile format: parsing, laying out, comparing and checking one line.
#include "genreg/formats/var_val.h"

#include <cstdio>
#include <cstring>

#include "genreg/formats/internal/line_slots.h"
#include "genreg/internal/operation.h"
#include "genreg/text/internal/line_builder.h"

using namespace genreg;

namespace {

constexpr char kBlanks[] = " \t";

GenRegVarValRecord& recordAt(void* record) {
  return *static_cast<GenRegVarValRecord*>(record);
}

// The value begins with a quote: it ends with the closing one, and what follows is dropped.
void cutQuotedValue(Operation& op, char* value) {
  char* const closing = std::strchr(value + 1, '"');
  if (closing == nullptr) {
    op.fail(4, status::unterminated_quote);
    return;
  }
  closing[1] = '\0';
}

// Splits the stripped text of a variable line at its first "=".
void splitAssignment(Operation& op, GenRegVarValRecord& record) {
  record.contents |= kVarValHasValue;
  char* const equals = std::strchr(record.line, '=');
  if (equals == nullptr) {
    op.fail(3, status::no_equals_sign);
    return;
  }
  const bool blankBefore = equals != record.line && equals[-1] == ' ';
  *(blankBefore ? equals - 1 : equals) = '\0';
  record.variable = record.line;
  record.value = equals[1] == ' ' ? equals + 2 : equals + 1;
  if (record.value[0] == '"') cutQuotedValue(op, record.value);
}

void parse(Operation& op, GenRegVarValRecord& record, const char* text, unsigned long length) {
  record.variable = nullptr;
  record.value = nullptr;
  record.comment = takeStripped(record.line, text, length);
  record.contents = record.comment != nullptr ? kVarValHasComment : 0;
  if (record.line[0] != '\0') splitAssignment(op, record);
}

int parseText(void* record, const char* text, unsigned long length) {
  Operation op(kGenRegVarValParseLine);
  parse(op, recordAt(record), text, length);
  return op.result();
}

const char* requiredText(unsigned long long mask, const void* key) {
  if ((mask & kVarValVariable) == 0) return nullptr;
  return unparsedText(static_cast<const GenRegVarValRecord*>(key)->variable);
}

// Appends the run of blanks and tabs at `from` and returns what follows it.
const char* appendBlanks(LineBuilder& line, const char* from) {
  const unsigned long length = std::strspn(from, kBlanks);
  line.append(from, length);
  return from + length;
}

void appendFresh(LineBuilder& line, const GenRegVarValRecord& record) {
  // Another thread's constructor may be setting it back.
  const bool compact = __atomic_load_n(&bCompactFormattedLine, __ATOMIC_RELAXED);
  line.append(record.variable);
  line.append(compact ? "=" : " = ");
}

// Lays the name and the "=" out as the old line has them. False when it has no "=".
bool appendAsBefore(LineBuilder& line, const GenRegVarValRecord& record, const char* old) {
  const char* at = appendBlanks(line, old);
  line.append(record.variable);
  at += std::strcspn(at, " \t=");
  at = appendBlanks(line, at);
  if (*at != '=') return false;
  line.append("=");
  appendBlanks(line, at + 1);
  return true;
}

// Appends name, "=" and value, laid out as the old line is.
void appendAssignment(Operation& op, LineBuilder& line, const GenRegVarValRecord& record,
                      const char* old) {
  if (*old == '\0') {
    appendFresh(line, record);
  } else if (!appendAsBefore(line, record, old)) {
    op.fail(1, status::no_equals_sign);
  }
  line.append(record.value);
}

}  // namespace

const GenRegLineSlots genreg::kVarValLineSlots = {GenRegVarVal::MatchRecord,
                                                  GenRegVarVal::ParseLine, requiredText, parseText};

int GenRegVarVal::ParseLine(void* record, char* line) {
  Operation op(kGenRegVarValParseLine);
  if (record == nullptr || line == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  parse(op, recordAt(record), line, takenLength(line));
  return op.result();
}

int GenRegVarVal::FormatLine(void* record, char* line) {
  Operation op(kGenRegVarValFormatLine);
  if (record == nullptr || line == nullptr) {
    op.fail(3, status::null_argument);
    return op.result();
  }
  const GenRegVarValRecord& given = recordAt(record);
  const bool hasValue = (given.contents & kVarValHasValue) != 0;
  const bool hasComment = (given.contents & kVarValHasComment) != 0;
  LineBuilder text;
  if (hasValue) appendAssignment(op, text, given, line);
  if (hasComment) {
    text.append(hasValue ? " # " : "# ");
    text.append(given.comment);
  }
  if (!op.failed() && text.isTooLong()) op.fail(2, status::line_too_long);
  if (!op.failed()) text.copyToWithNewline(line);
  return op.result();
}

int GenRegVarVal::MatchRecord(unsigned long long mask, void* stored, void* given) {
  const GenRegVarValRecord& line = recordAt(stored);
  const GenRegVarValRecord& wanted = recordAt(given);
  if ((line.contents & kVarValHasValue) == 0) return 0;
  if ((mask & kVarValVariable) != 0 && !sameText(line.variable, wanted.variable)) return 0;
  if ((mask & kVarValValue) != 0 && !sameText(line.value, wanted.value)) return 0;
  return 1;
}

int GenRegVarVal::ValidateRecord(unsigned long long mask, void* record) {
  Operation op(kGenRegVarValValidateRecord);
  if (record == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  const GenRegVarValRecord& given = recordAt(record);
  if (given.contents == 0) {
    op.fail(2, status::empty_record);
  } else if ((mask & kVarValVariable) != 0 && given.variable == nullptr) {
    op.fail(3, status::required_field_missing);
  } else if ((mask & kVarValValue) != 0 && given.value == nullptr) {
    op.fail(4, status::value_missing);
  }
  return op.result();
}

int GenRegVarVal::PrintRecord(void* record) {
  const GenRegVarValRecord& given = recordAt(record);
  std::printf("Record Dump:\n");
  if (given.variable != nullptr) std::printf("   Variable = |%s|\n", given.variable);
  if (given.value != nullptr) std::printf("   Value    = |%s|\n", given.value);
  std::printf("   Contains = %i\n", static_cast<int>(given.contents));
  if (given.comment != nullptr) std::printf("   Comment  = |%s|\n", given.comment);
  return 0;
}

int GenRegVarVal::GetRecordSize(void*, unsigned long* size) {
  return GetMaxRecordSize(size);
}

int GenRegVarVal::GetMaxRecordSize(unsigned long* size) {
  *size = sizeof(GenRegVarValRecord);
  return 0;
}
