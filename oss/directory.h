// SPDX-License-Identifier: Apache-2.0
// The instance and service directory: register, look up, list and remove the host's instances and
// installed copies (services) in its global registry.
//
// Each function builds its own GlobalReg, so nothing is shared between calls, and each change is
// one locked, verified update. Setting is an insert or a replacement of the whole record: fields
// that the structure leaves empty are absent afterwards (fields of later revisions of the format
// are kept). Every failure is logged with the function's identifier; outputs are untouched on a
// failure.
#pragma once

#include <cstddef>

#include "genreg/status.h"

// Bits of OSSInstanceInfo_t::flags.
constexpr unsigned long long kInstanceFlagStartAtBoot = 0x1;
constexpr unsigned long long kInstanceFlagMaintenance = 0x2;

#pragma pack(push, 4)

// An instance. All strings are NUL-terminated within their arrays. The layout is fixed.
struct OSSInstanceInfo_t {
  unsigned long long flags;
  unsigned long long versionCode;  // oss/version_code.h
  char instanceName[64];
  char service[64];  // the installed copy that owns the instance
  char instancePath[1024];
  char usage[64];
  char auxPath[1024];
  char auxName[64];
  char comment[256];
};

// An installed copy. The library gives the texts and numbers no meaning but for the fix-pack
// number.
struct OSSServiceInfo_t {
  char reserved[8];  // not used by these functions
  unsigned long long versionCode;
  char service[64];
  char text1[1024];
  char text2[1024];
  char text3[256];
  unsigned int fixpackNumber;
  unsigned int num2;
  char flag;
  unsigned int num3;
  unsigned int num4;
};

#pragma pack(pop)

static_assert(sizeof(OSSInstanceInfo_t) == 2576);
static_assert(offsetof(OSSInstanceInfo_t, versionCode) == 8);
static_assert(offsetof(OSSInstanceInfo_t, instanceName) == 16);
static_assert(offsetof(OSSInstanceInfo_t, service) == 80);
static_assert(offsetof(OSSInstanceInfo_t, instancePath) == 144);
static_assert(offsetof(OSSInstanceInfo_t, usage) == 1168);
static_assert(offsetof(OSSInstanceInfo_t, auxPath) == 1232);
static_assert(offsetof(OSSInstanceInfo_t, auxName) == 2256);
static_assert(offsetof(OSSInstanceInfo_t, comment) == 2320);
static_assert(sizeof(OSSServiceInfo_t) == 2404);
static_assert(offsetof(OSSServiceInfo_t, versionCode) == 8);
static_assert(offsetof(OSSServiceInfo_t, service) == 16);
static_assert(offsetof(OSSServiceInfo_t, text1) == 80);
static_assert(offsetof(OSSServiceInfo_t, text2) == 1104);
static_assert(offsetof(OSSServiceInfo_t, text3) == 2128);
static_assert(offsetof(OSSServiceInfo_t, fixpackNumber) == 2384);
static_assert(offsetof(OSSServiceInfo_t, num2) == 2388);
static_assert(offsetof(OSSServiceInfo_t, flag) == 2392);
static_assert(offsetof(OSSServiceInfo_t, num3) == 2396);
static_assert(offsetof(OSSServiceInfo_t, num4) == 2400);

// Instances; the key is (service, version code, instance name)
// ------------------------------------------------------------

// Adds the instance, or replaces the one with the same key. An empty string or clear flag leaves
// its field absent. 0x90000261 null info; 0x9000026F version code 0; 0x90000270 empty service;
// 0x90000271 empty name; 0x900001F7 the stored record holds these values already; 0x9000026A,
// 0x9000026C the registry refuses to add, to change.
[[nodiscard]] VRXGENREG_API GenRegStatus ossSetInstanceInfo(OSSInstanceInfo_t* info);

// The first instance that agrees with the arguments given: a null service or name and a version
// code of 0 take every instance. On success every member of *out is set, except that the two flag
// bits are ORed into out->flags: zero *out first. 0x90000261 null out; 0x90000268 not found or not
// readable. `unused` is never read.
[[nodiscard]] VRXGENREG_API GenRegStatus ossGetInstanceInfo(char* service,
                                                            unsigned long long versionCode,
                                                            char* instanceName,
                                                            OSSInstanceInfo_t* out);
[[nodiscard]] VRXGENREG_API GenRegStatus ossGetInstanceInfo(char* service,
                                                            unsigned long long versionCode,
                                                            char* instanceName, char* unused,
                                                            OSSInstanceInfo_t* out);

// Removes the instance. 0x900001F6 not registered; 0x9000026F, 0x90000270, 0x90000271 as above,
// null pointers too; 0x9000026E the registry refuses.
[[nodiscard]] VRXGENREG_API GenRegStatus ossRemoveInstanceInfo(char* service,
                                                               unsigned long long versionCode,
                                                               char* instanceName);

// Opens a list of the instances of `service`, whose string must stay valid until the list is
// closed. *handle receives the list, which ossCloseInstanceList frees; the registry file is locked
// shared in between. `hostWideOnly` skips the instance's own registry. 0x90000262 null handle;
// 0x90000280 null service; 0x9000027F memory; 0x900001BF, 0x90000272 the registry cannot be opened,
// locked.
[[nodiscard]] VRXGENREG_API GenRegStatus ossOpenInstanceList(char* service, void** handle,
                                                             bool hostWideOnly);
[[nodiscard]] VRXGENREG_API GenRegStatus ossOpenInstanceList(char* service, void** handle);

// The next instance of the list, as ossGetInstanceInfo fills it, but that nothing is said of the
// bytes behind the terminators of its texts. 0x900001BE at the end, and again
// on further calls; 0x90000262 null handle; 0x90000261 null out; 0x90000266 not readable.
[[nodiscard]] VRXGENREG_API GenRegStatus ossGetNextInstance(void* handle, OSSInstanceInfo_t* out);

// Closes the list and frees it, also when closing fails (0x90000264). 0x90000262 null handle.
[[nodiscard]] VRXGENREG_API GenRegStatus ossCloseInstanceList(void* handle);

// Services (installed copies); the key is (service name, version code)
// --------------------------------------------------------------------

// Adds the service, or replaces the one with the same key. An empty string or a number of 0 leaves
// its field absent. 0x90000260 null info; 0x9000026F version code 0; 0x90000270 empty name;
// 0x900001F7 the stored record holds these values already; 0x90000269, 0x9000026B the registry
// refuses to add, to change.
[[nodiscard]] VRXGENREG_API GenRegStatus ossSetServiceInfo(OSSServiceInfo_t* info);

// The first service that agrees with the arguments given: a null service or text1 and a version
// code of 0 take every service. On success every member of *out but `reserved` is set: an absent
// number is 0, an absent flag a blank, and text2 is cut at 255 characters (read the record through
// GlobalReg for all of it). 0x90000260 null out; 0x90000267 not found or not readable. `unused` is
// never read.
[[nodiscard]] VRXGENREG_API GenRegStatus ossGetServiceInfo(char* service,
                                                           unsigned long long versionCode,
                                                           char* text1, OSSServiceInfo_t* out);
[[nodiscard]] VRXGENREG_API GenRegStatus ossGetServiceInfo(char* service,
                                                           unsigned long long versionCode,
                                                           char* text1, char* unused,
                                                           OSSServiceInfo_t* out);

// Removes the service. 0x900001F6 not registered; 0x9000026F, 0x90000270 as above, a null pointer
// too; 0x9000026D the registry refuses.
[[nodiscard]] VRXGENREG_API GenRegStatus ossRemoveServiceInfo(char* service,
                                                              unsigned long long versionCode);

// Opens a list of all services; the handle is as for instances. 0x90000262 null handle; 0x9000027F
// memory; 0x90000263 the registry cannot be opened.
[[nodiscard]] VRXGENREG_API GenRegStatus ossOpenServiceList(void** handle);

// The next service of the list, as ossGetServiceInfo fills it but with the whole of text2.
// 0x900001BE at the end, and again on further calls; 0x90000262 null handle; 0x90000260 null out;
// 0x90000265 not readable.
[[nodiscard]] VRXGENREG_API GenRegStatus ossGetNextService(void* handle, OSSServiceInfo_t* out);

// Closes the list and frees it, also when closing fails (0x90000264). 0x90000262 null handle.
[[nodiscard]] VRXGENREG_API GenRegStatus ossCloseServiceList(void* handle);
