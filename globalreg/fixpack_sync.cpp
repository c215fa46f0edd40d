// SPDX-License-Identifier: Apache-2.0
// Fix-pack synchronisation: one scan that collects, then one change a record.
#include "globalreg/fixpack_sync.h"

#include <cstring>
#include <new>

#include "genreg/internal/operation.h"
#include "oss/version_code.h"
#include "platform/install/level_info.h"
#include "platform/osse/memory.h"

namespace {

namespace status = genreg::status;
using genreg::Operation;
using genreg::statusOf;

// The installed copies that a fix pack belongs to.
constexpr const char* kPatchedServices[] = {"VRX", "KRN"};

// A record as it was found. What it will be differs in its fix-pack number only.
struct Node {
  GlobalRegRecord found;
  Node* next;
};

// The records to change, in file order.
class RecordList {
 public:
  RecordList() = default;
  ~RecordList() {
    while (first_ != nullptr) {
      Node* const next = first_->next;
      (void)ossMemFree(first_, __FILE__, __LINE__);  // a damaged block is logged there
      first_ = next;
    }
  }
  RecordList(const RecordList&) = delete;
  RecordList& operator=(const RecordList&) = delete;

  // The code of the allocation that failed.
  GenRegStatus append(const GlobalRegRecord& record) {
    void* block = nullptr;
    const GenRegStatus rc = ossMemAlloc(&block, sizeof(Node), __FILE__, __LINE__);
    if (rc != status::ok) return rc;
    Node* const node = new (block) Node{record, nullptr};
    *end_ = node;
    end_ = &node->next;
    ++count_;
    return status::ok;
  }
  Node* first() { return first_; }
  unsigned int count() const { return count_; }

 private:
  Node* first_ = nullptr;
  Node** end_ = &first_;
  unsigned int count_ = 0;
};

bool isPatched(const GlobalRegServiceBody& service) {
  for (const char* name : kPatchedServices) {
    if (std::strncmp(service.Service, name, sizeof service.Service) == 0) return true;
  }
  return false;
}

bool isBehind(const GlobalRegRecord& record, unsigned int fixpackNumber) {
  return (record.FieldMask & kServiceFixpackNumber) != 0 && isPatched(record.Services) &&
         record.Services.FixpackNumber != fixpackNumber;
}

// The key of the installed version's service records.
void makeKey(Operation& op, const sqleLevelInfo& level, GlobalRegRecord& key) {
  unsigned long long versionCode = 0;
  const GenRegStatus rc = ossVersionStringToCode(level.version, &versionCode);
  if (rc != status::ok) {
    op.fail(10, rc);
    return;
  }
  key.RecordType = kGlobalRegService;
  key.FieldMask = kServiceVersionCode;
  key.Services.VersionCode = versionCode;
}

void collect(Operation& op, GlobalReg& registry, GlobalRegRecord& key, unsigned int fixpackNumber,
             RecordList& records) {
  GlobalRegRecord found{};
  for (;;) {
    const GenRegStatus rc = statusOf(registry.GetNext(kServiceVersionCode, &key, &found));
    if (rc == status::end_of_registry) return;
    if (rc != status::ok) {
      op.fail(20, rc);
      return;
    }
    if (!isBehind(found, fixpackNumber)) continue;
    if (const GenRegStatus appended = records.append(found); appended != status::ok) {
      op.fail(21, status::no_memory, appended);
      return;
    }
  }
}

// The scan is closed on every path: it keeps the registry locked.
void scan(Operation& op, GlobalReg& registry, GlobalRegRecord& key, unsigned int fixpackNumber,
          RecordList& records) {
  GenRegStatus rc = registry.OpenScan();
  if (rc != status::ok) {
    op.fail(30, status::open_failed, rc);
    return;
  }
  collect(op, registry, key, fixpackNumber, records);
  rc = registry.CloseScan();
  if (rc == status::ok) return;
  op.note(31, status::close_failed, rc);
  op.conclude(status::open_failed);
}

void apply(Operation& op, GlobalReg& registry, unsigned int fixpackNumber, RecordList& records) {
  for (Node* node = records.first(); node != nullptr && !op.failed(); node = node->next) {
    GlobalRegRecord patched = node->found;
    patched.Services.FixpackNumber = fixpackNumber;
    const GenRegStatus rc =
        statusOf(registry.Change(node->found.FieldMask, &node->found, &patched));
    if (rc != status::ok) op.fail(40, rc);
  }
}

}  // namespace

GenRegStatus genregSyncGlobalRegFixpackNumber(GlobalReg* registry, unsigned int* changed) {
  Operation op(genreg::kGenregSyncGlobalRegFixpackNumber);
  if (registry == nullptr || changed == nullptr) return op.fail(1, status::invalid_argument);
  sqleLevelInfo level{};
  const GenRegStatus rc = sqleGetLevelInfo(kSqleLevelInfoVersion, &level);
  if (rc != status::ok) return op.fail(2, rc);
  registry->SetChangeLoggingFuncID(genreg::kGenregSyncGlobalRegFixpackNumber);

  GlobalRegRecord key{};
  RecordList records;
  makeKey(op, level, key);
  if (!op.failed()) scan(op, *registry, key, level.fixpackNumber, records);
  if (!op.failed()) apply(op, *registry, level.fixpackNumber, records);
  if (!op.failed()) *changed = records.count();
  return op.status();
}
