// SPDX-License-Identifier: Apache-2.0
// Printable names of function identifiers, for log, trace and change log.
//
// Each library registers the table of its own functions when it is loaded. All functions here may
// be called from any thread, before and during the registration of other tables.
#pragma once

#include "platform/osse/export.h"

// One function: its identifier and its name.
struct OSSFunctionName {
  unsigned int id;
  const char* name;
};

// How many tables a process can register.
constexpr unsigned long kOssMaxFunctionTables = 32;

// Adds a table of `count` rows, which with its names must live as long as the process. The same
// table again changes nothing; a null or empty table, and one beyond the limit, is ignored. Where
// two tables name one identifier the earlier table counts.
VRXOSSE_API void ecfRegisterFunctionNames(const OSSFunctionName* table, unsigned long count);

// The name of a function identifier; never null. An identifier that no table names gives its
// value as "0x%08X". The text stays valid as long as the process, but for one case: after 256
// different unknown identifiers a further one's text is valid only until the same thread asks for
// another.
[[nodiscard]] VRXOSSE_API const char* ecfGetFunctionName(unsigned int id);
