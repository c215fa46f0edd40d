// SPDX-License-Identifier: Apache-2.0
// What libvrxinstall exports. Everything without this mark stays inside the library.
#pragma once

#if defined(__GNUC__)
#define VRXINSTALL_API __attribute__((visibility("default")))
#else
#define VRXINSTALL_API
#endif
