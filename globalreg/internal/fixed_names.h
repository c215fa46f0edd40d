// SPDX-License-Identifier: Apache-2.0
// The global registry's fixed names: files of the host, environment variables, paths below a home
// directory. Every one of them stands here and nowhere else, but for the change log's, which is
// public (global_reg.h).
#pragma once

namespace globalreg {

// The host-wide registry.
constexpr char kHostRegistry[] = "/var/vrx/global.reg";

// The file whose lock the fault monitor holds while it runs.
constexpr char kMonitorLockPath[] = "/var/vrx/.fmcd.lock";

// The environment variables that choose another registry.
constexpr char kPathnameVariable[] = "VRX_GLOBAL_REG_PATHNAME";
constexpr char kInstanceVariable[] = "VRXINSTANCE";

// Below the home directory of an instance's owner: the tool whose set-user-id bit decides, and the
// instance's own registry.
constexpr char kInstanceTool[] = "/sqllib/adm/vrxperm";
constexpr char kInstanceRegistry[] = "/sqllib/global.reg";

static_assert(sizeof kInstanceRegistry <= sizeof kInstanceTool,
              "the registry's name replaces the tool's name in the same buffer");

}  // namespace globalreg
