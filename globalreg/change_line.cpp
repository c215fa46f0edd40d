// SPDX-License-Identifier: Apache-2.0
// The text of a change-log line.
#include "globalreg/internal/change_line.h"

#include <unistd.h>

#include <ctime>

#include "globalreg/internal/fields.h"
#include "globalreg/internal/location.h"
#include "oss/version_code.h"
#include "platform/install/level_info.h"
#include "platform/osse/clock.h"
#include "platform/osse/names.h"

namespace globalreg {
namespace {

namespace status = genreg::status;

constexpr std::size_t kTimeSize = 26;  // as ctime_r asks for

// An argument goes in while its length and one are below this less what is there: the closing quote
// always fits.
constexpr std::size_t kCommandLineRoom = 1022;

// The path is given where it and its terminator stay below this.
constexpr std::size_t kPathLimit = 1025;

const char* actionWord(unsigned int action) {
  switch (action) {
    case kGenRegAdd:
      return "Add";
    case kGenRegChange:
      return "Change";
    case kGenRegDelete:
      return "Delete";
    default:
      return "Unknown";
  }
}

// "Mon Jan  1 12:00:00 2024" in local time; empty for a time beyond the calendar.
void formatTime(char (&out)[kTimeSize]) {
  const auto now = static_cast<std::time_t>(ossTimeGetUTC());
  if (ctime_r(&now, out) == nullptr) out[0] = '\0';
  out[strcspn(out, "\n")] = '\0';
}

void appendCaller(LineBuffer& line, GlobalReg& registry) {
  const unsigned int caller = registry.GetChangeLoggingFuncID();
  line.append("\";CALLER=");
  line.append(caller == 0 ? "UNKNOWN" : ecfGetFunctionName(caller));
}

void appendLevel(LineBuffer& line) {
  sqleLevelInfo level{};
  if (sqleGetLevelInfo(kSqleLevelInfoVersion, &level) != status::ok) level = {};
  line.append(";BL=");
  line.append(level.buildLevel, strnlen(level.buildLevel, sizeof level.buildLevel));
  line.appendFormat(";FP=%u", level.fixpackNumber);
}

void appendPath(LineBuffer& line) {
  Location location;
  const bool found = locateRegistry(Scope::instanceOrHost, &location) == status::ok;
  line.append(";PATH=");
  if (found && std::strlen(location.path) + 1 < kPathLimit) line.append(location.path);
}

void appendVersion(LineBuffer& line, std::uint64_t code) {
  char text[kVersionStringSize];
  if (ossVersionCodeToString(code, text, sizeof text) == status::ok) line.append(text);
}

void appendValue(LineBuffer& line, const unsigned char* record, const Field& field) {
  switch (field.logForm) {
    case LogForm::text:
      line.append(fieldText(record, field), fieldLength(record, field));
      return;
    case LogForm::version:
      appendVersion(line, fieldNumber(record, field));
      return;
    case LogForm::decimal:
      line.appendFormat("%d", static_cast<int>(static_cast<unsigned>(fieldNumber(record, field))));
      return;
    case LogForm::character:
      line.appendFormat("%c", static_cast<int>(fieldNumber(record, field)));
      return;
  }
}

}  // namespace

void formatCommandLine(GlobalReg& registry, char (&out)[kCommandLineSize]) {
  constexpr char kNone[] = "N/A";
  if (registry.CallerArgCount < 1 || registry.CallerArgs == nullptr) {
    std::memcpy(out, kNone, sizeof kNone);
    return;
  }
  std::size_t size = 0;
  out[size++] = '"';
  for (int i = 0; i < registry.CallerArgCount && registry.CallerArgs[i] != nullptr; ++i) {
    const std::size_t length = strnlen(registry.CallerArgs[i], kCommandLineSize);
    if (length + 1 >= kCommandLineRoom - size) break;
    if (i > 0) out[size++] = ' ';
    std::memcpy(out + size, registry.CallerArgs[i], length);
    size += length;
  }
  out[size++] = '"';
  out[size] = '\0';
}

void appendHeader(LineBuffer& line, GlobalReg& registry, unsigned int action) {
  char time[kTimeSize];
  formatTime(time);
  line.append("TS=\"");
  line.append(time);
  appendCaller(line, registry);
  line.appendFormat(";PID=%d;U=%d", static_cast<int>(getpid()), static_cast<int>(getuid()));
  appendLevel(line);
  appendPath(line);
  line.append(";ACT=");
  line.append(actionWord(action));
  char commandLine[kCommandLineSize];
  formatCommandLine(registry, commandLine);
  line.append(";CL=");
  line.append(commandLine);
  line.append(";REC=");
}

void appendRecord(LineBuffer& line, const void* record) {
  const auto* bytes = static_cast<const unsigned char*>(record);
  const Layout* layout = layoutOf(recordType(bytes));
  if (layout == nullptr) return;
  line.append(layout->letter);
  line.append(",");
  const std::uint64_t present = fieldMask(bytes);
  for (const Field& field : *layout) {
    if ((present & layout->bit(field)) != 0) appendValue(line, bytes, field);
    if (&field + 1 != layout->end()) line.append(",");
  }
}

}  // namespace globalreg
