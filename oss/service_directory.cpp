// SPDX-License-Identifier: Apache-2.0
// The service directory: OSSServiceInfo_t to service records of the global registry and back.
#include "oss/internal/directory_support.h"

namespace {

namespace status = genreg::status;
using genreg::Operation;
using namespace ossdir;

constexpr SetCodes kSetCodes = {status::service_not_added, status::service_not_changed};

// What stands for an absent flag character.
constexpr char kNoFlag = ' ';

// Where ossGetServiceInfo ends text2: callers rely on a text2 that fits 256 bytes.
constexpr std::size_t kText2Cut = 255;

// 0, or the code of the first part of the key that is missing.
GenRegStatus checkKey(const char* service, unsigned long long versionCode) {
  if (versionCode == 0) return status::version_code_zero;
  if (isMissing(service)) return status::service_name_missing;
  return status::ok;
}

// A record of those parts that are given.
GlobalRegRecord makeKey(const char* service, unsigned long long versionCode, const char* text1) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegService;
  giveText(record, kServiceService, record.Services.Service, service);
  giveText(record, kServiceText1, record.Services.Text1, text1);
  if (versionCode == 0) return record;
  record.Services.VersionCode = versionCode;
  record.FieldMask |= kServiceVersionCode;
  return record;
}

// A number that is marked as present unless it is 0.
std::uint32_t putNumber(GlobalRegRecord& record, unsigned long long bit, std::uint32_t value) {
  if (value != 0) record.FieldMask |= bit;
  return value;
}

GlobalRegRecord toRecord(const OSSServiceInfo_t& info) {
  GlobalRegRecord record{};
  record.RecordType = kGlobalRegService;
  GlobalRegServiceBody& body = record.Services;
  body.VersionCode = info.versionCode;
  record.FieldMask = kServiceVersionCode;
  putText(record, kServiceService, body.Service, info.service);
  putText(record, kServiceText1, body.Text1, info.text1);
  putText(record, kServiceText2, body.Text2, info.text2);
  putText(record, kServiceText3, body.Text3, info.text3);
  body.FixpackNumber = putNumber(record, kServiceFixpackNumber, info.fixpackNumber);
  body.Num2 = putNumber(record, kServiceNum2, info.num2);
  body.Flag = putNumber(record, kServiceFlag, static_cast<unsigned char>(info.flag));
  body.Num3 = putNumber(record, kServiceNum3, info.num3);
  body.Num4 = putNumber(record, kServiceNum4, info.num4);
  return record;
}

// A number that the record has; of one that is absent the entry before it may have left bytes.
std::uint32_t takeNumber(const GlobalRegRecord& record, unsigned long long bit,
                         std::uint32_t value) {
  return (record.FieldMask & bit) != 0 ? value : 0;
}

void toInfo(const GlobalRegRecord& record, OSSServiceInfo_t* out) {
  const GlobalRegServiceBody& body = record.Services;
  const bool hasFlag = (record.FieldMask & kServiceFlag) != 0;
  out->versionCode = body.VersionCode;
  copyArray(out->service, body.Service);
  copyArray(out->text1, body.Text1);
  copyArray(out->text2, body.Text2);
  copyArray(out->text3, body.Text3);
  out->fixpackNumber = takeNumber(record, kServiceFixpackNumber, body.FixpackNumber);
  out->num2 = takeNumber(record, kServiceNum2, body.Num2);
  out->flag = hasFlag ? static_cast<char>(static_cast<unsigned char>(body.Flag & 0xFFU)) : kNoFlag;
  out->num3 = takeNumber(record, kServiceNum3, body.Num3);
  out->num4 = takeNumber(record, kServiceNum4, body.Num4);
}

}  // namespace

GenRegStatus ossSetServiceInfo(OSSServiceInfo_t* info) {
  Operation op(genreg::kOssSetServiceInfo);
  if (info == nullptr) return op.fail(1, status::service_info_null);
  if (const GenRegStatus rc = checkKey(info->service, info->versionCode); rc != status::ok) {
    return op.fail(2, rc);
  }
  GlobalRegRecord record = toRecord(*info);
  return setRecord(op, genreg::kOssSetServiceInfo, kServiceKey, record, kSetCodes);
}

GenRegStatus ossGetServiceInfo(char* service, unsigned long long versionCode, char* text1,
                               OSSServiceInfo_t* out) {
  Operation op(genreg::kOssGetServiceInfo);
  if (out == nullptr) return op.fail(1, status::service_info_null);
  GlobalRegRecord key = makeKey(service, versionCode, text1);
  GlobalRegRecord found{};
  const GenRegStatus rc = findRecord(op, key, &found, status::service_not_found);
  if (rc != status::ok) return rc;
  toInfo(found, out);
  out->text2[kText2Cut] = '\0';
  return rc;
}

GenRegStatus ossGetServiceInfo(char* service, unsigned long long versionCode, char* text1,
                               char* /*unused*/, OSSServiceInfo_t* out) {
  return ossGetServiceInfo(service, versionCode, text1, out);
}

GenRegStatus ossRemoveServiceInfo(char* service, unsigned long long versionCode) {
  Operation op(genreg::kOssRemoveServiceInfo);
  if (const GenRegStatus rc = checkKey(service, versionCode); rc != status::ok) {
    return op.fail(1, rc);
  }
  GlobalRegRecord key = makeKey(service, versionCode, nullptr);
  return removeRecord(op, genreg::kOssRemoveServiceInfo, key, status::service_not_removed);
}

GenRegStatus ossOpenServiceList(void** handle) {
  Operation op(genreg::kOssOpenServiceList);
  if (handle == nullptr) return op.fail(1, status::list_handle_null);
  return openList(op, handle, false, nullptr, status::service_list_not_opened);
}

GenRegStatus ossGetNextService(void* handle, OSSServiceInfo_t* out) {
  Operation op(genreg::kOssGetNextService);
  if (handle == nullptr) return op.fail(1, status::list_handle_null);
  if (out == nullptr) return op.fail(2, status::service_info_null);
  GlobalRegRecord key = makeKey(nullptr, 0, nullptr);  // every service record
  GlobalRegRecord found;                               // whole after a success
  const GenRegStatus rc = nextRecord(op, handle, key, &found, status::service_list_failed);
  if (rc == status::ok) toInfo(found, out);
  return rc;
}

GenRegStatus ossCloseServiceList(void* handle) {
  Operation op(genreg::kOssCloseServiceList);
  return closeList(op, handle);
}
