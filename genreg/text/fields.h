// SPDX-License-Identifier: Apache-2.0
// Cleaning and splitting the text of one line: plain functions over strings that they change in
// place.
#pragma once

#include "genreg/export.h"
#include "genreg/status.h"

// Replaces tabs, newlines and carriage returns by blanks, removes leading and trailing blanks and
// collapses each run of blanks into one. Text in double quotes, quotes included, keeps its blanks;
// a quote that is never closed quotes the rest. The string never grows. 0x900001F3 null string;
// 0x90000219 no memory, the string is unchanged; 0x9000021A memory not released, the string is
// done.
[[nodiscard]] VRXGENREG_API GenRegStatus StripWhiteSpace(char* text);

// Replaces every byte that is neither printable ASCII nor a tab by ".", bytes from 0x80 up
// included. The length stays. Returns 0; a null string is left alone.
VRXGENREG_API GenRegStatus CleanString(char* text);

// Cuts the next field, a run of bytes other than blanks and tabs, off the string at *cursor: *field
// receives its start, its end is overwritten by a NUL, and *cursor receives where to go on, null
// behind the last field. 0x900001C1 when there is no further field (*cursor null, or only blanks
// left); *field is then null.
[[nodiscard]] VRXGENREG_API GenRegStatus ExtractNextField(char** field, char** cursor);
