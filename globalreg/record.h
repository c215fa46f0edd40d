// SPDX-License-Identifier: Apache-2.0
// The global registry's record: one fixed structure of 2600 bytes for three kinds of record, and
// the bits of its field masks. docs/packed-record-format.md tells how it lies on disk.
//
// The layout is the same in every build: offsets are fixed, packed and asserted below. Strings are
// NUL-terminated within their arrays. A field counts only while its bit is set in FieldMask.
#pragma once

#include <cstddef>
#include <cstdint>

// Kinds of record; one bit each.
enum GlobalRegRecordType : std::uint32_t {
  kGlobalRegInstance = 1,
  kGlobalRegService = 2,
  kGlobalRegVariable = 4
};

// Bits of an instance record.
enum GlobalRegInstanceField : std::uint64_t {
  kInstanceService = 0x1,
  kInstanceVersionCode = 0x2,
  kInstanceName = 0x4,
  kInstancePath = 0x8,
  kInstanceUsage = 0x10,
  kInstanceStartAtBoot = 0x20,
  kInstanceMaintenance = 0x40,
  kInstanceAuxPath = 0x80,
  kInstanceAuxName = 0x100,
  kInstanceComment = 0x200,
  kInstanceKey = 0x7,
  kInstanceKnown = 0x3FF
};

// Bits of a service (installed copy) record.
enum GlobalRegServiceField : std::uint64_t {
  kServiceService = 0x1,
  kServiceVersionCode = 0x2,
  kServiceText1 = 0x4,
  kServiceText2 = 0x8,
  kServiceText3 = 0x10,
  kServiceFixpackNumber = 0x20,
  kServiceNum2 = 0x40,
  kServiceFlag = 0x80,
  kServiceNum3 = 0x100,
  kServiceNum4 = 0x200,
  kServiceKey = 0x3,
  kServiceKnown = 0x3FF
};

// Bits of a variable record.
enum GlobalRegVariableField : std::uint64_t {
  kVariableService = 0x1,
  kVariableVariable = 0x2,
  kVariableValue = 0x4,
  kVariableComment = 0x8,
  kVariableKey = 0x3,
  kVariableKnown = 0xF
};

#pragma pack(push, 1)

struct GlobalRegInstanceBody {
  char Service[64];  // the installed copy that owns the instance
  std::uint64_t VersionCode;
  char InstanceName[64];
  char InstancePath[1024];
  char Usage[64];
  std::uint32_t StartAtBoot;  // 0 or 1
  std::uint32_t Maintenance;  // 0 or 1
  char AuxPath[1024];
  char AuxName[64];
  char Comment[256];
};

// Apart from FixpackNumber the library gives the fields after the version code no meaning.
struct GlobalRegServiceBody {
  char Service[64];
  std::uint64_t VersionCode;
  char Text1[1024];
  char Text2[1024];
  char Text3[256];
  std::uint32_t FixpackNumber;
  std::uint32_t Num2;
  std::uint32_t Flag;  // only the low byte is stored
  std::uint32_t Num3;
  std::uint32_t Num4;
};

struct GlobalRegVariableBody {
  char Service[64];
  char Variable[256];
  char Value[256];
  char Comment[2000];
};

struct GlobalRegRecord {
  std::uint32_t RecordType;        // a GlobalRegRecordType
  std::uint64_t FieldMask;         // the fields that are present
  std::uint64_t MissingFieldMask;  // after a read: known fields that the stored record lacks
  union {
    GlobalRegInstanceBody Instance;
    GlobalRegServiceBody Services;
    GlobalRegVariableBody Variable;
    unsigned char Bytes[2576];
  };
  std::uint32_t CheckSum;  // carried through unchanged
};

#pragma pack(pop)

static_assert(sizeof(GlobalRegRecord) == 2600);
static_assert(offsetof(GlobalRegRecord, FieldMask) == 4);
static_assert(offsetof(GlobalRegRecord, MissingFieldMask) == 12);
static_assert(offsetof(GlobalRegRecord, Bytes) == 20);
static_assert(offsetof(GlobalRegRecord, Instance.Service) == 20);
static_assert(offsetof(GlobalRegRecord, Services.Service) == 20);
static_assert(offsetof(GlobalRegRecord, Variable.Service) == 20);
static_assert(offsetof(GlobalRegRecord, CheckSum) == 2596);
static_assert(offsetof(GlobalRegRecord, Instance.VersionCode) == 84);
static_assert(offsetof(GlobalRegRecord, Instance.InstanceName) == 92);
static_assert(offsetof(GlobalRegRecord, Instance.InstancePath) == 156);
static_assert(offsetof(GlobalRegRecord, Instance.Usage) == 1180);
static_assert(offsetof(GlobalRegRecord, Instance.StartAtBoot) == 1244);
static_assert(offsetof(GlobalRegRecord, Instance.Maintenance) == 1248);
static_assert(offsetof(GlobalRegRecord, Instance.AuxPath) == 1252);
static_assert(offsetof(GlobalRegRecord, Instance.AuxName) == 2276);
static_assert(offsetof(GlobalRegRecord, Instance.Comment) == 2340);
static_assert(offsetof(GlobalRegRecord, Services.VersionCode) == 84);
static_assert(offsetof(GlobalRegRecord, Services.Text1) == 92);
static_assert(offsetof(GlobalRegRecord, Services.Text2) == 1116);
static_assert(offsetof(GlobalRegRecord, Services.Text3) == 2140);
static_assert(offsetof(GlobalRegRecord, Services.FixpackNumber) == 2396);
static_assert(offsetof(GlobalRegRecord, Services.Num2) == 2400);
static_assert(offsetof(GlobalRegRecord, Services.Flag) == 2404);
static_assert(offsetof(GlobalRegRecord, Services.Num3) == 2408);
static_assert(offsetof(GlobalRegRecord, Services.Num4) == 2412);
static_assert(offsetof(GlobalRegRecord, Variable.Variable) == 84);
static_assert(offsetof(GlobalRegRecord, Variable.Value) == 340);
static_assert(offsetof(GlobalRegRecord, Variable.Comment) == 596);
