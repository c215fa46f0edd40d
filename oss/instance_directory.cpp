// SPDX-License-Identifier: Apache-2.0
// The instance directory: OSSInstanceInfo_t to instance records of the global registry and back.
#include "globalreg/internal/copy_short.h"
#include "oss/internal/directory_support.h"
#include "oss/internal/instance_image.h"

namespace {

namespace status = genreg::status;
using genreg::Operation;
using namespace ossdir;

constexpr SetCodes kSetCodes = {status::instance_not_added, status::instance_not_changed};

// A switch is 1 or absent: a clear flag says nothing about it.
constexpr std::uint32_t kSwitchedOn = 1;

// 0, or the code of the first part of the key that is missing.
GenRegStatus checkKey(const char* service, unsigned long long versionCode, const char* name) {
  if (versionCode == 0) return status::version_code_zero;
  if (isMissing(service)) return status::service_name_missing;
  if (isMissing(name)) return status::instance_name_missing;
  return status::ok;
}

// A record of those parts of the key that are given.
GlobalRegRecord makeKey(const char* service, unsigned long long versionCode, const char* name) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegInstance;
  giveText(record, kInstanceService, record.Instance.Service, service);
  giveText(record, kInstanceName, record.Instance.InstanceName, name);
  if (versionCode == 0) return record;
  record.Instance.VersionCode = versionCode;
  record.FieldMask |= kInstanceVersionCode;
  return record;
}

// The same as makeKey of the service alone, in a record of which nothing else is looked at, nor
// what is behind the text. The filter of a list of services is null.
void setListKey(GlobalRegRecord& key, const char* service) {
  key.RecordType = kGlobalRegInstance;
  key.FieldMask = 0;
  key.MissingFieldMask = 0;
  if (service == nullptr) return;
  const std::size_t length = strnlen(service, sizeof key.Instance.Service - 1);
  globalreg::copyShort(reinterpret_cast<unsigned char*>(key.Instance.Service),
                       reinterpret_cast<const unsigned char*>(service), length);
  key.Instance.Service[length] = '\0';
  key.FieldMask = kInstanceService;
}

void putFlags(GlobalRegRecord& record, unsigned long long flags) {
  if ((flags & kInstanceFlagStartAtBoot) != 0) {
    record.Instance.StartAtBoot = kSwitchedOn;
    record.FieldMask |= kInstanceStartAtBoot;
  }
  if ((flags & kInstanceFlagMaintenance) != 0) {
    record.Instance.Maintenance = kSwitchedOn;
    record.FieldMask |= kInstanceMaintenance;
  }
}

GlobalRegRecord toRecord(const OSSInstanceInfo_t& info) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegInstance;
  GlobalRegInstanceBody& body = record.Instance;
  body.VersionCode = info.versionCode;
  record.FieldMask = kInstanceVersionCode;
  putText(record, kInstanceService, body.Service, info.service);
  putText(record, kInstanceName, body.InstanceName, info.instanceName);
  putText(record, kInstancePath, body.InstancePath, info.instancePath);
  putText(record, kInstanceUsage, body.Usage, info.usage);
  putFlags(record, info.flags);
  putText(record, kInstanceAuxPath, body.AuxPath, info.auxPath);
  putText(record, kInstanceAuxName, body.AuxName, info.auxName);
  putText(record, kInstanceComment, body.Comment, info.comment);
  return record;
}

// The flags are only ever set: a caller may gather those of several instances.
void toInfo(const GlobalRegRecord& record, OSSInstanceInfo_t* out) {
  const GlobalRegInstanceBody& body = record.Instance;
  out->versionCode = body.VersionCode;
  copyArray(out->service, body.Service);
  copyArray(out->instanceName, body.InstanceName);
  copyArray(out->instancePath, body.InstancePath);
  copyArray(out->usage, body.Usage);
  copyArray(out->auxPath, body.AuxPath);
  copyArray(out->auxName, body.AuxName);
  copyArray(out->comment, body.Comment);
  if (body.StartAtBoot == kSwitchedOn) out->flags |= kInstanceFlagStartAtBoot;
  if (body.Maintenance == kSwitchedOn) out->flags |= kInstanceFlagMaintenance;
}

}  // namespace

GenRegStatus ossSetInstanceInfo(OSSInstanceInfo_t* info) {
  Operation op(genreg::kOssSetInstanceInfo);
  if (info == nullptr) return op.fail(1, status::instance_info_null);
  const GenRegStatus rc = checkKey(info->service, info->versionCode, info->instanceName);
  if (rc != status::ok) return op.fail(2, rc);
  GlobalRegRecord record = toRecord(*info);
  return setRecord(op, genreg::kOssSetInstanceInfo, kInstanceKey, record, kSetCodes);
}

GenRegStatus ossGetInstanceInfo(char* service, unsigned long long versionCode, char* instanceName,
                                OSSInstanceInfo_t* out) {
  Operation op(genreg::kOssGetInstanceInfo);
  if (out == nullptr) return op.fail(1, status::instance_info_null);
  GlobalRegRecord key = makeKey(service, versionCode, instanceName);
  GlobalRegRecord found{};
  const GenRegStatus rc = findRecord(op, key, &found, status::instance_not_found);
  if (rc == status::ok) toInfo(found, out);
  return rc;
}

GenRegStatus ossGetInstanceInfo(char* service, unsigned long long versionCode, char* instanceName,
                                char* /*unused*/, OSSInstanceInfo_t* out) {
  return ossGetInstanceInfo(service, versionCode, instanceName, out);
}

GenRegStatus ossRemoveInstanceInfo(char* service, unsigned long long versionCode,
                                   char* instanceName) {
  Operation op(genreg::kOssRemoveInstanceInfo);
  const GenRegStatus rc = checkKey(service, versionCode, instanceName);
  if (rc != status::ok) return op.fail(1, rc);
  GlobalRegRecord key = makeKey(service, versionCode, instanceName);
  return removeRecord(op, genreg::kOssRemoveInstanceInfo, key, status::instance_not_removed);
}

GenRegStatus ossOpenInstanceList(char* service, void** handle, bool hostWideOnly) {
  Operation op(genreg::kOssOpenInstanceList);
  if (handle == nullptr) return op.fail(1, status::list_handle_null);
  if (service == nullptr) return op.fail(2, status::list_filter_null);
  return openList(op, handle, hostWideOnly, service, status::ok);
}

GenRegStatus ossOpenInstanceList(char* service, void** handle) {
  return ossOpenInstanceList(service, handle, false);
}

GenRegStatus ossGetNextInstance(void* handle, OSSInstanceInfo_t* out) {
  Operation op(genreg::kOssGetNextInstance);
  if (handle == nullptr) return op.fail(1, status::list_handle_null);
  if (out == nullptr) return op.fail(2, status::instance_info_null);
  GlobalReg& list = *static_cast<GlobalReg*>(handle);
  GlobalRegRecord key;
  setListKey(key, list.ListService);
  ListedInstance found;
  found.instance = out;
  found.isFilled = false;
  const FillsInstances fills(list);
  const GenRegStatus rc = nextRecord(op, handle, key, &found, status::instance_list_failed);
  if (rc == status::ok && !found.isFilled) toInfo(found.record, out);
  return rc;
}

GenRegStatus ossCloseInstanceList(void* handle) {
  Operation op(genreg::kOssCloseInstanceList);
  return closeList(op, handle);
}
