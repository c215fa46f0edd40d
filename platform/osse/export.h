// SPDX-License-Identifier: Apache-2.0
// What libvrxosse exports. Everything without this mark stays inside the library.
#pragma once

#if defined(__GNUC__)
#define VRXOSSE_API __attribute__((visibility("default")))
#else
#define VRXOSSE_API
#endif
