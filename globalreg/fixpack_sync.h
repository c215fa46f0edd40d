// SPDX-License-Identifier: Apache-2.0
// Bringing the fix-pack numbers of the service records in line with the installation.
#pragma once

#include "globalreg/global_reg.h"

// After a fix pack has been applied: rewrites the fix-pack number of every service record of the
// installed version, named "VRX" or "KRN", that has one and whose number differs from the installed
// one (sqleGetLevelInfo). Other fields and fields of later revisions stay. All records are found
// before the first is changed; each change is one locked, verified update.
//
// `registry` is the caller's. *changed receives how many records were rewritten on success, and is
// untouched on failure. 0x9000000C null argument; the level file's codes (platform/install);
// 0x9000025F its version is malformed; 0x900001C5 the scan cannot be opened or closed; 0x9000000D
// memory; GetNext's and Change's codes as they are. When a Change fails, earlier ones stand and
// later ones are not made.
[[nodiscard]] VRXGENREG_API GenRegStatus genregSyncGlobalRegFixpackNumber(GlobalReg* registry,
                                                                          unsigned int* changed);
