// SPDX-License-Identifier: Apache-2.0
// Logical lines in and out: continuation lines joined on the way in, long lines folded on the way
// out.
#pragma once

#include <cstdio>

#include "genreg/export.h"
#include "genreg/status.h"

// Bytes of a line buffer, terminator included. The text store reads and writes no longer lines.
constexpr unsigned long kGenRegLineSize = 2048;

// Whether variable=value lines that are written from scratch leave out the blanks around "=". One
// byte, process-wide; every GenRegVarVal constructor sets it back to false. Threads may construct
// and update at any time; set it yourself only while no other thread does.
extern VRXGENREG_API bool bCompactFormattedLine;

// Reads one line of `file`. `raw` receives the text as read, `line` the logical line: with
// `joinContinuations` a backslash before a newline joins the next physical line and both bytes are
// left out. Other bytes, the final newline included, stay as they are. Both buffers hold `size`
// bytes and are terminated. A physical line of `size` bytes or more comes in pieces, one a call.
// Returns `raw` when anything was read, else null. *rc (which may be null) receives 0; 0x900001C1
// when the end of the file was met, also behind a line; 0x900001F2 for a null buffer or stream or a
// size of 0.
VRXGENREG_API char* GenRegReadLine(char* raw, char* line, unsigned long size, FILE* file,
                                   unsigned int* rc, bool joinContinuations);

// Writes `line`, folded: a backslash and a newline are put in wherever the number of bytes written
// so far, theirs included, is one less than a multiple of `width`. The count never looks at the
// line's own newlines. 0x900001F2 for a null line or stream or a width of 0; 0x90000219, 0x9000021A
// memory.
[[nodiscard]] VRXGENREG_API GenRegStatus GenRegWriteLine(char* line, unsigned long width,
                                                         FILE* file);
