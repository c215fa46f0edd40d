// SPDX-License-Identifier: Apache-2.0
// What libvrxgenreg exports. Everything without this mark stays inside the library.
#pragma once

#if defined(__GNUC__)
#define VRXGENREG_API __attribute__((visibility("default")))
#else
#define VRXGENREG_API
#endif
