// SPDX-License-Identifier: Apache-2.0
// The road of a set, a lookup, a removal and a list over the global registry.
#include "oss/internal/directory_support.h"

#include <new>

#include "platform/osse/memory.h"

namespace ossdir {
namespace {

namespace status = genreg::status;
using genreg::Operation;
using genreg::statusOf;

GlobalReg* listOf(void* handle) {
  return static_cast<GlobalReg*>(handle);
}

// The record's key is a copy: the store may put the new record into another form on its way.
GenRegStatus replaceRecord(Operation& op, GlobalReg& registry, unsigned long long keyMask,
                           GlobalRegRecord& record, GenRegStatus notChanged) {
  GlobalRegRecord key = record;
  const GenRegStatus rc = statusOf(registry.Change(keyMask, &key, &record));
  if (rc == status::ok) return op.status();
  if (rc == status::unchanged) return op.fail(10, rc);
  return op.fail(11, notChanged, rc);
}

void freeList(Operation& op, GlobalReg* list) {
  list->~GlobalReg();
  if (const GenRegStatus rc = ossMemFree(list, __FILE__, __LINE__); rc != status::ok) {
    op.note(40, status::scratch_not_released, rc);
  }
}

}  // namespace

GenRegStatus setRecord(Operation& op, genreg::FunctionId function, unsigned long long keyMask,
                       GlobalRegRecord& record, const SetCodes& codes) {
  GlobalReg registry;
  registry.SetChangeLoggingFuncID(function);
  const GenRegStatus rc = statusOf(registry.Add(keyMask, &record));
  if (rc == status::ok) return op.status();
  if (rc != status::duplicate_record) return op.fail(12, codes.notAdded, rc);
  return replaceRecord(op, registry, keyMask, record, codes.notChanged);
}

GenRegStatus findRecord(Operation& op, GlobalRegRecord& key, GlobalRegRecord* found,
                        GenRegStatus notFound) {
  GlobalReg registry;
  const GenRegStatus rc = statusOf(registry.Get(key.FieldMask, &key, found));
  if (rc == status::ok) return op.status();
  if (rc == status::no_match) return op.conclude(notFound);
  return op.fail(13, notFound, rc);
}

GenRegStatus removeRecord(Operation& op, genreg::FunctionId function, GlobalRegRecord& key,
                          GenRegStatus notRemoved) {
  GlobalReg registry;
  registry.SetChangeLoggingFuncID(function);
  const GenRegStatus rc = statusOf(registry.Delete(key.FieldMask, &key));
  if (rc == status::ok || rc == status::no_match) return op.conclude(rc);
  return op.fail(14, notRemoved, rc);
}

GenRegStatus openList(Operation& op, void** handle, bool hostWideOnly, const char* filter,
                      GenRegStatus notOpened) {
  void* block = nullptr;
  if (const GenRegStatus rc = ossMemAlloc(&block, sizeof(GlobalReg), __FILE__, __LINE__);
      rc != status::ok) {
    return op.fail(15, status::no_list_memory, rc);
  }
  auto* list = new (block) GlobalReg(hostWideOnly);
  if (const GenRegStatus rc = list->OpenScan(); rc != status::ok) {
    op.fail(16, notOpened == status::ok ? rc : notOpened, rc);
    freeList(op, list);
    return op.status();
  }
  list->ListService = filter;
  *handle = list;
  return op.status();
}

GenRegStatus closeList(Operation& op, void* handle) {
  if (handle == nullptr) return op.fail(18, status::list_handle_null);
  GlobalReg* list = listOf(handle);
  if (const GenRegStatus rc = list->CloseScan(); rc != status::ok) {
    op.fail(19, status::list_not_closed, rc);
  }
  freeList(op, list);
  return op.status();
}

}  // namespace ossdir
