// SPDX-License-Identifier: Apache-2.0
// The diagnostic log: every failure, once, with what explains it.
//
// The process chooses where entries go: nowhere (the default), a file, the system log, or a
// callback. The environment variable "VRX_OSS_LOG_FILE" chooses a file when the library is loaded;
// it is ignored in set-user-id and set-group-id processes. An entry is one line,
//
//     2025-11-20T21:04:05Z pid=812 tid=812 GenRegFile::Lock probe=10 code=0x900001DA
//     inner=0x9000008D /var/vrx/.global.reg.lock
//
// (here in two), cut at 2048 bytes. Control characters and backslashes in the text are written as
// \xNN, so that no path can forge a line.
//
// Logging never changes errno, never writes to standard output or standard error, and never fails
// its caller. What is logged while the same thread is inside the log (in a callback, say) is
// dropped. All functions may be called from any thread.
#pragma once

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// Where entries go.
enum class OSSLogSink : unsigned int { none, file, syslog, callback };

// One entry as a callback sees it. All pointers are valid during the call only.
struct OSSLogEntry {
  unsigned int function;  // function identifier (names.h)
  unsigned int probe;     // which place in the function
  OSSStatus code;         // what the function reports
  OSSStatus inner;        // what explains it; 0 for none
  const char* text;       // as the caller gave it; never null
};

// Receives one entry. Called by one or several threads at a time.
using OSSLogCallback = void (*)(const OSSLogEntry* entry, void* context);

// Sends entries nowhere (none) or to the system log (syslog).
// invalid_argument: file or callback, which have functions of their own. inside_callback.
[[nodiscard]] VRXOSSE_API OSSStatus ossSetLogSink(OSSLogSink sink);

// Appends entries to the file at `path` (a relative one is taken from the present working
// directory). The file is opened for each entry and closed again, so no descriptor is kept and the
// file may be moved away at any time. It is created with mode 0600; a link as last component and
// anything but a regular file are refused, at this call and at every entry.
// not_a_regular_file; buffer_too_small; inside_callback; invalid_argument: null or empty. The sink
// is unchanged on failure.
[[nodiscard]] VRXOSSE_API OSSStatus ossSetLogFile(const char* path);

// Hands entries to `callback` with `context`. When another choice has been made and its call has
// returned, the callback is not running and will not be called again.
// invalid_argument: null. inside_callback.
[[nodiscard]] VRXOSSE_API OSSStatus ossSetLogCallback(OSSLogCallback callback, void* context);

// The present choice.
[[nodiscard]] VRXOSSE_API OSSLogSink ossGetLogSink();

// Whether entries go anywhere: callers skip the formatting of texts when not. One atomic load.
[[nodiscard]] VRXOSSE_API bool ossLogIsEnabled();

// Writes one entry; `text` may be null. The second form carries the inner code that explains
// `code`.
VRXOSSE_API void ossLog(unsigned int function, unsigned int probe, OSSStatus code,
                        const char* text);
VRXOSSE_API void ossLogRC(unsigned int function, unsigned int probe, OSSStatus code,
                          OSSStatus inner, const char* text);
