// SPDX-License-Identifier: Apache-2.0
// The services format: from a line to a record and back.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "genreg/formats/internal/line_slots.h"
#include "genreg/formats/services.h"
#include "genreg/internal/operation.h"
#include "genreg/text/fields.h"
#include "genreg/text/internal/line_builder.h"
#include "platform/osse/strings.h"

using namespace genreg;

namespace {

constexpr const char* kProtocols[] = {"udp", "tcp", "ddp", "divert"};

// Texts of up to this length leave room for a second tab.
constexpr unsigned long kShortText = 7;

// The stored form of a port, network byte order read as a number, above which one tab less is
// written. Files laid out by this rule exist, so it looks at the stored form, not at the port.
constexpr unsigned int kNarrowPort = 999;

bool isKnownProtocol(const char* protocol) {
  return std::any_of(std::begin(kProtocols), std::end(kProtocols),
                     [&](const char* known) { return std::strcmp(known, protocol) == 0; });
}

// atol of a 32-bit build in every build, kept to 16 bits.
std::uint16_t portOf(const char* digits) {
  const long long number = std::strtoll(digits, nullptr, 10);
  const long long limited =
      std::clamp(number, static_cast<long long>(INT32_MIN), static_cast<long long>(INT32_MAX));
  return static_cast<std::uint16_t>(limited);
}

// Takes "port/protocol" apart. What is not understood is noted, and the line kept.
void parsePort(Operation& op, GenRegServicesRecord& record, char* field) {
  char* const slash = findMark(field, '/');
  if (slash == nullptr) {
    op.note(10, status::service_without_slash, status::ok);
    record.flags |= kServicesNotUnderstood;
    return;
  }
  *slash = '\0';
  record.port = htons(portOf(field));
  record.protocol = slash + 1;
  if (isKnownProtocol(record.protocol)) return;
  op.note(11, status::service_unknown_protocol, status::ok);
  record.flags |= kServicesNotUnderstood;
}

void parseAliases(Operation& op, GenRegServicesRecord& record, char* cursor) {
  unsigned long count = 0;
  char* alias = nullptr;
  while (ExtractNextField(&alias, &cursor) == status::ok) {
    if (count == kServicesMaxAliases) {
      op.note(12, status::line_too_long, status::ok);
      return;
    }
    record.aliasTable[count++] = alias;
    record.aliasTable[count] = nullptr;
    record.aliases = record.aliasTable;
  }
}

void parseEntry(Operation& op, GenRegServicesRecord& record) {
  char* cursor = record.line;
  char* field = nullptr;
  if (ExtractNextField(&field, &cursor) != status::ok) return;
  record.name = field;
  record.flags |= kServicesHasEntry;
  if (ExtractNextField(&field, &cursor) != status::ok) {
    op.fail(2, status::service_without_port);
    return;
  }
  parsePort(op, record, field);
  if ((record.flags & kServicesNotUnderstood) == 0) parseAliases(op, record, cursor);
}

void parse(Operation& op, GenRegServicesRecord& record, const char* text, unsigned long length) {
  record.name = record.protocol = nullptr;
  record.aliases = nullptr;
  record.port = 0;
  record.aliasTable[0] = nullptr;
  record.comment = takeStripped(record.line, text, length);
  record.flags = record.comment != nullptr ? kServicesHasComment : 0;
  parseEntry(op, record);
}

int parseText(void* record, const char* text, unsigned long length) {
  Operation op(kGenRegServicesParseLine);
  auto& parsed = *static_cast<GenRegServicesRecord*>(record);
  parse(op, parsed, text, length);
  if (length == 0) parsed.flags = kServicesHasComment;
  return op.result();
}

// Two comments are compared whatever the mask.
const char* requiredText(unsigned long long mask, const void* key) {
  const auto& wanted = *static_cast<const GenRegServicesRecord*>(key);
  const bool named = (mask & kServicesName) != 0 && wanted.flags != kServicesHasComment;
  return named ? unparsedText(wanted.name) : nullptr;
}

const char* firstAlias(const GenRegServicesRecord& record) {
  return record.aliases != nullptr ? record.aliases[0] : nullptr;
}

void checkEntry(Operation& op, const GenRegServicesRecord& record) {
  if (record.name == nullptr) {
    op.fail(20, status::service_line_without_name);
  } else if (record.port == 0) {
    op.fail(21, status::service_line_without_port);
  } else if (record.protocol == nullptr) {
    op.fail(22, status::service_line_without_protocol);
  }
}

void appendAliases(LineBuilder& line, const GenRegServicesRecord& record) {
  if (record.aliases == nullptr) return;
  line.append(record.port <= kNarrowPort ? "\t\t" : "\t");
  // A caller's list may be longer than the table that a line is parsed into.
  for (char* const* alias = record.aliases; *alias != nullptr && !line.isTooLong(); ++alias) {
    if (alias != record.aliases) line.append(" ");
    line.append(*alias);
  }
}

void appendEntry(LineBuilder& line, const GenRegServicesRecord& record) {
  char port[16];
  (void)ossSnprintf(port, sizeof port, "%d/", ntohs(static_cast<std::uint16_t>(record.port)));
  line.append(record.name);
  line.append(std::strlen(record.name) <= kShortText ? "\t\t" : "\t");
  line.append(port);
  line.append(record.protocol);
  appendAliases(line, record);
}

void appendComment(LineBuilder& line, const GenRegServicesRecord& record) {
  const char* alias = firstAlias(record);
  if (alias != nullptr) {
    line.append(std::strlen(alias) <= kShortText ? "\t\t" : "\t");
  } else {
    line.append(record.port <= kNarrowPort ? "\t\t\t\t" : "\t\t\t");
  }
  line.append("# ");
  line.append(record.comment);
}

}  // namespace

const GenRegLineSlots genreg::kServicesLineSlots = {
    GenRegServices::MatchRecord, GenRegServices::ParseLine, requiredText, parseText};

int GenRegServices::ParseLine(void* record, char* line) {
  Operation op(kGenRegServicesParseLine);
  if (record == nullptr || line == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  auto& parsed = *static_cast<GenRegServicesRecord*>(record);
  parse(op, parsed, line, takenLength(line));
  if (std::strcmp(line, "\n") == 0) parsed.flags = kServicesHasComment;
  return op.result();
}

int GenRegServices::FormatLine(void* record, char* line) {
  Operation op(kGenRegServicesFormatLine);
  if (record == nullptr || line == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  const auto& given = *static_cast<const GenRegServicesRecord*>(record);
  const bool hasEntry = (given.flags & kServicesHasEntry) != 0;
  if (hasEntry) checkEntry(op, given);
  if (op.failed()) return op.result();
  LineBuilder text;
  if (hasEntry) appendEntry(text, given);
  if ((given.flags & kServicesHasComment) != 0) appendComment(text, given);
  if (text.isTooLong()) {
    op.fail(2, status::line_too_long);
  } else {
    text.copyToWithNewline(line);
  }
  return op.result();
}
