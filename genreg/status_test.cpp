// SPDX-License-Identifier: Apache-2.0
// The table of status codes: complete, sorted, each value once.
#include "genreg/status.h"

#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>

#include "platform/osse/errors.h"

namespace {

using namespace genreg;

unsigned long tableSize() {
  unsigned long count = 0;
  (void)genregStatusTable(&count);  // only the size is wanted
  return count;
}

TEST(Status, TableIsSortedAndHoldsEachValueAndNameOnce) {
  unsigned long count = 0;
  const GenRegStatusInfo* rows = genregStatusTable(&count);
  ASSERT_GT(count, 150u);
  std::set<std::string> names;
  for (unsigned long i = 0; i < count; ++i) {
    const GenRegStatus before = i > 0 ? rows[i - 1].code : 0;
    EXPECT_TRUE(i == 0 || before < rows[i].code) << rows[i].name;
    EXPECT_TRUE(names.insert(rows[i].name).second) << rows[i].name;
  }
}

TEST(Status, TableIsGivenWithoutItsSizeToo) {
  EXPECT_EQ(genregStatusTable(nullptr), genregStatusTable(nullptr));
  EXPECT_EQ(genregStatusTable(nullptr)[0].code, 0u);
}

TEST(Status, EveryRowTellsAllItsFields) {
  const GenRegStatusInfo* rows = genregStatusTable(nullptr);
  for (unsigned long i = 0; i < tableSize(); ++i) {
    for (const char* text : {rows[i].name, rows[i].meaning, rows[i].raisedBy, rows[i].remedy}) {
      ASSERT_NE(text, nullptr) << i;
      EXPECT_STRNE(text, "") << rows[i].name;
    }
    EXPECT_NE(std::string(rows[i].meaning).back(), '.') << rows[i].name;
  }
}

TEST(Status, NamesAreLowerSnake) {
  const GenRegStatusInfo* rows = genregStatusTable(nullptr);
  for (unsigned long i = 0; i < tableSize(); ++i) {
    for (const char* c = rows[i].name; *c != '\0'; ++c) {
      const auto letter = static_cast<unsigned char>(*c);
      EXPECT_TRUE(std::islower(letter) != 0 || std::isdigit(letter) != 0 || *c == '_')
          << rows[i].name;
    }
  }
}

TEST(Status, FailuresKeepOutOfTheRangeOfSystemErrors) {
  const GenRegStatusInfo* rows = genregStatusTable(nullptr);
  for (unsigned long i = 1; i < tableSize(); ++i) {
    EXPECT_EQ(rows[i].code >> 16, 0x9000u) << rows[i].name;
    const bool systemError = rows[i].code >= kOssSystemErrorBase &&
                             rows[i].code <= kOssSystemErrorBase + kOssMaxSystemError;
    EXPECT_FALSE(systemError) << rows[i].name;
  }
}

TEST(Status, EveryRowIsFoundByItsCode) {
  const GenRegStatusInfo* rows = genregStatusTable(nullptr);
  for (unsigned long i = 0; i < tableSize(); ++i) {
    EXPECT_EQ(genregStatusInfo(rows[i].code), &rows[i]) << rows[i].name;
  }
}

TEST(Status, CodesWithoutARowAreNotFound) {
  EXPECT_EQ(genregStatusInfo(1), nullptr);
  EXPECT_EQ(genregStatusInfo(kOssSystemErrorBase + 13), nullptr);
  EXPECT_EQ(genregStatusInfo(0x90000000u), nullptr);
  EXPECT_EQ(genregStatusInfo(0xFFFFFFFFu), nullptr);
}

TEST(Status, CodesOfBothLibrariesAreInOneTable) {
  EXPECT_STREQ(genregStatusInfo(0)->name, "ok");
  EXPECT_STREQ(genregStatusInfo(0x90000014u)->name, "lock_held");
  EXPECT_STREQ(genregStatusInfo(0x900001F1u)->name, "duplicate_record");
}

TEST(Status, SharedCodesAreThePlatformLayers) {
  EXPECT_EQ(GenRegStatus{status::ok}, 0u);
  EXPECT_EQ(GenRegStatus{status::buffer_too_small}, 0x90000008u);
  EXPECT_EQ(GenRegStatus{status::invalid_argument}, 0x9000000Cu);
  EXPECT_EQ(GenRegStatus{status::no_memory}, 0x9000000Du);
  EXPECT_EQ(GenRegStatus{status::lock_held}, 0x90000014u);
}

// Programs are linked against these numbers.
struct Known {
  GenRegStatus code;
  const char* name;
};

constexpr Known kKnown[] = {
    {0x900001B8u, "no_base_name"},
    {0x900001B9u, "no_directory_name"},
    {0x900001BAu, "paths_not_set"},
    {0x900001BBu, "lock_already_held"},
    {0x900001BCu, "lock_not_taken"},
    {0x900001BDu, "lock_not_released"},
    {0x900001BEu, "end_of_registry"},
    {0x900001BFu, "registry_not_opened"},
    {0x900001C0u, "copy_not_opened"},
    {0x900001C4u, "locked_elsewhere"},
    {0x900001C5u, "open_failed"},
    {0x900001C6u, "close_failed"},
    {0x900001C7u, "registry_not_closed"},
    {0x900001C8u, "copy_not_closed"},
    {0x900001CDu, "read_failed"},
    {0x900001D0u, "copy_write_failed"},
    {0x900001D3u, "copy_not_deleted"},
    {0x900001DAu, "lock_file_not_opened"},
    {0x900001DCu, "lock_file_not_closed"},
    {0x900001E0u, "rewind_failed"},
    {0x900001E1u, "backup_not_linked"},
    {0x900001E2u, "registry_not_replaced"},
    {0x900001E7u, "no_scratch_memory"},
    {0x900001EBu, "no_checksum_memory"},
    {0x900001EEu, "scratch_not_released"},
    {0x900001F2u, "bad_argument"},
    {0x900001F3u, "null_argument"},
    {0x900001F4u, "path_too_long"},
    {0x900001FBu, "verify_failed"},
    {0x90000202u, "feature_out_of_range"},
    {0x90000203u, "feature_not_set"},
    {0x90000224u, "leftover_not_moved"},
    {0x90000225u, "corrupt_copy_not_deleted"},
    {0x90000256u, "no_registry_info"},
    {0x90000257u, "copy_permissions_not_set"},
    {0x9000025Au, "no_scan"},
    {0x9000025Bu, "scan_is_open"},
    {0x90000272u, "registry_not_locked"},
    {0x90000287u, "position_not_read"},
    {0x90000288u, "position_not_set"},
    {0x900003F2u, "no_notify_slot"},
    {0x900003F6u, "backup_not_deleted"},
    {0x900003F7u, "unlock_failed"},
    {0x90000512u, "directory_not_created"},
    {0x90000513u, "no_registry"},
    {0x900005A4u, "checksum_mismatch"},
    {0x900005A5u, "checksum_body_unread"},
};

TEST(Status, CoreCodesKeepTheirNumbers) {
  for (const Known& known : kKnown) {
    const GenRegStatusInfo* row = genregStatusInfo(known.code);
    ASSERT_NE(row, nullptr) << known.name;
    EXPECT_STREQ(row->name, known.name);
  }
}

TEST(Status, IntegerFormKeepsTheBits) {
  EXPECT_LT(statusInt(status::no_match), 0);
  EXPECT_EQ(statusOf(statusInt(status::no_match)), 0x900001F6u);
  EXPECT_EQ(statusInt(status::ok), 0);
}

}  // namespace
