// SPDX-License-Identifier: Apache-2.0
// Status codes of the platform layer.
//
// 0 is success, a failure is 0x9000xxxx. Three kinds share the range below 0x900001B3:
//
//     0x90000001 .. 0x9000007F   this layer's own conditions, the rows of status_codes.inc
//     0x90000081 .. 0x900001B2   a system error, 0x90000080 + errno, without a row (errors.h)
//     0x900001B3 and above       the libraries built on this one
//
// One value means one condition. A function documents the codes that it adds; any function that
// makes a system call may also return a system error.
#pragma once

using OSSStatus = unsigned int;

namespace oss {
namespace status {

// The codes by name.
enum Code : OSSStatus {
#define VRX_STATUS(name, value, meaning, raisedBy, remedy) name = (value),
#include "platform/osse/status_codes.inc"
#undef VRX_STATUS
};

}  // namespace status
}  // namespace oss
