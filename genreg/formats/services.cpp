// SPDX-License-Identifier: Apache-2.0
// The services format: building the object, comparing, checking and dumping one record.
#include "genreg/formats/services.h"

#include <cstdio>
#include <cstring>

#include "genreg/formats/internal/line_slots.h"
#include "genreg/internal/operation.h"
#include "genreg/text/internal/line_builder.h"

using namespace genreg;

namespace {

GenRegServicesRecord& recordAt(void* record) {
  return *static_cast<GenRegServicesRecord*>(record);
}

bool sameComment(const GenRegServicesRecord& a, const GenRegServicesRecord& b) {
  if (a.comment == nullptr || b.comment == nullptr) return a.comment == b.comment;
  return std::strcmp(a.comment, b.comment) == 0;
}

void printField(const char* label, const char* text) {
  if (text == nullptr) {
    std::printf("   %s = NULL\n", label);
    return;
  }
  std::printf("   %s = |%s|\n", label, text);
}

}  // namespace

GenRegServices::GenRegServices(char* path, unsigned int* status) {
  Operation op(kGenRegServicesConstruct, path);
  const GenRegStatus rc = setRegistryPaths(path);
  if (status != nullptr) *status = rc;
  op.conclude(rc);  // logged where it was found
  if (op.failed()) return;
  matchRecord = &GenRegServices::MatchRecord;
  validateRecord = &GenRegServices::ValidateRecord;
  printRecord = &GenRegServices::PrintRecord;
  getRecordSize = &GenRegServices::GetRecordSize;
  getMaxRecordSize = &GenRegServices::GetMaxRecordSize;
  formatLine = &GenRegServices::FormatLine;
  parseLine = &GenRegServices::ParseLine;
  lineSlots = &kServicesLineSlots;
  (void)setFeature(kGenRegVerifyCommit);  // is in range
}

GenRegServices::~GenRegServices() = default;

int GenRegServices::MatchRecord(unsigned long long mask, void* stored, void* given) {
  const GenRegServicesRecord& line = recordAt(stored);
  const GenRegServicesRecord& wanted = recordAt(given);
  if (line.flags == kServicesHasComment && wanted.flags == kServicesHasComment) {
    return sameComment(line, wanted) ? 1 : 0;
  }
  if ((line.flags & wanted.flags & kServicesHasEntry) == 0) return 0;
  if ((mask & kServicesName) != 0 && !sameText(line.name, wanted.name)) return 0;
  if ((mask & kServicesPort) != 0 && line.port != wanted.port) return 0;
  if ((mask & kServicesProtocol) != 0 && !sameText(line.protocol, wanted.protocol)) return 0;
  return 1;
}

int GenRegServices::ValidateRecord(unsigned long long mask, void* record) {
  Operation op(kGenRegServicesValidateRecord);
  if (record == nullptr) {
    op.fail(1, status::null_argument);
    return op.result();
  }
  const GenRegServicesRecord& given = recordAt(record);
  if (given.flags == 0) {
    op.fail(2, status::empty_record);
  } else if ((mask & kServicesName) != 0 && given.name == nullptr) {
    op.fail(3, status::service_key_without_name);
  } else if ((mask & kServicesPort) != 0 && given.port == 0) {
    op.fail(4, status::service_key_without_port);
  } else if ((mask & kServicesProtocol) != 0 && given.protocol == nullptr) {
    op.fail(5, status::service_key_without_protocol);
  }
  return op.result();
}

int GenRegServices::PrintRecord(void* record) {
  const GenRegServicesRecord& given = recordAt(record);
  printField("name    ", given.name);
  std::printf("   port     = %d\n", static_cast<int>(given.port));
  printField("protocol", given.protocol);
  printField("comment ", given.comment);
  return 0;
}

int GenRegServices::GetRecordSize(void*, unsigned long* size) {
  return GetMaxRecordSize(size);
}

int GenRegServices::GetMaxRecordSize(unsigned long* size) {
  *size = sizeof(GenRegServicesRecord);
  return 0;
}
