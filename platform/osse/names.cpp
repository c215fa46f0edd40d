// SPDX-License-Identifier: Apache-2.0
// Printable names of function identifiers.
//
// All state is constant-initialised, so that other libraries may register from their own
// initialisers whatever the order of loading.
#include "platform/osse/names.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "platform/osse/internal/function_ids.h"
#include "platform/osse/strings.h"

namespace {

using namespace oss::internal;

constexpr OSSFunctionName kOwnNames[] = {
    {kOssMemAlloc, "ossMemAlloc"},
    {kOssMemFree, "ossMemFree"},
    {kOssFileCopyOwnership, "ossFileCopyOwnership"},
    {kOssFileHandleDestructor, "OSSHFile::~OSSHFile"},
};

struct Table {
  const OSSFunctionName* rows;
  unsigned long count;
};

// Tables are only ever added: rows below tableCount never change, so reading takes no lock.
std::mutex registration;
std::array<Table, kOssMaxFunctionTables> tables{{{kOwnNames, std::size(kOwnNames)}}};
std::atomic<unsigned long> tableCount{1};

// Texts of identifiers without a name, kept so that a caller may hold on to them.
constexpr unsigned long kMaxUnknown = 256;
constexpr unsigned long kUnknownTextSize = sizeof "0x00000000";
struct Unknown {
  unsigned int id;
  char text[kUnknownTextSize];
};
std::mutex unknownMutex;
std::array<Unknown, kMaxUnknown> unknowns{};
unsigned long unknownCount = 0;

void formatUnknown(unsigned int id, char* text) {
  (void)ossSnprintf(text, kUnknownTextSize, "0x%08X", id);  // fits by construction
}

const char* nameInTables(unsigned int id) {
  const unsigned long count = tableCount.load(std::memory_order_acquire);
  for (unsigned long t = 0; t < count; ++t) {
    for (unsigned long row = 0; row < tables[t].count; ++row) {
      if (tables[t].rows[row].id == id) return tables[t].rows[row].name;
    }
  }
  return nullptr;
}

const char* nameOfUnknown(unsigned int id) {
  const std::lock_guard<std::mutex> hold(unknownMutex);
  for (unsigned long i = 0; i < unknownCount; ++i) {
    if (unknowns[i].id == id) return unknowns[i].text;
  }
  if (unknownCount == kMaxUnknown) {
    thread_local char overflow[kUnknownTextSize];
    formatUnknown(id, overflow);
    return overflow;
  }
  Unknown& added = unknowns[unknownCount++];
  added.id = id;
  formatUnknown(id, added.text);
  return added.text;
}

}  // namespace

void ecfRegisterFunctionNames(const OSSFunctionName* table, unsigned long count) {
  if (table == nullptr || count == 0) return;
  const std::lock_guard<std::mutex> hold(registration);
  const unsigned long used = tableCount.load(std::memory_order_relaxed);
  for (unsigned long t = 0; t < used; ++t) {
    if (tables[t].rows == table) return;
  }
  if (used == tables.size()) return;
  tables[used] = {table, count};
  tableCount.store(used + 1, std::memory_order_release);
}

const char* ecfGetFunctionName(unsigned int id) {
  const char* name = nameInTables(id);
  return name != nullptr ? name : nameOfUnknown(id);
}
