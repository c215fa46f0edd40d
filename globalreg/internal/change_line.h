// SPDX-License-Identifier: Apache-2.0
// The text of a change-log line: pure functions from a registry object and records to text. Opening
// and writing the log is change_log.cpp's.
#pragma once

#include <cstddef>

#include "globalreg/global_reg.h"
#include "globalreg/internal/line_buffer.h"

namespace globalreg {

// Size in bytes of the command-line field, quotes and terminator included.
constexpr std::size_t kCommandLineSize = 1024;

// Appends `TS="...";CALLER=...;PID=...;U=...;BL=...;FP=...;PATH=...;ACT=...;CL=...;REC=`.
void appendHeader(LineBuffer& line, GlobalReg& registry, unsigned int action);

// Appends a record: its type's letter and its known fields, each followed by a comma but the last.
// A field that is absent leaves its comma only; a record of another type leaves nothing.
void appendRecord(LineBuffer& line, const void* record);

// The calling program's command line in double quotes, or N/A when nobody set it. The arguments are
// separated by blanks; the first that does not fit ends them.
void formatCommandLine(GlobalReg& registry, char (&out)[kCommandLineSize]);

}  // namespace globalreg
