// SPDX-License-Identifier: Apache-2.0
// The whole face: the registries of the library with std::string, value types and results.
//
//     #include <vrx/vrx.h>
//
//     int main() {
//       vrx::GlobalRegistry registry;
//       for (const auto& each : registry.instances().all().value_or({}))
//         std::puts(each.name.c_str());
//     }
//
// Where to read on:
//   vrx/records.h          the verbs that every registry has
//   vrx/status.h           Status and Result, which every verb returns
//   vrx/global_registry.h  instances, installed copies and their variables
//   vrx/profile.h, vrx/ports.h, vrx/init_table.h, vrx/binary_variables.h  the other files
// What stands in vrx/detail serves these headers and is not for programs.
#pragma once

#include "vrx/binary_variables.h"
#include "vrx/file.h"
#include "vrx/global_registry.h"
#include "vrx/init_table.h"
#include "vrx/ports.h"
#include "vrx/profile.h"
#include "vrx/records.h"
#include "vrx/status.h"
#include "vrx/stored.h"
#include "vrx/version.h"
